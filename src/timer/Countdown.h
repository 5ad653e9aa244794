#pragma once

#include "PomodoroService.h"

#include <QString>

// How the timer reads wherever it is shown: the popup and panel, the tray's title,
// D-Bus, the status line and `tidewell ctl`. One rule for all of them, so no two
// places are ever a second apart.
class Countdown
{
public:
    using Phase = PomodoroService::Phase;

    // Whole seconds left as shown: the fraction is cut, so a phase starts at its
    // full length (25:00) and reads 00:00 in its last second.
    static qint64 seconds(qint64 remainingMs);
    // "MM:SS"; minutes go past 59 (a 100-minute phase starts at 100:00).
    static QString text(qint64 remainingMs);

    // 🍅, ☕ or 🛌.
    static QString symbol(Phase phase);
    // "focus", "short-break" or "long-break": the phase's name on D-Bus and in the
    // status line's JSON.
    static QString name(Phase phase);
    // The phase a name stands for; focus for a name it does not know.
    static Phase named(const QString& name);
};
