#pragma once

#include <functional>

class QObject;
class QPoint;
class QRect;
class QWidget;

// Shows a window on every virtual desktop, above other windows whichever
// application is active, and off the taskbar and pager; and tells whether
// see-through windows blend with what is behind them. One implementation per
// windowing system.
class WindowStickiness
{
public:
    // Before the window is first mapped: what the window manager reads then.
    static void apply(QWidget* window);
    // Once the window is on screen: window managers that read the properties only
    // at map time (or not at all for these) are asked again, and those that place
    // windows themselves are asked to put it at `at`, where the app placed it.
    static void request(QWidget* window, const QPoint& at);
    // Just shown at `at`: window managers that place windows themselves (sway
    // centres every floating one) are asked to leave it there.
    static void keepAt(QWidget* window, const QPoint& at);
    // A small main window that a tiling window manager would spread over the whole
    // screen (and, on sway, over the panels' clicks) floats at `frame` instead.
    static void keepFloating(QWidget* window, const QRect& frame);
    // The work area where the windowing system tells X11 clients nothing of its bars
    // (sway), handed to `answer` when learnt, in `context`'s lifetime; never called
    // where the screen's own available geometry holds.
    static void workArea(QObject* context, std::function<void(const QRect&)> answer);
    // False on an X11 display without a compositing manager, where transparent
    // pixels show as black.
    static bool canBlend();
};
