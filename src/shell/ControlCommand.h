#pragma once

#include "DataCommand.h"

#include <QStringList>
#include <QTextStream>

#include <optional>

// `tidewell ctl …`, `tidewell habit …` and `tidewell task …`: drives the running
// Tidewell through its ControlSurface and never starts one. Runs inside a
// QCoreApplication; blocking calls are fine here, there is no window. run() and
// handOff() have one implementation per platform; where there is no control
// surface they say so.
class ControlCommand
{
public:
    enum Exit { Ok = 0, NotRunning = 1, Usage = 2, Refused = 3 };

    // True when `args` (argv without the program) name a command of this class.
    static bool handles(const QStringList& args);
    static int run(const QStringList& args, QTextStream& out, QTextStream& err);
    // An export or import for the running Tidewell (DataCommand::HandOff).
    static std::optional<int> handOff(const DataCommand::Request& request, QTextStream& out,
                                      QTextStream& err);
    // What `tidewell --help` prints.
    static QString help();
};
