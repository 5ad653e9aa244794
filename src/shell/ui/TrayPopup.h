#pragma once

#include <QElapsedTimer>
#include <QWidget>

// The window a tray icon opens: frameless, 300 x 380, placed next to the icon.
// A Qt::Tool window rather than a Qt::Popup so that screen readers and UI
// automation can reach it. It closes on Escape and when it loses activation to
// a window it does not own; a dialog opened from it keeps it open, and hands
// activation back to it when it closes.
class TrayPopup final : public QWidget
{
    Q_OBJECT

public:
    static constexpr QSize DefaultSize{300, 380};

    explicit TrayPopup(const QString& title, QWidget* parent = nullptr);

    // Shows the popup next to `anchor` (the icon, or the point the tray was
    // clicked at); when empty, at the tray's end of the panel. Never at the
    // pointer: on Wayland desktops the app sees a stale position.
    void showNear(const QRect& anchor);
    // Where a popup of `size` goes for `anchor` on a screen of geometry `screen`
    // whose work area (without panels) is `available`.
    static QRect placement(const QRect& anchor, const QRect& screen, const QRect& available,
                           const QSize& size);
    // True when the popup closed itself so recently that the click which caused it
    // (a click on the tray icon) must not reopen it.
    bool justClosed() const;
    void setContent(QWidget* content);
    QWidget* content() const { return m_content; }

signals:
    void closed();

protected:
    bool event(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    bool ownsActiveWindow() const;
    bool isAncestorWindowOf(const QWidget* window) const;

    QWidget* m_content = nullptr;
    QElapsedTimer m_closedAt;
};
