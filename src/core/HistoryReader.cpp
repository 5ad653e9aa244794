#include "HistoryReader.h"

#include "DataStore.h"
#include "FocusSession.h"

#include <QHash>
#include <QSqlError>
#include <QSqlQuery>

#include <cmath>

namespace {
QDateTime instant(const QVariant& seconds)
{
    return seconds.isNull() ? QDateTime()
                            : QDateTime::fromMSecsSinceEpoch(std::llround(seconds.toDouble() * 1000));
}

bool run(QSqlQuery& query, const char* sql)
{
    query.setForwardOnly(true);
    if (query.exec(QString::fromLatin1(sql)))
        return true;
    qWarning("HistoryReader: %s", qPrintable(query.lastError().text()));
    return false;
}
} // namespace

QList<HistoryReader::HabitDays> HistoryReader::habits(DataStore& store)
{
    if (store.mainContext().hasChanges())
        store.mainContext().save();
    QList<HabitDays> out;
    QHash<QString, qsizetype> index;
    QSqlQuery query(store.database());
    if (!run(query, R"(SELECT "id", "icon", "name", "colorHex", "maxValue", "firstTrackerDate"
                       FROM habit ORDER BY "order", rowid)"))
        return out;
    while (query.next()) {
        HabitDays habit;
        habit.id = QUuid::fromString(query.value(0).toString());
        habit.icon = query.value(1).toString();
        habit.name = query.value(2).toString();
        habit.colorHex = query.value(3).toString();
        habit.maxValue = query.value(4).toLongLong();
        habit.since = instant(query.value(5)).toLocalTime().date();
        index.insert(query.value(0).toString(), out.size());
        out.append(habit);
    }
    if (!run(query, R"(SELECT "habitId", "date", "value", "maxValue" FROM habit_history)"))
        return out;
    while (query.next()) {
        const auto at = index.constFind(query.value(0).toString());
        const QDate date = QDate::fromString(query.value(1).toString(), Qt::ISODate);
        if (at == index.cend() || !date.isValid())
            continue;
        HabitDays& habit = out[*at];
        habit.days.insert(date, {query.value(2).toLongLong(), query.value(3).toLongLong()});
        // Days recorded before the habit's first day (an import, a pull) still count.
        if (!habit.since.isValid() || date < habit.since)
            habit.since = date;
    }
    return out;
}

QList<HistoryStats::Session> HistoryReader::sessions(DataStore& store)
{
    if (store.mainContext().hasChanges())
        store.mainContext().save();
    QList<HistoryStats::Session> out;
    QSqlQuery query(store.database());
    if (!run(query, R"(SELECT "startedAt", "elapsedSeconds", "phase", "outcome"
                       FROM focus_session ORDER BY "startedAt")"))
        return out;
    while (query.next()) {
        out.append({instant(query.value(0)), query.value(1).toLongLong(),
                    query.value(2).toString() == FocusSession::Focus,
                    query.value(3).toString() == FocusSession::Completed});
    }
    return out;
}
