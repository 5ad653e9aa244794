#include "Countdown.h"

#include <algorithm>

qint64 Countdown::seconds(qint64 remainingMs)
{
    return std::max<qint64>(remainingMs, 0) / 1000;
}

QString Countdown::text(qint64 remainingMs)
{
    const qint64 s = seconds(remainingMs);
    return QString::asprintf("%02lld:%02lld", s / 60, s % 60);
}

QString Countdown::symbol(Phase phase)
{
    switch (phase) {
    case Phase::ShortBreak:
        return QStringLiteral("☕");
    case Phase::LongBreak:
        return QStringLiteral("🛌");
    case Phase::Focus:
        break;
    }
    return QStringLiteral("🍅");
}

QString Countdown::name(Phase phase)
{
    switch (phase) {
    case Phase::ShortBreak:
        return QStringLiteral("short-break");
    case Phase::LongBreak:
        return QStringLiteral("long-break");
    case Phase::Focus:
        break;
    }
    return QStringLiteral("focus");
}

Countdown::Phase Countdown::named(const QString& name)
{
    for (Phase phase : {Phase::ShortBreak, Phase::LongBreak}) {
        if (name == Countdown::name(phase))
            return phase;
    }
    return Phase::Focus;
}
