#pragma once

#include <QLabel>

// One line of plain text cut with "…" at the end when it does not fit, so that a
// long user-given name cannot push the controls beside it out of sight. The whole
// text stays the accessible name, and shows as a tooltip while cut.
class ElidedLabel final : public QLabel
{
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent = nullptr);

    void setFullText(const QString& text);
    QString fullText() const { return m_full; }

    QSize minimumSizeHint() const override;
    QSize sizeHint() const override;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void elide();

    QString m_full;
};
