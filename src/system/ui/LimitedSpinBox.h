#pragma once

#include <QSpinBox>

// A number field whose typed and stepped values stay within its limits, but which
// shows a value loaded from the store as it is, even outside them (a habit's target
// set to 120 on the web), and hands it back unchanged unless the user changes it.
// The first step from such a value lands on the nearest limit.
class LimitedSpinBox final : public QSpinBox
{
    Q_OBJECT

public:
    LimitedSpinBox(int minimum, int maximum, QWidget* parent = nullptr);

    void setLoadedValue(qint64 value);
    // The loaded value while the field still shows it, else what the user set.
    qint64 currentValue() const;

protected:
    void stepBy(int steps) override;
    StepEnabled stepEnabled() const override;
    QValidator::State validate(QString& text, int& position) const override;

private:
    int m_minimum;
    int m_maximum;
    qint64 m_loaded;
};
