#include "Preferences.h"

#include "BundleInfo.h"

#include <QSettings>

namespace {
QSettings settings()
{
    const BundleInfo& info = BundleInfo::current();
    return QSettings(info.identifier, info.name);
}

bool readBool(const char* key, bool fallback)
{
    return settings().value(QLatin1String(key), fallback).toBool();
}

void writeBool(const char* key, bool on)
{
    settings().setValue(QLatin1String(key), on);
}
} // namespace

bool Preferences::soundsEnabled()
{
    return readBool("settings.soundsEnabled", true);
}

void Preferences::setSoundsEnabled(bool on)
{
    writeBool("settings.soundsEnabled", on);
}

bool Preferences::keepInStep()
{
    return readBool("settings.keepInStep", true);
}

void Preferences::setKeepInStep(bool on)
{
    writeBool("settings.keepInStep", on);
}

bool Preferences::notificationsEnabled()
{
    return readBool("settings.notificationsEnabled", true);
}

void Preferences::setNotificationsEnabled(bool on)
{
    writeBool("settings.notificationsEnabled", on);
}

bool Preferences::autoStartSessions()
{
    return readBool("settings.autoStartSessions", false);
}

void Preferences::setAutoStartSessions(bool on)
{
    writeBool("settings.autoStartSessions", on);
}

QString Preferences::serverURLOverride()
{
    return settings().value(QLatin1String("tw.serverURLOverride")).toString();
}

void Preferences::setServerURLOverride(const QString& url)
{
    if (url.isEmpty())
        settings().remove(QLatin1String("tw.serverURLOverride"));
    else
        settings().setValue(QLatin1String("tw.serverURLOverride"), url);
}

std::optional<bool> Preferences::accountExists()
{
    const QVariant value = settings().value(QLatin1String("tw.accountExists"));
    if (!value.isValid())
        return std::nullopt;
    return value.toBool();
}

void Preferences::setAccountExists(bool exists)
{
    settings().setValue(QLatin1String("tw.accountExists"), exists);
}
