#include "AppServices.h"
#include "Countdown.h"
#include "PomodoroService.h"
#include "PomodoroWidgetView.h"
#include "StatusItemHost.h"
#include "StatusLine.h"
#include "TestServices.h"
#include "TimerBusAdaptor.h"

#include <QLabel>
#include <QTest>

// The tray's title, the popup and `tidewell ctl status` (the status line over the
// D-Bus properties) show the same time at every instant of a phase.
class TestCountdown final : public QObject
{
    Q_OBJECT

private slots:
    void trayPopupAndStatusAgreeThroughAPhase()
    {
        QDateTime now(QDate(2026, 5, 4), QTime(10, 0));
        AppServices::Parts parts = testParts();
        parts.clock = [&now] { return now; };
        AppServices services(std::move(parts));
        PomodoroService& timer = services.timer();
        timer.bootstrap();
        timer.updateSettings(2, 1, {}, {}, false);

        PomodoroWidgetView popup(timer, false);
        const QLabel* shown = popup.findChild<QLabel*>(QStringLiteral("timeLabel"));
        StatusItemHost tray(
            QStringLiteral("pomodoro"), [] { return new QWidget; }, timer);
        QObject busObject;
        const TimerBusAdaptor bus(&busObject, timer);
        const auto status = [&bus] {
            return StatusLine({{QStringLiteral("Phase"), bus.phase()},
                               {QStringLiteral("RemainingMs"), bus.remainingMs()},
                               {QStringLiteral("IsActive"), bus.isActive()}});
        };

        timer.start();
        const QDateTime start = now;
        QStringList seen;
        // Each second of the phase at its start, just after, midway and just before
        // the next, and on past the phase's end.
        for (qint64 second = 0; second <= 121; ++second) {
            for (qint64 offset : {0, 1, 500, 999}) {
                now = start.addMSecs(second * 1000 + offset);
                timer.didBecomeActive();
                const QString line = status().remaining();
                QCOMPARE(shown->text(), line);
                QCOMPARE(tray.title(), timer.isActive() ? status().phaseIcon() + u' ' + line
                                                        : status().phaseIcon());
                if (seen.isEmpty() || seen.last() != line)
                    seen << line;
            }
        }
        // The phase starts at its full length and reads 00:00 in its last second;
        // then the break waits at its own length.
        QCOMPARE(seen.mid(0, 3), (QStringList{"02:00", "01:59", "01:58"}));
        QCOMPARE(seen.mid(seen.size() - 3), (QStringList{"00:01", "00:00", "01:00"}));
        QCOMPARE(seen.size(), 122);
        QCOMPARE(status().phaseLabel(), QStringLiteral("Short Break"));
        QCOMPARE(tray.title(), QStringLiteral("☕"));
        timer.reset();
        settle(services);
    }

    void namesAndSymbols()
    {
        for (auto phase :
             {Countdown::Phase::Focus, Countdown::Phase::ShortBreak, Countdown::Phase::LongBreak})
            QCOMPARE(Countdown::named(Countdown::name(phase)), phase);
        QCOMPARE(Countdown::named(QStringLiteral("nap")), Countdown::Phase::Focus);
        QCOMPARE(Countdown::text(-5), QStringLiteral("00:00"));
        QCOMPARE(Countdown::text(6'000'000), QStringLiteral("100:00"));
        QCOMPARE(Countdown::text(59'999), QStringLiteral("00:59"));
    }
};

QTEST_MAIN(TestCountdown)
#include "tst_countdown.moc"
