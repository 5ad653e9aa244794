#include "CsvExport.h"

#include "FocusSession.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "ModelContext.h"

#include <QStringList>

#include <algorithm>

namespace {
QString field(const QString& value)
{
    if (!value.contains(u',') && !value.contains(u'"') && !value.contains(u'\r') &&
        !value.contains(u'\n'))
        return value;
    QString quoted = value;
    quoted.replace(u'"', QStringLiteral("\"\""));
    return u'"' + quoted + u'"';
}

void row(QByteArray& out, const QStringList& fields)
{
    QStringList quoted;
    for (const QString& f : fields)
        quoted.append(field(f));
    out += quoted.join(u',').toUtf8();
    out += "\r\n";
}

QString local(const QDateTime& t)
{
    const QDateTime l = t.toLocalTime();
    return l.toOffsetFromUtc(l.offsetFromUtc()).toString(Qt::ISODate);
}
} // namespace

QByteArray CsvExport::habitHistory(ModelContext& context)
{
    QByteArray out;
    row(out, {QStringLiteral("habit"), QStringLiteral("habit_id"), QStringLiteral("date"),
              QStringLiteral("value"), QStringLiteral("target"), QStringLiteral("completed")});
    QList<Habit*> habits = context.fetch<Habit>();
    std::stable_sort(habits.begin(), habits.end(),
                     [](const Habit* a, const Habit* b) { return a->order() < b->order(); });
    for (const Habit* habit : std::as_const(habits)) {
        QList<HabitHistory*> days = context.fetch<HabitHistory>(
            FetchRequest::where(QStringLiteral("habitId"), habit->id()));
        std::stable_sort(
            days.begin(), days.end(),
            [](const HabitHistory* a, const HabitHistory* b) { return a->date() < b->date(); });
        for (const HabitHistory* day : std::as_const(days))
            row(out, {habit->name(), habit->id().toString(QUuid::WithoutBraces), day->date(),
                      QString::number(day->value()), QString::number(day->maxValue()),
                      day->completed() ? QStringLiteral("true") : QStringLiteral("false")});
    }
    return out;
}

QByteArray CsvExport::focusSessions(ModelContext& context)
{
    QByteArray out;
    row(out, {QStringLiteral("id"), QStringLiteral("phase"), QStringLiteral("started_at"),
              QStringLiteral("ended_at"), QStringLiteral("planned_seconds"),
              QStringLiteral("elapsed_seconds"), QStringLiteral("outcome")});
    for (const FocusSession* s :
         context.fetch<FocusSession>(FetchRequest::sortedBy(QStringLiteral("startedAt"))))
        row(out, {s->id().toString(QUuid::WithoutBraces), s->phase(), local(s->startedAt()),
                  local(s->endedAt()), QString::number(s->plannedSeconds()),
                  QString::number(s->elapsedSeconds()), s->outcome()});
    return out;
}
