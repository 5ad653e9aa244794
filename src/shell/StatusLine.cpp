#include "StatusLine.h"

#include "Countdown.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace {
QString phaseOf(const QVariantMap& p)
{
    return p.value(QStringLiteral("Phase")).toString();
}

Countdown::Phase phaseIn(const QVariantMap& p)
{
    return Countdown::named(phaseOf(p));
}
} // namespace

StatusLine::StatusLine(QVariantMap properties)
    : m_properties(std::move(properties))
{}

void StatusLine::update(const QVariantMap& changed)
{
    for (auto it = changed.cbegin(); it != changed.cend(); ++it)
        m_properties.insert(it.key(), it.value());
}

QString StatusLine::phaseLabel() const
{
    return PomodoroService::label(phaseIn(m_properties));
}

QString StatusLine::phaseIcon() const
{
    return Countdown::symbol(phaseIn(m_properties));
}

QString StatusLine::remaining() const
{
    return Countdown::text(m_properties.value(QStringLiteral("RemainingMs")).toLongLong());
}

int StatusLine::percentage() const
{
    const qint64 total = m_properties.value(QStringLiteral("DurationMs")).toLongLong();
    const qint64 left = m_properties.value(QStringLiteral("RemainingMs")).toLongLong();
    if (total <= 0)
        return 0;
    return int(std::clamp<qint64>((total - left) * 100 / total, 0, 100));
}

QString StatusLine::formatted(const QString& pattern) const
{
    const bool active = m_properties.value(QStringLiteral("IsActive")).toBool();
    const std::pair<QString, QString> values[] = {
        {QStringLiteral("{phase}"), phaseLabel()},
        {QStringLiteral("{phase_icon}"), phaseIcon()},
        {QStringLiteral("{remaining}"), remaining()},
        {QStringLiteral("{state}"), active ? QStringLiteral("running") : QStringLiteral("stopped")},
        {QStringLiteral("{focus_count}"),
         QString::number(m_properties.value(QStringLiteral("FocusCount")).toLongLong())},
        {QStringLiteral("{percentage}"), QString::number(percentage())},
    };
    // One pass, so a value that looks like a placeholder stays as it is.
    QString out;
    for (qsizetype i = 0; i < pattern.size();) {
        const auto match = std::find_if(std::begin(values), std::end(values), [&](const auto& v) {
            return QStringView(pattern).mid(i).startsWith(v.first);
        });
        if (match == std::end(values)) {
            out += pattern[i++];
            continue;
        }
        out += match->second;
        i += match->first.size();
    }
    return out;
}

QString StatusLine::waybar() const
{
    const bool active = m_properties.value(QStringLiteral("IsActive")).toBool();
    const qint64 focus = m_properties.value(QStringLiteral("FocusCount")).toLongLong();
    const QString tooltip = formatted(QStringLiteral("{phase} {remaining}, ")) +
                            (active ? QStringLiteral("running") : QStringLiteral("stopped")) +
                            QStringLiteral(" · %1 focus session%2 today")
                                .arg(focus)
                                .arg(focus == 1 ? QString() : QStringLiteral("s"));
    QJsonObject line{
        {QStringLiteral("text"), formatted(QStringLiteral("{phase_icon} {remaining}"))},
        {QStringLiteral("tooltip"), tooltip},
        {QStringLiteral("class"), phaseOf(m_properties)},
        {QStringLiteral("percentage"), percentage()},
    };
    return QString::fromUtf8(QJsonDocument(line).toJson(QJsonDocument::Compact));
}

QString StatusLine::json() const
{
    const QVariantMap& p = m_properties;
    QJsonObject line{
        {QStringLiteral("phase"), phaseOf(p)},
        {QStringLiteral("phase_label"), phaseLabel()},
        {QStringLiteral("active"), p.value(QStringLiteral("IsActive")).toBool()},
        {QStringLiteral("remaining_ms"), p.value(QStringLiteral("RemainingMs")).toLongLong()},
        {QStringLiteral("duration_ms"), p.value(QStringLiteral("DurationMs")).toLongLong()},
        {QStringLiteral("ends_at"), p.value(QStringLiteral("EndsAt")).toString()},
        {QStringLiteral("focus_count"), p.value(QStringLiteral("FocusCount")).toLongLong()},
        {QStringLiteral("short_break_count"),
         p.value(QStringLiteral("ShortBreakCount")).toLongLong()},
        {QStringLiteral("long_break_count"),
         p.value(QStringLiteral("LongBreakCount")).toLongLong()},
    };
    return QString::fromUtf8(QJsonDocument(line).toJson(QJsonDocument::Compact));
}
