#include "Clock.h"
#include "DataStore.h"
#include "PomodoroService.h"
#include "PomodoroSettingsSheet.h"
#include "PomodoroWidgetView.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <QToolButton>

class TestPomodoroWidgetView final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QString error;
        DataStore::setShared(DataStore::open(QStringLiteral(":memory:"), &error));
        PomodoroService::shared().bootstrap();
    }

    void timeText_data()
    {
        QTest::addColumn<qint64>("ms");
        QTest::addColumn<QString>("text");
        QTest::newRow("full focus") << qint64(1'500'000) << "25:00";
        QTest::newRow("just under a minute") << qint64(59'999) << "00:59";
        QTest::newRow("zero") << qint64(0) << "00:00";
        QTest::newRow("100 minutes") << qint64(6'000'000) << "100:00";
    }

    void timeText()
    {
        QFETCH(qint64, ms);
        QTEST(PomodoroWidgetView::timeText(ms), "text");
    }

    void interactiveAndViewOnlyForms()
    {
        PomodoroWidgetView interactive(false);
        PomodoroWidgetView ambient(true);
        interactive.show();
        ambient.show();
        QVERIFY(QTest::qWaitForWindowExposed(&interactive));
        QCOMPARE(interactive.findChild<QLabel*>(QStringLiteral("timeLabel"))->text(),
                 QStringLiteral("25:00"));
        QCOMPARE(interactive.findChild<QLabel*>(QStringLiteral("phaseLabel"))->text(),
                 QStringLiteral("POMODORO"));
        QCOMPARE(interactive.findChild<QLabel*>(QStringLiteral("todayLabel"))->text(),
                 QStringLiteral("Today: 0 🍅 · 0 ☕ · 0 🛌"));
        // Every control a screen reader needs has a name.
        const auto buttons = interactive.findChildren<QToolButton*>();
        QCOMPARE(buttons.size(), 4);
        for (QToolButton* b : buttons)
            QVERIFY2(!b->accessibleName().isEmpty(), qPrintable(b->objectName()));
        QVERIFY(ambient.findChildren<QToolButton*>().isEmpty());
        QCOMPARE(ambient.findChild<QLabel*>(QStringLiteral("timeLabel"))->text(),
                 QStringLiteral("25:00"));

        // Space toggles start and pause in the interactive form only.
        PomodoroService& timer = PomodoroService::shared();
        ambient.activateWindow();
        ambient.setFocus();
        QTest::keyClick(&ambient, Qt::Key_Space);
        QVERIFY(!timer.isActive());
        interactive.activateWindow();
        interactive.setFocus();
        QTRY_VERIFY(interactive.hasFocus());
        QTest::keyClick(&interactive, Qt::Key_Space);
        QVERIFY(timer.isActive());
        QCOMPARE(interactive.findChild<QToolButton*>(QStringLiteral("startPauseButton"))
                     ->accessibleName(),
                 QStringLiteral("Pause"));
        QTest::keyClick(&interactive, Qt::Key_Space);
        QVERIFY(!timer.isActive());
        timer.reset();
    }

    void settingsSheetSavesOnceOrNotAtAll()
    {
        PomodoroService& timer = PomodoroService::shared();
        int calls = 0;
        QList<qint64> saved;
        bool savedAutoStart = false;
        PomodoroSettingsSheet::setSaveHandler([&](qint64 p, qint64 s, qint64 l, qint64 n, bool a) {
            ++calls;
            saved = {p, s, l, n};
            savedAutoStart = a;
        });

        PomodoroWidgetView view(false);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        view.findChild<QToolButton*>(QStringLiteral("settingsButton"))->click();
        PomodoroSettingsSheet* sheet = view.settingsSheet();
        QVERIFY(sheet);
        QCOMPARE(sheet->focusField()->value(), 25);
        QCOMPARE(sheet->intervalField()->value(), 4);
        // 120 is beyond the 90-minute limit: the field keeps a valid value.
        sheet->focusField()->selectAll();
        QTest::keyClicks(sheet->focusField(), QStringLiteral("120"));
        sheet->focusField()->interpretText();
        QVERIFY(sheet->focusField()->value() <= 90);
        sheet->focusField()->setValue(90);
        sheet->focusField()->stepUp();
        QCOMPARE(sheet->focusField()->value(), 90);
        sheet->shortBreakField()->setValue(7);
        sheet->autoStartSwitch()->setChecked(true);
        // Cancel (Escape) leaves the engine untouched.
        QTest::keyClick(sheet, Qt::Key_Escape);
        QTRY_VERIFY(!view.settingsSheet());
        QCOMPARE(calls, 0);
        QCOMPARE(timer.pomodoroDuration(), 25);

        view.findChild<QToolButton*>(QStringLiteral("settingsButton"))->click();
        sheet = view.settingsSheet();
        QVERIFY(sheet);
        QCOMPARE(sheet->shortBreakField()->value(), 5); // edits were discarded
        sheet->focusField()->setValue(50);
        sheet->longBreakField()->setValue(20);
        sheet->intervalField()->setValue(3);
        sheet->autoStartSwitch()->setChecked(true);
        sheet->findChild<QPushButton*>(QStringLiteral("saveButton"))->click();
        QCOMPARE(calls, 1);
        QCOMPARE(saved, (QList<qint64>{50, 5, 20, 3}));
        QVERIFY(savedAutoStart);
        PomodoroSettingsSheet::setSaveHandler({});
    }
};

QTEST_MAIN(TestPomodoroWidgetView)
#include "tst_pomodorowidgetview.moc"
