#pragma once

#include <functional>

class AppServices;
class QObject;

// Where the desktop drives the running app: shortcuts, status bars, scripts and
// `tidewell ctl` (DesktopBus on the session bus). One implementation per platform;
// where there is none the app runs without one, and ControlCommand says so.
class ControlSurface
{
public:
    // Offers `services` to the desktop for as long as `owner` lives; `showHistory`
    // answers a caller's request for the history window. Returns at once.
    static void publish(AppServices& services, QObject* owner, std::function<void()> showHistory);
};
