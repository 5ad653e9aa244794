#pragma once

#include <QString>

#include <optional>

// The user preferences, over QSettings (organisation and application names come
// from the bundle information).
class Preferences
{
public:
    static bool soundsEnabled(); // "settings.soundsEnabled", default true
    static void setSoundsEnabled(bool on);
    static bool notificationsEnabled(); // "settings.notificationsEnabled", default true
    static void setNotificationsEnabled(bool on);
    // "settings.keepInStep", default true: listen for other computers' changes
    // on a server that keeps versions.
    static bool keepInStep();
    static void setKeepInStep(bool on);
    static bool autoStartSessions(); // "settings.autoStartSessions", default false
    static void setAutoStartSessions(bool on);
    // "tw.serverURLOverride": the server address the user entered; empty when unset.
    static QString serverURLOverride();
    static void setServerURLOverride(const QString& url);
    // "tw.accountExists": whether an account was signed in on this computer and not
    // signed out since. Absent (nullopt) in settings written before it existed.
    // Nothing asks the keyring while it is false: a desktop's wallet would
    // otherwise prompt people who never sign in.
    static std::optional<bool> accountExists();
    static void setAccountExists(bool exists);
};
