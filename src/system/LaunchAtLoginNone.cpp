#include "LaunchAtLogin.h"

// No way to be started at login here: off, and it cannot be turned on.
bool LaunchAtLogin::isSupported()
{
    return false;
}

bool LaunchAtLogin::isEnabled()
{
    return false;
}

bool LaunchAtLogin::setEnabled(bool on, QString* error)
{
    if (on)
        *error = QStringLiteral("starting at login is not available on this system");
    return !on;
}

bool LaunchAtLogin::refresh()
{
    return false;
}
