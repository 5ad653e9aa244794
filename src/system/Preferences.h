#pragma once

#include <QString>

// The user preferences, over QSettings (organisation and application names come
// from the bundle information).
class Preferences
{
public:
    static bool soundsEnabled(); // "settings.soundsEnabled", default true
    static void setSoundsEnabled(bool on);
    static bool notificationsEnabled(); // "settings.notificationsEnabled", default true
    static void setNotificationsEnabled(bool on);
    static bool autoStartSessions(); // "settings.autoStartSessions", default false
    static void setAutoStartSessions(bool on);
    // "tw.serverURLOverride": the server address the user entered; empty when unset.
    static QString serverURLOverride();
    static void setServerURLOverride(const QString& url);
};
