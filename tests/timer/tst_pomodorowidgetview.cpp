#include "LimitedSpinBox.h"
#include "PomodoroService.h"
#include "PomodoroSettingsSheet.h"
#include "PomodoroWidgetView.h"
#include "TestServices.h"

#include <QCheckBox>
#include <QLabel>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>
#include <QToolButton>

class TestPomodoroWidgetView final : public QObject
{
    Q_OBJECT

    static QString label(const QWidget& view, const char* name)
    {
        return view.findChild<QLabel*>(QString::fromLatin1(name))->text();
    }

    std::unique_ptr<AppServices> m_services;

private slots:
    void initTestCase()
    {
        m_services = std::make_unique<AppServices>(testParts());
        m_services->timer().bootstrap();
    }

    void cleanupTestCase()
    {
        settle(*m_services);
        m_services.reset();
    }

    void interactiveAndViewOnlyForms()
    {
        QStringList times;
        for (qint64 ms : {1'500'000, 59'999, 0, 6'000'000})
            times << PomodoroWidgetView::timeText(ms);
        QCOMPARE(times, (QStringList{"25:00", "00:59", "00:00", "100:00"})); // minutes uncapped
        PomodoroWidgetView interactive(m_services->timer(), false);
        PomodoroWidgetView ambient(m_services->timer(), true);
        interactive.show();
        ambient.show();
        QVERIFY(QTest::qWaitForWindowExposed(&interactive));
        QCOMPARE(label(interactive, "timeLabel"), QStringLiteral("25:00"));
        QCOMPARE(label(interactive, "phaseLabel"), QStringLiteral("POMODORO"));
        QCOMPARE(label(interactive, "todayLabel"),
                 QStringLiteral("Today: 0 🍅 · 0 ☕ · 0 🛌"));
        QCOMPARE(label(ambient, "timeLabel"), QStringLiteral("25:00"));
        // Every control a screen reader needs has a name; the view-only form has none.
        const auto buttons = interactive.findChildren<QToolButton*>();
        QCOMPARE(buttons.size(), 4);
        for (QToolButton* b : buttons)
            QVERIFY2(!b->accessibleName().isEmpty(), qPrintable(b->objectName()));
        QVERIFY(ambient.findChildren<QToolButton*>().isEmpty());
        QVERIFY(interactive.findChild<QWidget*>("phasePips") &&
                !ambient.findChild<QWidget*>("phasePips"));

        // Space toggles start and pause in the interactive form only.
        PomodoroService& timer = m_services->timer();
        ambient.activateWindow();
        ambient.setFocus();
        QTest::keyClick(&ambient, Qt::Key_Space);
        QVERIFY(!timer.isActive());
        interactive.activateWindow();
        interactive.setFocus();
        QTRY_VERIFY(interactive.hasFocus());
        QTest::keyClick(&interactive, Qt::Key_Space);
        QVERIFY(timer.isActive());
        QCOMPARE(interactive.findChild<QToolButton*>("startPauseButton")->accessibleName(),
                 QStringLiteral("Pause"));
        QTest::keyClick(&interactive, Qt::Key_Space);
        QVERIFY(!timer.isActive());
        timer.reset();
    }

    void settingsSheetSavesOnceOrNotAtAll()
    {
        PomodoroService& timer = m_services->timer();
        // The five values as the engine holds them.
        const auto settings = [&timer] {
            return QList<qint64>{timer.pomodoroDuration(), timer.shortBreakDuration(),
                                 timer.longBreakDuration(), timer.pomodorosForLongBreak(),
                                 timer.autoStart()};
        };
        QSignalSpy changes(&timer, &PomodoroService::pomodoroDurationChanged);
        const QList<qint64> before = settings();
        PomodoroWidgetView view(timer, false);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        const auto open = [&view] {
            view.findChild<QToolButton*>("settingsButton")->click();
            return view.settingsSheet();
        };

        PomodoroSettingsSheet* sheet = open();
        QVERIFY(sheet);
        QCOMPARE(sheet->focusField()->maximum(), 90);
        sheet->shortBreakField()->setValue(7);
        // Cancel (Escape) saves nothing, and the edits are gone next time.
        QTest::keyClick(sheet, Qt::Key_Escape);
        QTRY_VERIFY(!view.settingsSheet());
        QCOMPARE(settings(), before);
        sheet = open();
        QVERIFY(sheet);
        QCOMPARE(sheet->shortBreakField()->value(), 5); // the engine's, not the edit
        sheet->focusField()->setValue(50);
        sheet->longBreakField()->setValue(20);
        sheet->intervalField()->setValue(3);
        sheet->autoStartSwitch()->setChecked(true);
        QTest::keyClick(sheet, Qt::Key_Return); // Save is the default button
        QCOMPARE(settings(), (QList<qint64>{50, 5, 20, 3, 1}));
        QCOMPARE(changes.count(), 1);
        QTRY_VERIFY(!view.settingsSheet());

        // A length stored beyond the fields' limits (set on the web) shows as it is and
        // is saved unchanged.
        timer.updateSettings(120, std::nullopt, std::nullopt, 12, false);
        sheet = open();
        QCOMPARE(sheet->focusField()->value(), 120);
        QCOMPARE(sheet->intervalField()->value(), 12);
        QTest::keyClick(sheet, Qt::Key_Return);
        QCOMPARE(settings(), (QList<qint64>{120, 5, 20, 12, 0}));
        timer.updateSettings(25, 5, 15, 4, false);
    }
};

QTEST_MAIN(TestPomodoroWidgetView)
#include "tst_pomodorowidgetview.moc"
