#include "HistoryReader.h"

#include "DataStore.h"
#include "StoreConnection.h"

#include <QHash>

#include <sqlite3.h>

#include <cmath>

namespace {
// One statement on the store's own connection, finalised however the read ends.
class Statement
{
public:
    Statement(DataStore& store, const char* sql)
    {
        m_db = store.connection().handle();
        if (m_db && sqlite3_prepare_v2(m_db, sql, -1, &m_statement, nullptr) != SQLITE_OK) {
            qWarning("HistoryReader: %s", sqlite3_errmsg(m_db));
            m_statement = nullptr;
        }
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void bind(int index, const QByteArray& text)
    {
        if (m_statement)
            sqlite3_bind_text(m_statement, index, text.constData(), int(text.size()),
                              SQLITE_TRANSIENT);
    }
    bool next() { return m_statement && sqlite3_step(m_statement) == SQLITE_ROW; }
    qint64 integer(int column) const { return sqlite3_column_int64(m_statement, column); }
    double real(int column) const { return sqlite3_column_double(m_statement, column); }
    bool isNull(int column) const
    {
        return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
    }
    QByteArrayView bytes(int column) const
    {
        const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
        return QByteArrayView(data, sqlite3_column_bytes(m_statement, column));
    }
    QString text(int column) const { return QString::fromUtf8(bytes(column)); }

private:
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_statement = nullptr;
};

// "yyyy-MM-dd" without the general date parser: this runs for every row.
QDate dayOf(QByteArrayView text)
{
    if (text.size() != 10 || text[4] != '-' || text[7] != '-')
        return {};
    int fields[3] = {0, 0, 0};
    const int starts[3] = {0, 5, 8}, lengths[3] = {4, 2, 2};
    for (int f = 0; f < 3; ++f) {
        for (int i = starts[f]; i < starts[f] + lengths[f]; ++i) {
            if (text[i] < '0' || text[i] > '9')
                return {};
            fields[f] = fields[f] * 10 + (text[i] - '0');
        }
    }
    return QDate(fields[0], fields[1], fields[2]);
}

void beforeReading(DataStore& store)
{
    if (store.mainContext().hasChanges())
        store.mainContext().save();
    store.mapForLargeReads();
}
} // namespace

QList<HistoryReader::HabitDays> HistoryReader::habits(DataStore& store, QDate today, int recentDays)
{
    beforeReading(store);
    QList<HabitDays> out;
    QHash<QByteArray, qsizetype> index;
    Statement habits(store, R"(SELECT "id", "icon", "name", "colorHex", "maxValue",
                               "firstTrackerDate" FROM habit ORDER BY "order", rowid)");
    while (habits.next()) {
        HabitDays habit;
        habit.id = QUuid::fromString(habits.bytes(0));
        habit.icon = habits.text(1);
        habit.name = habits.text(2);
        habit.colorHex = habits.text(3);
        habit.maxValue = habits.integer(4);
        if (!habits.isNull(5))
            habit.since = QDateTime::fromMSecsSinceEpoch(std::llround(habits.real(5) * 1000))
                              .toLocalTime()
                              .date();
        index.insert(habits.bytes(0).toByteArray(), out.size());
        out.append(habit);
    }
    // Older days only where they reached the target (their own index), then every
    // recent day; both in date order, so each habit's days arrive sorted.
    const QByteArray cut = today.addDays(-recentDays).toString(Qt::ISODate).toLatin1();
    Statement older(store, R"(SELECT "habitId", "date", "value", "maxValue" FROM habit_history
                              WHERE "date" < ?1 AND "value" >= "maxValue" AND "maxValue" > 0
                              ORDER BY "date")");
    Statement recent(store, R"(SELECT "habitId", "date", "value", "maxValue" FROM habit_history
                               WHERE "date" >= ?1 ORDER BY "date")");
    QByteArray key;
    for (Statement* days : {&older, &recent}) {
        days->bind(1, cut);
        while (days->next()) {
            key = days->bytes(0).toByteArray();
            const auto at = index.constFind(key);
            const QDate date = dayOf(days->bytes(1));
            if (at == index.cend() || !date.isValid())
                continue;
            HabitDays& habit = out[*at];
            habit.days.insert(habit.days.cend(), date, {days->integer(2), days->integer(3)});
            // Days recorded before the habit's first day (an import, a pull) still count.
            if (!habit.since.isValid() || date < habit.since)
                habit.since = date;
        }
    }
    return out;
}

HistoryReader::Focus HistoryReader::focus(DataStore& store)
{
    beforeReading(store);
    Focus out;
    Statement days(store, R"(SELECT "day",
                             SUM("phase" = 'focus' AND "outcome" = 'completed'),
                             SUM(CASE WHEN "phase" = 'focus' THEN "elapsedSeconds" ELSE 0 END)
                             FROM focus_session GROUP BY "day")");
    while (days.next()) {
        const QDate date = dayOf(days.bytes(0));
        if (date.isValid())
            out.days.insert(out.days.cend(), date, {int(days.integer(1)), days.integer(2)});
    }
    Statement average(store, R"(SELECT AVG("elapsedSeconds") FROM focus_session
                                WHERE "phase" = 'focus' AND "outcome" = 'completed')");
    if (average.next() && !average.isNull(0))
        out.averageSeconds = std::llround(average.real(0));
    return out;
}
