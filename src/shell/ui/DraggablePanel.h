#pragma once

#include <QTimer>
#include <QWidget>

// A small frameless window that floats above normal windows on every desktop,
// stays off the taskbar and never takes the keyboard unless a task is being
// edited in it. Ctrl-drag anywhere
// on it moves it (a plain drag reaches the widget); dragging an edge resizes it.
class DraggablePanel final : public QWidget
{
    Q_OBJECT

public:
    explicit DraggablePanel(QWidget* parent = nullptr);
    ~DraggablePanel() override;

    // Where the app placed the panel: window managers that place windows
    // themselves (sway) move it elsewhere for a moment after it is shown.
    QRect placedFrame() const;

signals:
    void hoverChanged(bool hovering);
    void moved();
    void resized();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void moveEvent(QMoveEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    Qt::Edges edgesAt(const QPoint& localPos) const;
    void acceptFocus(bool accept);
    void watchPointer();

    bool m_askedWindowManager = false;
    QPoint m_placedAt;
    bool m_settled = false;
    QTimer m_hoverCheck;
    bool m_hovered = false;
    QPoint m_lastPointer;
    int m_stillChecks = 0;
};
