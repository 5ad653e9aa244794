#pragma once

class QWidget;

// Shows a window on every virtual desktop and keeps it off the taskbar and pager,
// and tells whether see-through windows blend with what is behind them. One
// implementation per windowing system.
class WindowStickiness
{
public:
    static void apply(QWidget* window);
    // False on an X11 display without a compositing manager, where transparent
    // pixels show as black.
    static bool canBlend();
};
