#pragma once

#include <QStringList>
#include <QTextStream>

// `tidewell ctl …`, `tidewell habit …` and `tidewell task …`: drives the running
// Tidewell over the session bus and never starts one. Runs inside a
// QCoreApplication; blocking D-Bus calls are fine here, there is no window.
class ControlCommand
{
public:
    enum Exit { Ok = 0, NotRunning = 1, Usage = 2, Refused = 3 };

    // True when `args` (argv without the program) name a command of this class.
    static bool handles(const QStringList& args);
    static int run(const QStringList& args, QTextStream& out, QTextStream& err);
    // What `tidewell --help` prints.
    static QString help();
};
