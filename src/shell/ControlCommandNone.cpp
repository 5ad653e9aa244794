#include "ControlCommand.h"

// No control surface to reach a running Tidewell through: the commands say so, and
// export and import work on the store itself.
int ControlCommand::run(const QStringList&, QTextStream&, QTextStream& err)
{
    err << "tidewell: this build cannot reach a running Tidewell\n";
    return NotRunning;
}

std::optional<int> ControlCommand::handOff(const DataCommand::Request&, QTextStream&, QTextStream&)
{
    return std::nullopt;
}
