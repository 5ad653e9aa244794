#include "PomodoroState.h"

#include "WireDate.h"

#include <limits>

const QStringList& PomodoroState::keys()
{
    static const QStringList all{
        QStringLiteral("pomodoroDuration"),
        QStringLiteral("shortBreakDuration"),
        QStringLiteral("longBreakDuration"),
        QStringLiteral("pomodorosForLongBreak"),
        QStringLiteral("autoStart"),
        QStringLiteral("pomodoroCount"),
        QStringLiteral("pomodoroTotalCount"),
        QStringLiteral("shortBreakCount"),
        QStringLiteral("longBreakCount"),
        QStringLiteral("isBreak"),
        QStringLiteral("isShortBreak"),
        QStringLiteral("isLongBreak"),
        QStringLiteral("firstPomodoroCountDate"),
    };
    return all;
}

std::optional<qint64> PomodoroState::parseInteger(const QString& text)
{
    qsizetype i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) {
        negative = text[i] == u'-';
        ++i;
    }
    if (i == text.size())
        return std::nullopt;
    // Accumulate towards the negative side, which holds one more value.
    constexpr qint64 min = std::numeric_limits<qint64>::min();
    qint64 value = 0;
    for (; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c < u'0' || c > u'9')
            return std::nullopt;
        const int digit = c - u'0';
        if (value < (min + digit) / 10)
            return std::nullopt;
        value = value * 10 - digit;
    }
    if (negative)
        return value;
    if (value == min)
        return std::nullopt;
    return -value;
}

qint64 PomodoroState::integer(const QString& key, qint64 fallback) const
{
    const auto it = m_values.constFind(key);
    if (it == m_values.constEnd())
        return fallback;
    return parseInteger(*it).value_or(fallback);
}

std::optional<QDateTime> PomodoroState::date(const QString& key) const
{
    const QString text = m_values.value(key);
    if (text.isEmpty())
        return std::nullopt;
    return WireDate::parse(text);
}

void PomodoroState::setBool(const QString& key, bool v)
{
    setValue(key, v ? QStringLiteral("true") : QStringLiteral("false"));
}

void PomodoroState::setDate(const QString& key, const QDateTime& when)
{
    setValue(key, WireDate::format(when));
}

QJsonObject PomodoroState::toJson() const
{
    QJsonObject o;
    for (auto it = m_values.constBegin(); it != m_values.constEnd(); ++it)
        o.insert(it.key(), it.value());
    return o;
}

std::optional<PomodoroState> PomodoroState::fromJson(const QJsonValue& value, const QString& path,
                                                     QString* error)
{
    if (!value.isObject()) {
        *error = u"expected an object at " + path;
        return std::nullopt;
    }
    const QJsonObject o = value.toObject();
    PomodoroState state;
    for (auto it = o.constBegin(); it != o.constEnd(); ++it) {
        if (!it->isString()) {
            *error = u"expected a string at " + path + u'.' + it.key();
            return std::nullopt;
        }
        state.m_values.insert(it.key(), it->toString());
    }
    return state;
}
