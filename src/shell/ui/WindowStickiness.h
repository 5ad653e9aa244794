#pragma once

class QWidget;

// Shows a window on every virtual desktop and keeps it off the taskbar and pager.
// One implementation per windowing system; a no-op where there is none.
class WindowStickiness
{
public:
    static void apply(QWidget* window);
};
