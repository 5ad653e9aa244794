#include "Clock.h"
#include "DesktopFrame.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "PomodoroConfig.h"
#include "WidgetPlacement.h"

#include <QSignalSpy>
#include <QTest>

class TestRecords final : public QObject
{
    Q_OBJECT

private slots:
    void writesNotifyOnlyOnRealChange()
    {
        Habit habit(QStringLiteral("💧"), QStringLiteral("Water"), QStringLiteral("#3B82F6"), 8, 0);
        QSignalSpy name(&habit, &Habit::nameChanged);
        QSignalSpy value(&habit, &Habit::currentValueChanged);
        habit.setName(QStringLiteral("Water"));
        habit.setCurrentValue(0);
        QCOMPARE(name.count(), 0);
        QCOMPARE(value.count(), 0);
        habit.setName(QStringLiteral("Tea"));
        habit.setCurrentValue(3);
        habit.setCurrentValue(3);
        QCOMPARE(name.count(), 1);
        QCOMPARE(value.count(), 1);
    }

    void creationValues()
    {
        const QDateTime fixed = QDateTime::fromMSecsSinceEpoch(1'700'000'000'123);
        Clock::setSource([fixed] { return fixed; });
        Habit habit(QStringLiteral("💧"), QStringLiteral("Water"), QStringLiteral("#3B82F6"), 8, 6);
        QVERIFY(!habit.id().isNull());
        QCOMPARE(habit.currentValue(), 0);
        QCOMPARE(habit.firstTrackerDate(), fixed);
        QCOMPARE(habit.order(), 6);

        HabitHistory done(QStringLiteral("2024-03-05"), 8, 8, &habit);
        HabitHistory short_(QStringLiteral("2024-03-05"), 7, 8, &habit);
        QVERIFY(done.completed());
        QVERIFY(!short_.completed());
        QCOMPARE(done.habitId(), habit.id());

        std::unique_ptr<PomodoroConfig> config(PomodoroConfig::createDefault());
        QCOMPARE(config->pomodoroDuration(), 25);
        QCOMPARE(config->shortBreakDuration(), 5);
        QCOMPARE(config->longBreakDuration(), 15);
        QCOMPARE(config->pomodorosForLongBreak(), 4);
        QVERIFY(!config->autoStart() && !config->isBreak() && !config->isShortBreak() &&
                !config->isLongBreak());
        QCOMPARE(config->pomodoroCount() + config->pomodoroTotalCount() +
                     config->shortBreakCount() + config->longBreakCount(),
                 0);
        QCOMPARE(config->firstPomodoroCountDate(), fixed);

        WidgetPlacement placement(QStringLiteral("habits"));
        QCOMPARE(placement.mode(), QStringLiteral("off"));
        QVERIFY(!placement.inStatusBar() && !placement.inFloating() && !placement.alwaysOnTop());
        QVERIFY(placement.desktopFrameJSON().isNull());
        QVERIFY(WidgetPlacement(QStringLiteral("tasks"), true).inFloating());
        Clock::setSource({});
    }

    void legacyMigration_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<bool>("statusBar");
        QTest::addColumn<bool>("floating");
        QTest::addColumn<bool>("expectStatusBar");
        QTest::addColumn<bool>("expectFloating");
        QTest::newRow("statusbar") << "statusbar" << false << false << true << false;
        QTest::newRow("desktop") << "desktop" << false << false << false << true;
        QTest::newRow("off") << "off" << false << false << false << false;
        QTest::newRow("unknown") << "floating" << false << false << false << false;
        QTest::newRow("flag blocks") << "desktop" << true << false << true << false;
        QTest::newRow("other flag blocks") << "statusbar" << false << true << false << true;
    }

    void legacyMigration()
    {
        QFETCH(QString, mode);
        QFETCH(bool, statusBar);
        QFETCH(bool, floating);
        WidgetPlacement p(QStringLiteral("pomodoro"));
        p.setMode(mode);
        p.setInStatusBar(statusBar);
        p.setInFloating(floating);
        p.migrateFromLegacyModeIfNeeded();
        QTEST(p.inStatusBar(), "expectStatusBar");
        QTEST(p.inFloating(), "expectFloating");
        QCOMPARE(p.mode(), mode);
        // A second look-up after the user cleared both flags migrates again.
        if (p.inStatusBar() || p.inFloating()) {
            p.setInStatusBar(false);
            p.setInFloating(false);
            p.migrateFromLegacyModeIfNeeded();
            QVERIFY(p.inStatusBar() || p.inFloating());
        }
    }

    void frameCodec_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("valid");
        QTest::newRow("all four") << R"({"h":200,"w":240.5,"y":-10,"x":12})" << true;
        QTest::newRow("three keys") << R"({"x":1,"y":2,"w":3})" << false;
        QTest::newRow("not json") << "x=1,y=2" << false;
        QTest::newRow("string value") << R"({"x":"1","y":2,"w":3,"h":4})" << false;
        QTest::newRow("extra non-number") << R"({"x":1,"y":2,"w":3,"h":4,"z":null})" << false;
        QTest::newRow("array") << "[1,2,3,4]" << false;
        QTest::newRow("empty") << "" << false;
    }

    void frameCodec()
    {
        QFETCH(QString, text);
        QFETCH(bool, valid);
        QCOMPARE(DesktopFrame::decode(text).has_value(), valid);
    }

    void frameRoundTrip()
    {
        const QRectF frame(12.25, -300, 240, 200.5);
        const QString text = DesktopFrame::encode(frame);
        QVERIFY(!text.contains(u'\n'));
        QCOMPARE(DesktopFrame::decode(text).value(), frame);
    }
};

QTEST_GUILESS_MAIN(TestRecords)
#include "tst_records.moc"
