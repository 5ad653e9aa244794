#include "AudioService.h"
#include "DesktopBus.h"
#include "Habit.h"
#include "HabitsBusAdaptor.h"
#include "HabitsService.h"
#include "ManualClock.h"
#include "PomodoroService.h"
#include "StatusLine.h"
#include "TasksBusAdaptor.h"
#include "TasksService.h"
#include "TestServices.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {
// Collects the PropertiesChanged signals another program would see.
class Listener final : public QObject
{
    Q_OBJECT

public:
    QList<QVariantMap> changes;

public slots:
    void propertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList&)
    {
        if (interface == DesktopBus::TimerInterface)
            changes.append(changed);
    }
};
} // namespace

// The D-Bus interface as another program on the session bus reaches it: through
// a connection of its own, so every call and signal really crosses the bus.
class TestDesktopBus final : public QObject
{
    Q_OBJECT

    ManualClock m_time{QDateTime(QDate(2026, 3, 2), QTime(9, 0))};
    std::unique_ptr<AppServices> m_services;
    PomodoroService* m_timer = nullptr;
    HabitsService* m_habits = nullptr;
    TasksService* m_tasks = nullptr;
    std::unique_ptr<DesktopBus> m_bus;
    QDBusConnection m_client{QString()};
    Listener m_listener;

    ModelContext& context() { return m_services->store().mainContext(); }

    // A call from the other program, answered while this thread's loop runs.
    QDBusMessage call(const QString& interface, const QString& method,
                      const QVariantList& args = {})
    {
        QDBusMessage message = QDBusMessage::createMethodCall(
            DesktopBus::Service, DesktopBus::ObjectPath, interface, method);
        message.setArguments(args);
        QDBusPendingCall pending = m_client.asyncCall(message, 5000);
        QDeadlineTimer deadline(6000);
        while (!pending.isFinished() && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        return pending.reply();
    }
    QVariant property(const QString& name)
    {
        const QDBusMessage reply = call(u"org.freedesktop.DBus.Properties"_s, u"Get"_s,
                                        {DesktopBus::TimerInterface, name});
        return qdbus_cast<QDBusVariant>(reply.arguments().value(0)).variant();
    }
    static QString errorOf(const QDBusMessage& reply)
    {
        return reply.errorName() + u": " + reply.errorMessage();
    }

private slots:
    void initTestCase()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run the tests under dbus-run-session)");
        QStandardPaths::setTestModeEnabled(true);
        AppServices::Parts parts = testParts();
        parts.clock = m_time.source();
        m_services = std::make_unique<AppServices>(std::move(parts));
        m_services->audio().setMuted(true);
        m_timer = &m_services->timer();
        m_timer->bootstrap();
        m_habits = &m_services->habits();
        m_tasks = &m_services->tasks();
        m_bus = std::make_unique<DesktopBus>(*m_timer, *m_habits, *m_tasks, context(),
                                             m_services->transfer());
        bool registered = false;
        connect(m_bus.get(), &DesktopBus::registered, this,
                [&registered](bool ok, const QString& why) { registered = ok || !why.isEmpty(); });
        m_bus->publish();
        QTRY_VERIFY(registered);
        m_client = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"client"_s);
        QVERIFY(m_client.connect(DesktopBus::Service, DesktopBus::ObjectPath,
                                 u"org.freedesktop.DBus.Properties"_s, u"PropertiesChanged"_s,
                                 &m_listener,
                                 SLOT(propertiesChanged(QString, QVariantMap, QStringList))));
        HabitsBusAdaptor::registerTypes();
        TasksBusAdaptor::registerTypes();
    }

    void cleanupTestCase()
    {
        QDBusConnection::disconnectFromBus(u"client"_s);
        m_bus.reset();
        m_services.reset();
    }

    void timerIsDrivenAndAnnounced()
    {
        const QString timer = DesktopBus::TimerInterface;
        QCOMPARE(property(u"Phase"_s).toString(), u"focus"_s);
        QCOMPARE(property(u"IsActive"_s).toBool(), false);
        QCOMPARE(property(u"EndsAt"_s).toString(), QString());

        QVERIFY(call(timer, u"Toggle"_s).type() == QDBusMessage::ReplyMessage);
        QVERIFY(m_timer->isActive());
        QCOMPARE(property(u"EndsAt"_s).toString(), m_time.now.addSecs(25 * 60)
                                                       .toOffsetFromUtc(m_time.now.offsetFromUtc())
                                                       .toString(Qt::ISODateWithMs));
        QTRY_VERIFY(
            std::any_of(m_listener.changes.cbegin(), m_listener.changes.cend(),
                        [](const QVariantMap& c) { return c.value(u"IsActive"_s).toBool(); }));

        // The countdown is announced when its shown seconds change, not on every tick.
        const auto remainingAnnounced = [this] {
            return std::count_if(m_listener.changes.cbegin(), m_listener.changes.cend(),
                                 [](const QVariantMap& c) { return c.contains(u"RemainingMs"_s); });
        };
        QTest::qWait(300); // the announcements of the start land first
        const auto before = remainingAnnounced();
        m_time.now = m_time.now.addMSecs(300); // 24:59.7 shows 24:59
        QTRY_COMPARE(remainingAnnounced(), before + 1);
        m_time.now = m_time.now.addMSecs(500); // 24:59.2 still shows 24:59
        QTest::qWait(500);                     // ticks come and go without an announcement
        QCOMPARE(remainingAnnounced(), before + 1);

        QVERIFY(call(timer, u"Pause"_s).type() == QDBusMessage::ReplyMessage);
        QVERIFY(!m_timer->isActive());
        QVERIFY(call(timer, u"Start"_s).type() == QDBusMessage::ReplyMessage);
        QVERIFY(call(timer, u"Skip"_s).type() == QDBusMessage::ReplyMessage);
        QCOMPARE(property(u"Phase"_s).toString(), u"short-break"_s);
        QCOMPARE(property(u"DurationMs"_s).toLongLong(), 5 * 60'000);
        QTRY_VERIFY(std::any_of(
            m_listener.changes.cbegin(), m_listener.changes.cend(),
            [](const QVariantMap& c) { return c.value(u"Phase"_s).toString() == u"short-break"; }));
        m_time.now = m_time.now.addSecs(10);
        QVERIFY(call(timer, u"Reset"_s).type() == QDBusMessage::ReplyMessage);
        QCOMPARE(property(u"Phase"_s).toString(), u"short-break"_s); // the phase starts over
        QCOMPARE(property(u"RemainingMs"_s).toLongLong(), 5 * 60'000);
        QCOMPARE(property(u"IsActive"_s).toBool(), false);

        // Wrong arguments and unknown methods are errors, and the app carries on.
        const QDBusMessage wrong = call(timer, u"Start"_s, {42});
        QCOMPARE(wrong.type(), QDBusMessage::ErrorMessage);
        QCOMPARE(call(timer, u"Explode"_s).type(), QDBusMessage::ErrorMessage);
        QCOMPARE(property(u"Phase"_s).toString(), u"short-break"_s);
    }

    void habitsByName()
    {
        const QString habits = DesktopBus::HabitsInterface;
        m_habits->createHabit(u"💧"_s, u"Water"_s, u"#38BDF8"_s, 2, context());
        m_habits->createHabit(u"📖"_s, u"Read"_s, u"#000000"_s, 1, context());
        QCOMPARE(call(habits, u"Count"_s, {u"Water"_s}).arguments().value(0).toInt(), 1);
        QCOMPARE(call(habits, u"Count"_s, {u"Water"_s}).arguments().value(0).toInt(), 2);
        // At the target the count stays; only Reset starts over.
        QCOMPARE(call(habits, u"Count"_s, {u"Water"_s}).arguments().value(0).toInt(), 2);
        const QList<HabitEntry> listed =
            qdbus_cast<QList<HabitEntry>>(call(habits, u"List"_s).arguments().value(0));
        QCOMPARE(listed.size(), 2);
        QCOMPARE(listed[0].name, u"Water"_s);
        QCOMPARE(listed[0].value, 2);
        QCOMPARE(listed[0].target, 2);
        QCOMPARE(listed[1].name, u"Read"_s);
        QVERIFY(call(habits, u"Reset"_s, {u"Water"_s}).type() == QDBusMessage::ReplyMessage);
        QCOMPARE(HabitsService::findByName(u"Water"_s, context())->currentValue(), 0);

        // A name no habit has is refused, and nothing is created.
        const QDBusMessage missing = call(habits, u"Count"_s, {u"water"_s});
        QCOMPARE(errorOf(missing),
                 u"com.brenlow.tidewell.Error.NoSuchHabit: No habit is named \u201cwater\u201d"_s);
        QCOMPARE(context().count<Habit>(), 2);
        QCOMPARE(call(habits, u"Count"_s, {7}).type(), QDBusMessage::ErrorMessage);
    }

    void tasksByListAndIndex()
    {
        const QString tasks = DesktopBus::TasksInterface;
        const QStringList lists = call(tasks, u"Lists"_s).arguments().value(0).toStringList();
        QCOMPARE(lists, QStringList{u"Example Task List"_s}); // made on first use
        QCOMPARE(call(tasks, u"Add"_s, {QString(), u"Buy milk"_s}).arguments().value(0).toInt(), 0);
        QCOMPARE(call(tasks, u"Add"_s, {lists[0], u"Call Ann"_s}).arguments().value(0).toInt(), 1);
        QVERIFY(call(tasks, u"Check"_s, {QString(), 1}).type() == QDBusMessage::ReplyMessage);
        QVERIFY(call(tasks, u"Check"_s, {QString(), 1}).type() == QDBusMessage::ReplyMessage);
        const QList<TaskEntry> listed =
            qdbus_cast<QList<TaskEntry>>(call(tasks, u"Tasks"_s, {QString()}).arguments().value(0));
        QCOMPARE(listed.size(), 2);
        QCOMPARE(listed[0].text, u"Buy milk"_s);
        QVERIFY(!listed[0].checked);
        QCOMPARE(listed[1].text, u"Call Ann"_s);
        QVERIFY(listed[1].checked); // checking twice leaves it checked

        QCOMPARE(
            errorOf(call(tasks, u"Add"_s, {u"Shopping"_s, u"x"_s})),
            u"com.brenlow.tidewell.Error.NoSuchList: No task list is named \u201cShopping\u201d"_s);
        QCOMPARE(errorOf(call(tasks, u"Add"_s, {QString(), u" \t"_s})),
                 u"com.brenlow.tidewell.Error.EmptyTask: A task needs some text"_s);
        QCOMPARE(
            errorOf(call(tasks, u"Check"_s, {QString(), 2})),
            u"com.brenlow.tidewell.Error.NoSuchTask: \u201cExample Task List\u201d has no task 2 "
            "(it has 2)"_s);
        QCOMPARE(call(tasks, u"Check"_s, {QString(), -1}).type(), QDBusMessage::ErrorMessage);
        QCOMPARE(call(tasks, u"Tasks"_s, {QString()}).arguments().value(0).isValid(), true);
    }

    void exportAndImportThroughTheApp()
    {
        const QString data = DesktopBus::DataInterface;
        QTemporaryDir dir;
        const QString file = dir.filePath(u"backup.json"_s);
        m_habits->createHabit(u"🧘"_s, u"Stretch"_s, u"#30D158"_s, 1, context());
        const qsizetype habits = context().count<Habit>();

        // Paths are the caller's: relative ones would land in the app's folder.
        QCOMPARE(call(data, u"Export"_s, {u"backup.json"_s, QString()}).errorName(),
                 u"com.brenlow.tidewell.Error.InvalidArgs"_s);
        QVERIFY(call(data, u"Export"_s, {file, dir.filePath(u"csv"_s)}).type() ==
                QDBusMessage::ReplyMessage);
        QVERIFY(QFile::exists(dir.filePath(u"csv/habit_history.csv"_s)));
        QVERIFY(QFile::exists(dir.filePath(u"csv/focus_sessions.csv"_s)));

        // A damaged file is refused with its name and fault; nothing changes.
        QFile broken(dir.filePath(u"broken.json"_s));
        QVERIFY(broken.open(QIODevice::WriteOnly));
        QFile whole(file);
        QVERIFY(whole.open(QIODevice::ReadOnly));
        const QByteArray json = whole.readAll();
        whole.close();
        broken.write(json.left(json.size() / 2));
        broken.close();
        const QDBusMessage refused = call(data, u"Import"_s, {broken.fileName(), u"merge"_s});
        QCOMPARE(refused.errorName(), u"com.brenlow.tidewell.Error.Failed"_s);
        QVERIFY2(
            refused.errorMessage().startsWith(broken.fileName() + u": the file is not valid JSON"),
            qPrintable(refused.errorMessage()));
        QCOMPARE(call(data, u"Import"_s, {file, u"sideways"_s}).errorName(),
                 u"com.brenlow.tidewell.Error.InvalidArgs"_s);
        QCOMPARE(context().count<Habit>(), habits);

        // A merge brings back what was deleted since; a replace also brings the timer's
        // settings, and the running timer takes them up at once.
        m_habits->deleteHabit(HabitsService::findByName(u"Stretch"_s, context()), context());
        const QDBusMessage merged = call(data, u"Import"_s, {file, u"merge"_s});
        QCOMPARE(merged.arguments().value(0).toStringList(),
                 QStringList{u"Habits: 1 added, 0 changed, 0 removed"_s});
        QVERIFY(HabitsService::findByName(u"Stretch"_s, context()));
        QJsonObject doc = QJsonDocument::fromJson(json).object();
        QJsonArray timer = doc[u"timer"].toArray();
        QJsonObject settings = timer[0].toObject();
        settings[u"pomodoroDuration"] = 50;
        for (const QString& flag : {u"isBreak"_s, u"isShortBreak"_s, u"isLongBreak"_s})
            settings[flag] = false;
        timer[0] = settings;
        doc[u"timer"] = timer;
        QVERIFY(whole.open(QIODevice::WriteOnly | QIODevice::Truncate));
        whole.write(QJsonDocument(doc).toJson());
        whole.close();
        QVERIFY(call(data, u"Import"_s, {file, u"replace"_s}).type() == QDBusMessage::ReplyMessage);
        QCOMPARE(m_timer->pomodoroDuration(), 50);
        QCOMPARE(property(u"DurationMs"_s).toLongLong(), 50 * 60'000);

        QSignalSpy asked(m_bus.get(), &DesktopBus::historyRequested);
        QVERIFY(call(data, u"ShowHistory"_s).type() == QDBusMessage::ReplyMessage);
        QCOMPARE(asked.count(), 1);
    }

    void statusLines()
    {
        StatusLine status({{u"Phase"_s, u"focus"_s},
                           {u"IsActive"_s, true},
                           {u"RemainingMs"_s, 1'499'999},
                           {u"DurationMs"_s, 1'500'000},
                           {u"FocusCount"_s, 3}});
        QCOMPARE(status.formatted(StatusLine::DefaultTemplate), u"Pomodoro 24:59 running"_s);
        // Unknown braces stay; a value is never read as a placeholder again.
        QCOMPARE(status.formatted(u"{phase_icon} {remaining} {nope} {focus_count}"_s),
                 u"🍅 24:59 {nope} 3"_s);
        status.update({{u"RemainingMs"_s, 375'000},
                       {u"Phase"_s, u"short-break"_s},
                       {u"DurationMs"_s, 500'000},
                       {u"IsActive"_s, false}});
        const QJsonObject bar = QJsonDocument::fromJson(status.waybar().toUtf8()).object();
        QCOMPARE(bar.value(u"text"_s).toString(), u"☕ 06:15"_s);
        QCOMPARE(bar.value(u"class"_s).toString(), u"short-break"_s);
        QCOMPARE(bar.value(u"percentage"_s).toInt(), 25);
        QCOMPARE(bar.value(u"tooltip"_s).toString(),
                 u"Short Break 06:15, stopped · 3 focus sessions today"_s);
        QVERIFY(!status.waybar().contains(u'\n'));
        const QJsonObject json = QJsonDocument::fromJson(status.json().toUtf8()).object();
        QCOMPARE(json.value(u"phase"_s).toString(), u"short-break"_s);
        QCOMPARE(json.value(u"remaining_ms"_s).toInteger(), 375'000);
        QCOMPARE(StatusLine({{u"RemainingMs"_s, -5}}).remaining(), u"00:00"_s);
    }
};

QTEST_GUILESS_MAIN(TestDesktopBus)
#include "tst_desktopbus.moc"
