#pragma once

#include <QString>

// Starting Tidewell when the user logs in, through an XDG autostart entry
// ($XDG_CONFIG_HOME/autostart/<bundle identifier>.desktop).
class LaunchAtLogin
{
public:
    // The entry exists and is not hidden.
    static bool isEnabled();
    // Writes or removes the entry; false with the reason when that fails.
    static bool setEnabled(bool on, QString* error);
    // The entry an earlier Tidewell wrote, which started it without --background,
    // is written again as this one would; true when it was.
    static bool refresh();
    static QString entryPath();
};
