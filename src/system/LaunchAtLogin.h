#pragma once

#include <QString>

// Starting Tidewell when the user logs in. One implementation per platform (an XDG
// autostart entry on Linux); where there is none, it stays off.
class LaunchAtLogin
{
public:
    // False where this system cannot start Tidewell at login.
    static bool isSupported();
    // It is set to start at login.
    static bool isEnabled();
    // Turns it on or off; false with the reason when that fails.
    static bool setEnabled(bool on, QString* error);
    // The entry an earlier Tidewell wrote, which started it without --background,
    // is written again as this one would; true when it was.
    static bool refresh();
};
