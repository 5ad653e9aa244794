#pragma once

#include <QWidget>

class QGraphicsOpacityEffect;
class QPropertyAnimation;

// The panel's content: the widget view on a rounded card with a soft shadow, and
// in the top right corner the hover controls (a "Ctrl" move hint and a close
// button), shown only while the pointer is over the panel and it is not moving.
class FloatingContainer final : public QWidget
{
    Q_OBJECT

public:
    explicit FloatingContainer(QWidget* content, QWidget* parent = nullptr);

    void setHovering(bool hovering);
    void setDragging(bool dragging);
    bool controlsVisible() const;
    QWidget* content() const { return m_content; }

signals:
    void closeRequested();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void updateControls();

    QWidget* m_content;
    QWidget* m_card;
    QWidget* m_controls;
    QGraphicsOpacityEffect* m_controlsOpacity = nullptr;
    QPropertyAnimation* m_controlsFade = nullptr;
    bool m_hovering = false;
    bool m_dragging = false;
};
