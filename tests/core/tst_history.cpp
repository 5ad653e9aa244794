#include "CsvExport.h"
#include "DataStore.h"
#include "ExportDocument.h"
#include "FocusSession.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "HistoryStats.h"
#include "PomodoroConfig.h"
#include "RecordTable.h"
#include "StoreConnection.h"
#include "StoreSchema.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "WidgetPlacement.h"

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaProperty>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <ctime>

using namespace Qt::StringLiterals;
using Days = HistoryStats::Days;

class TestHistory final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    int m_n = 0;
    const QDateTime m_now = QDateTime(QDate(2026, 3, 12), QTime(9, 30), Qt::UTC);

    QString freshPath() { return m_dir.filePath(QStringLiteral("store%1.sqlite").arg(m_n++)); }

    static std::unique_ptr<DataStore> open(const QString& path)
    {
        QString error;
        auto store = DataStore::open(path, &error);
        if (!store)
            qFatal("open %s: %s", qPrintable(path), qPrintable(error));
        return store;
    }

    // A store with every kind of record, nulls and awkward text among them.
    static void populate(ModelContext& ctx, const QDateTime& now)
    {
        auto* config = PomodoroConfig::createDefault(now);
        config->setPomodoroCount(3);
        config->setIsBreak(true);
        config->setIsShortBreak(true);
        ctx.insert(config);
        auto* list = new TaskList(QStringLiteral("Work, \"deep\""), 0);
        ctx.insert(list);
        auto* task = new TaskItem(QStringLiteral("Write the\nreport ✓"), 0, list);
        task->setPriority(2);
        ctx.insert(task);
        ctx.insert(new TaskItem(QStringLiteral("Call"), 1, list));
        list->setHighlightedTaskId(task->id());
        ctx.insert(new TaskList(QString(), 1)); // a list without a name
        auto* water = new Habit(QStringLiteral("💧"), QStringLiteral("Water"),
                                QStringLiteral("#0A84FF"), 8, 0, now.addDays(-40));
        water->setCurrentValue(5);
        ctx.insert(water);
        for (int d = 1; d <= 30; ++d)
            ctx.insert(
                new HabitHistory(now.date().addDays(-d).toString(Qt::ISODate), d % 9, 8, water));
        ctx.insert(new Habit(QString(), QStringLiteral("Read"), QString(), 1, 1, QDateTime()));
        auto* placement = new WidgetPlacement(QStringLiteral("habits"), true);
        placement->setDesktopFrameJSON(QStringLiteral("{\"x\":10,\"y\":20}"));
        ctx.insert(placement);
        ctx.insert(new FocusSession(FocusSession::Focus, now.addSecs(-1500), now, 1500, 1500,
                                    FocusSession::Completed));
        ctx.insert(new FocusSession(FocusSession::ShortBreak, now, now.addSecs(60), 300, 60,
                                    FocusSession::Skipped));
        QVERIFY(ctx.save());
    }

    // Every field of every record, by kind and key.
    static QMap<QString, QVariantMap> snapshot(ModelContext& ctx)
    {
        QMap<QString, QVariantMap> out;
        for (int k = 0; k < RecordKindCount; ++k) {
            const RecordTable& table = RecordTable::of(RecordKind(k));
            for (const Record* r : ctx.records(RecordKind(k))) {
                QVariantMap fields;
                for (const QMetaProperty& p : table.properties())
                    fields.insert(QString::fromLatin1(p.name()), p.read(r));
                out.insert(table.name() + u'/' + r->key(), fields);
            }
        }
        return out;
    }

    static QByteArray fileHash(const QString& path)
    {
        QByteArray all;
        for (const QString& suffix : {QString(), QStringLiteral("-wal")}) {
            QFile f(path + suffix);
            if (f.open(QIODevice::ReadOnly))
                all += f.readAll();
        }
        return QCryptographicHash::hash(all, QCryptographicHash::Sha256);
    }

private slots:
    void streaksAndRatesCountCalendarDays()
    {
        // Across a month end, and a leap day: 27 Feb to 2 Mar 2028 is five days.
        Days days;
        for (QDate d(2028, 2, 27); d <= QDate(2028, 3, 2); d = d.addDays(1))
            days.insert(d, {3, 3});
        QCOMPARE(HistoryStats::currentStreak(days, QDate(2028, 3, 2)), 5);
        QCOMPARE(HistoryStats::bestStreak(days), 5);
        // Today not reached yet does not break the streak; yesterday missed does.
        QCOMPARE(HistoryStats::currentStreak(days, QDate(2028, 3, 3)), 5);
        QCOMPARE(HistoryStats::currentStreak(days, QDate(2028, 3, 4)), 0);

        // A gap of missing days splits runs; a recorded day below target does too.
        days.insert(QDate(2028, 3, 10), {3, 3});
        days.insert(QDate(2028, 3, 11), {3, 3});
        days.insert(QDate(2028, 3, 12), {2, 3});
        days.insert(QDate(2028, 3, 13), {4, 3}); // above target counts
        QCOMPARE(HistoryStats::bestStreak(days), 5);
        QCOMPARE(HistoryStats::currentStreak(days, QDate(2028, 3, 13)), 1);
        // A target of zero (an odd record) never counts as reached.
        days.insert(QDate(2028, 3, 14), {0, 0});
        QCOMPARE(HistoryStats::currentStreak(days, QDate(2028, 3, 14)), 1);

        // Rates: tracking began 2028-03-10, so of "the last 7 days" only 10-13 count
        // (14th is today and not reached): 3 of 4.
        QCOMPARE(HistoryStats::completionRate(days, QDate(2028, 3, 14), 7, QDate(2028, 3, 10)),
                 0.75);
        // Without a start the whole window counts: 7 days ending the 13th, 2 reached
        // (11th and 13th), the 12th below target, the 7th-9th missing.
        QCOMPARE(HistoryStats::completionRate(days, QDate(2028, 3, 13), 7, QDate()), 3.0 / 7);
        QCOMPARE(HistoryStats::completionRate({}, QDate(2028, 3, 13), 30, QDate(2028, 3, 13)), 0.0);

        // The night clocks go forward: a streak over it is as long as the days it has.
        qputenv("TZ", "Europe/Berlin");
        tzset();
        Days spring;
        for (QDate d(2026, 3, 27); d <= QDate(2026, 3, 31); d = d.addDays(1))
            spring.insert(d, {1, 1});
        const QDate today = QDateTime(QDate(2026, 3, 31), QTime(0, 30)).toLocalTime().date();
        QCOMPARE(HistoryStats::currentStreak(spring, today), 5);
        QCOMPARE(HistoryStats::completionRate(spring, today, 7, QDate(2026, 3, 27)), 1.0);

        // A session belongs to the local day it started on: 23:30 UTC on 28 March is
        // already the 29th in Berlin.
        const FocusSession late(FocusSession::Focus,
                                QDateTime(QDate(2026, 3, 28), QTime(23, 30), Qt::UTC),
                                QDateTime(QDate(2026, 3, 28), QTime(23, 55), Qt::UTC), 1500, 1500,
                                FocusSession::Completed);
        QCOMPARE(late.day(), QStringLiteral("2026-03-29"));
        HistoryStats::FocusDays byDay;
        byDay.insert(QDate(2026, 3, 29), {2, 3600});
        byDay.insert(QDate(2026, 1, 31), {2, 3000});
        QCOMPARE(HistoryStats::sessionsPerDay(byDay, QDate(2026, 3, 30), 3), (QList<int>{0, 2, 0}));
        QCOMPARE(HistoryStats::sessionsPerMonth(byDay, QDate(2026, 4, 2), 4),
                 (QList<int>{2, 0, 2, 0}));
        // Weeks start on Monday: the 29th is a Sunday, so it belongs to the week before
        // the 30th's.
        QCOMPARE(HistoryStats::focusSecondsPerWeek(byDay, QDate(2026, 3, 30), 2),
                 (QList<qint64>{3600, 0}));
        // Of equal days the later is the best.
        QCOMPARE(HistoryStats::bestDay(byDay), QDate(2026, 3, 29));
        qunsetenv("TZ");
        tzset();
    }

    void olderStoreUpgradesInPlace()
    {
        const QString path = freshPath();
        {
            QSqlDatabase db =
                QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("v1"));
            db.setDatabaseName(path);
            QVERIFY(db.open());
            QSqlQuery q(db);
            for (const char* statement : StoreSchema::statements(1))
                QVERIFY2(q.exec(QString::fromLatin1(statement)), qPrintable(q.lastError().text()));
            QVERIFY(q.exec(QStringLiteral("PRAGMA user_version = 1")));
            QVERIFY(q.exec(QStringLiteral(
                R"(INSERT INTO habit VALUES ('6d1f7d5e-8d39-4a53-9c52-1f7a1c1f2a01', '💧', 'Water',
                   '#0A84FF', 8, 3, 1770000000.5, 0))")));
            QVERIFY(q.exec(QStringLiteral(
                R"(INSERT INTO habit_history VALUES ('0b0e1d77-0a8e-4a55-b0f1-2b4c7f1f9e02',
                   '2026-03-11', 8, 8, 1, '6d1f7d5e-8d39-4a53-9c52-1f7a1c1f2a01'))")));
            db.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("v1"));

        auto store = open(path);
        ModelContext& ctx = store->mainContext();
        const QList<Habit*> habits = ctx.fetch<Habit>();
        QCOMPARE(habits.size(), 1);
        QCOMPARE(habits[0]->name(), QStringLiteral("Water"));
        QCOMPARE(habits[0]->currentValue(), 3);
        QCOMPARE(habits[0]->firstTrackerDate().toMSecsSinceEpoch(), 1770000000500);
        QCOMPARE(habits[0]->history().size(), 1);
        // The new table takes records at once, and the version is the current one.
        ctx.insert(
            new FocusSession(FocusSession::Focus, m_now, m_now, 60, 60, FocusSession::Completed));
        QVERIFY(ctx.save());
        QList<QVariantList> version;
        QVERIFY(store->connection().exec(QStringLiteral("PRAGMA user_version"), {}, &version));
        QCOMPARE(version.value(0).value(0).toInt(), StoreSchema::Version);
        store.reset();
        // Opened again it is simply current, and still whole.
        QCOMPARE(open(path)->mainContext().count<FocusSession>(), 1);
    }

    void exportThenReplaceIntoAnEmptyStoreIsLossless()
    {
        auto source = open(freshPath());
        populate(source->mainContext(), m_now);
        QString error;
        const QByteArray json = ExportDocument::write(source->mainContext(), m_now, &error);
        QVERIFY2(!json.isEmpty(), qPrintable(error));

        const QString targetPath = freshPath();
        auto target = open(targetPath);
        const auto doc = ExportDocument::read(json, &error);
        QVERIFY2(doc, qPrintable(error));
        const ExportDocument::Plan plan =
            doc->plan(target->mainContext(), ExportDocument::Mode::Replace);
        QCOMPARE(plan.tally(RecordKind::HabitHistory).added, 30);
        QVERIFY(ExportDocument::apply(target->mainContext(), plan, &error));
        target.reset();
        target = open(targetPath); // compared as stored, not as held in memory
        QCOMPARE(snapshot(target->mainContext()), snapshot(source->mainContext()));

        // Replacing a store with different data leaves exactly the document's records.
        auto other = open(freshPath());
        other->mainContext().insert(
            new Habit(QString(), QStringLiteral("Stray"), QString(), 2, 0, m_now));
        other->mainContext().insert(
            new FocusSession(FocusSession::Focus, m_now, m_now, 1, 1, FocusSession::Reset));
        QVERIFY(other->mainContext().save());
        const auto replace = doc->plan(other->mainContext(), ExportDocument::Mode::Replace);
        QCOMPARE(replace.tally(RecordKind::Habit).removed, 1);
        QVERIFY(ExportDocument::apply(other->mainContext(), replace, &error));
        QCOMPARE(snapshot(other->mainContext()), snapshot(source->mainContext()));
        // Importing the same document again changes nothing.
        QVERIFY(doc->plan(other->mainContext(), ExportDocument::Mode::Replace).isEmpty());
    }

    void mergeKeepsBothSidesAndTheLargerDay()
    {
        auto mine = open(freshPath());
        ModelContext& ctx = mine->mainContext();
        auto* water = new Habit(QString(), QStringLiteral("Water"), QString(), 8, 0, m_now);
        water->setCurrentValue(6);
        ctx.insert(water);
        ctx.insert(new HabitHistory(QStringLiteral("2026-03-10"), 8, 8, water));
        ctx.insert(new HabitHistory(QStringLiteral("2026-03-11"), 2, 8, water));
        auto* mineOnly = new Habit(QString(), QStringLiteral("Stretch"), QString(), 1, 1, m_now);
        ctx.insert(mineOnly);
        auto* myTimer = PomodoroConfig::createDefault(m_now);
        myTimer->setPomodoroDuration(50);
        ctx.insert(myTimer);
        QVERIFY(ctx.save());

        // The other side: the same habit renamed, with other records of the same days.
        QJsonObject theirs =
            QJsonDocument::fromJson(ExportDocument::write(ctx, m_now, nullptr)).object();
        QJsonArray habits = theirs[u"habits"].toArray();
        QJsonObject h = habits[0].toObject();
        h[u"name"] = u"Water (renamed)"_s;
        h[u"currentValue"] = 4;
        habits = QJsonArray{h};
        theirs[u"habits"] = habits;
        const QString waterId = water->id().toString(QUuid::WithoutBraces);
        const auto day = [&](const char* date, int value) {
            return QJsonObject{{u"id"_s, QUuid::createUuid().toString(QUuid::WithoutBraces)},
                               {u"date"_s, QString::fromLatin1(date)},
                               {u"value"_s, value},
                               {u"maxValue"_s, 8},
                               {u"completed"_s, value >= 8},
                               {u"habitId"_s, waterId}};
        };
        theirs[u"habitHistory"] =
            QJsonArray{day("2026-03-10", 3), day("2026-03-11", 7), day("2026-03-09", 8)};
        QJsonObject timer = theirs[u"timer"].toArray()[0].toObject();
        timer[u"id"] = QUuid::createUuid().toString(QUuid::WithoutBraces);
        timer[u"pomodoroDuration"] = 20;
        theirs[u"timer"] = QJsonArray{timer};
        QString error;
        const auto doc = ExportDocument::read(QJsonDocument(theirs).toJson(), &error);
        QVERIFY2(doc, qPrintable(error));

        const auto plan = doc->plan(ctx, ExportDocument::Mode::Merge);
        QCOMPARE(plan.tally(RecordKind::Habit).changed, 1);
        QCOMPARE(plan.tally(RecordKind::Habit).removed, 0);
        QCOMPARE(plan.tally(RecordKind::HabitHistory).added, 1);   // the 9th
        QCOMPARE(plan.tally(RecordKind::HabitHistory).changed, 1); // the 11th: 7 beats 2
        QVERIFY(ExportDocument::apply(ctx, plan, &error));

        QCOMPARE(water->name(), QStringLiteral("Water (renamed)"));
        QCOMPARE(water->currentValue(), 6); // today's count: the larger stays
        QMap<QString, qint64> values;
        for (const HabitHistory* h : water->history())
            values.insert(h->date(), h->value());
        QCOMPARE(values, (QMap<QString, qint64>{
                             {u"2026-03-09"_s, 8}, {u"2026-03-10"_s, 8}, {u"2026-03-11"_s, 7}}));
        QCOMPARE(ctx.count<Habit>(), 2); // what only this side had stays
        QVERIFY(ctx.find<Habit>(mineOnly->key()));
        // A merge keeps this side's timer settings.
        QCOMPARE(ctx.fetch<PomodoroConfig>().size(), 1);
        QCOMPARE(ctx.fetch<PomodoroConfig>()[0]->pomodoroDuration(), 50);
    }

    void damagedOrHostileDocumentsChangeNothing()
    {
        const QString path = freshPath();
        QByteArray good;
        {
            auto store = open(path);
            populate(store->mainContext(), m_now);
            good = ExportDocument::write(store->mainContext(), m_now, nullptr);
        }
        const QJsonObject root = QJsonDocument::fromJson(good).object();
        const auto edited = [&root](const std::function<void(QJsonObject&)>& edit) {
            QJsonObject copy = root;
            edit(copy);
            return QJsonDocument(copy).toJson(QJsonDocument::Compact);
        };
        const auto inRecord = [&edited](const QString& section, int index, const QString& field,
                                        const QJsonValue& value) {
            return edited([=](QJsonObject& doc) {
                QJsonArray records = doc[section].toArray();
                QJsonObject record = records[index].toObject();
                if (value.isUndefined())
                    record.remove(field);
                else
                    record[field] = value;
                records[index] = record;
                doc[section] = records;
            });
        };
        const auto many = [](qsizetype n, const QByteArray& record) {
            QByteArray out = "{\"format\":\"tidewell-export\",\"version\":1,\"timer\":[],"
                             "\"taskLists\":[],\"tasks\":[],\"habits\":[],\"habitHistory\":[";
            out.reserve(out.size() + n * (record.size() + 1) + 64);
            for (qsizetype i = 0; i < n; ++i) {
                if (i > 0)
                    out += ',';
                out += record;
            }
            out += "],\"placements\":[],\"focusSessions\":[]}";
            return out;
        };
        const QString habitId = root[u"habits"].toArray()[0].toObject()[u"id"].toString();

        const QList<std::pair<QByteArray, QString>> cases{
            {good.left(good.size() / 2), u"not valid JSON"_s},
            {good.left(good.size() - 2), u"not valid JSON"_s},
            {QByteArray(), u"not valid JSON"_s},
            {"[]", u"$: expected an object"_s},
            {"{\"format\":\"tidewell-export\"}", u"$.version"_s},
            {edited([](QJsonObject& d) { d[u"version"] = 2; }), u"version 2"_s},
            {edited([](QJsonObject& d) { d[u"version"] = u"1"_s; }), u"$.version"_s},
            {edited([](QJsonObject& d) { d[u"format"] = u"notes"_s; }), u"$.format"_s},
            {edited([](QJsonObject& d) { d.remove(u"habits"_s); }),
             u"$.habits: expected an array"_s},
            {edited([](QJsonObject& d) { d[u"tasks"] = QJsonObject(); }), u"$.tasks"_s},
            {edited([](QJsonObject& d) { d[u"habits"] = QJsonArray{1}; }),
             u"$.habits[0]: expected an object"_s},
            {inRecord(u"habits"_s, 0, u"maxValue"_s, u"8"_s),
             u"$.habits[0].maxValue: expected an integer"_s},
            {inRecord(u"habits"_s, 0, u"maxValue"_s, 2.5), u"$.habits[0].maxValue"_s},
            {inRecord(u"habits"_s, 0, u"maxValue"_s, 0), u"out of range"_s},
            {inRecord(u"habits"_s, 0, u"maxValue"_s, 1e300), u"$.habits[0].maxValue"_s},
            {inRecord(u"habits"_s, 0, u"name"_s, QString(100'000, u'x')), u"longer than"_s},
            {inRecord(u"habits"_s, 0, u"name"_s, QJsonValue::Undefined), u"missing"_s},
            {inRecord(u"habits"_s, 0, u"id"_s, u"not-a-uuid"_s), u"$.habits[0].id"_s},
            {inRecord(u"habits"_s, 0, u"id"_s, QJsonValue()), u"$.habits[0].id"_s},
            {inRecord(u"habits"_s, 1, u"id"_s, habitId), u"appears twice"_s},
            {inRecord(u"habits"_s, 0, u"firstTrackerDate"_s, u"yesterday"_s), u"ISO 8601"_s},
            {inRecord(u"habitHistory"_s, 0, u"date"_s, u"2026-02-30"_s), u"yyyy-MM-dd"_s},
            {inRecord(u"habitHistory"_s, 1, u"date"_s,
                      root[u"habitHistory"].toArray()[0].toObject()[u"date"]),
             u"a second record of the same habit"_s},
            {inRecord(u"habitHistory"_s, 0, u"habitId"_s,
                      QUuid::createUuid().toString(QUuid::WithoutBraces)),
             u"$.habitHistory[0].habitId: names no habit"_s},
            {inRecord(u"tasks"_s, 0, u"checked"_s, 1), u"true or false"_s},
            {inRecord(u"tasks"_s, 0, u"priority"_s, QJsonArray()), u"an integer or null"_s},
            {inRecord(u"focusSessions"_s, 0, u"outcome"_s, u"won"_s), u"outcome"_s},
            {inRecord(u"focusSessions"_s, 0, u"endedAt"_s, u"2020-01-01T00:00:00.000Z"_s),
             u"an end after it"_s},
            {edited([](QJsonObject& d) {
                 d[u"timer"] = QJsonArray{d[u"timer"].toArray()[0], d[u"timer"].toArray()[0]};
             }),
             u"more than the 1"_s},
            {many(1'000'000, "{}"), u"$.habitHistory: 1000000 records"_s},
        };
        QCOMPARE(cases.size(), 30);

        const QByteArray before = fileHash(path);
        for (const auto& [bytes, expected] : cases) {
            auto store = open(path);
            QString error;
            const auto doc = ExportDocument::read(bytes, &error);
            QVERIFY2(!doc, qPrintable(expected));
            QVERIFY2(error.contains(expected), qPrintable(error + u" lacks " + expected));
            store.reset();
            QCOMPARE(fileHash(path), before);
        }
    }

    void csvQuotesWhatSpreadsheetsWouldSplit()
    {
        auto store = open(freshPath());
        populate(store->mainContext(), m_now);
        auto* odd =
            new Habit(QString(), QStringLiteral("Say \"hi\", twice"), QString(), 2, 5, m_now);
        store->mainContext().insert(odd);
        store->mainContext().insert(new HabitHistory(QStringLiteral("2026-03-01"), 2, 2, odd));
        const QByteArray csv = CsvExport::habitHistory(store->mainContext());
        const QList<QByteArray> rows = csv.split('\n');
        QCOMPARE(rows.first(), QByteArray("habit,habit_id,date,value,target,completed\r"));
        QCOMPARE(csv.count("\r\n"), 1 + 30 + 1);
        const QByteArray quoted =
            "\"Say \"\"hi\"\", twice\"," + odd->key().toUtf8() + ",2026-03-01,2,2,true\r\n";
        QVERIFY(csv.contains(quoted));
        // Water's days come in date order, before the odd habit (by widget order).
        QVERIFY(rows[1].startsWith("Water,") && rows[1].contains(",2026-02-10,"));

        const QByteArray sessions = CsvExport::focusSessions(store->mainContext());
        QVERIFY(sessions.startsWith(
            "id,phase,started_at,ended_at,planned_seconds,elapsed_seconds,outcome\r\n"));
        QVERIFY(sessions.contains(",focus,"));
        QVERIFY(sessions.contains(",1500,1500,completed\r\n"));
    }
};

QTEST_GUILESS_MAIN(TestHistory)
#include "tst_history.moc"
