#pragma once

#include <QString>

class QWidget;

// Passes on the token a desktop gives a launch (X11 startup notification,
// Wayland's xdg-activation) so that bringing a window forward for a second launch
// or a browser callback is not stopped by focus-stealing prevention. One
// implementation per windowing system.
class WindowActivation
{
public:
    // Prepares `window` to be raised with `token`; nothing for an empty one.
    static void prepare(QWidget* window, const QString& token);
};
