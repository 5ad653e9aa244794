#pragma once

#include <QColor>
#include <QToolButton>

// A tool button that is only its icon, optionally on a filled circle: no frame and
// no hover panel, as the small controls inside rows and on floating cards look.
class IconButton final : public QToolButton
{
    Q_OBJECT

public:
    explicit IconButton(QWidget* parent = nullptr, const QColor& fill = Qt::transparent);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QColor m_fill;
};
