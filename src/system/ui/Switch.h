#pragma once

#include <QAbstractButton>

// An on/off switch drawn as a small track with a knob. Checkable; Space toggles
// it; screen readers see a check box with the accessible name set by the caller.
class Switch final : public QAbstractButton
{
    Q_OBJECT

public:
    explicit Switch(QWidget* parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
};
