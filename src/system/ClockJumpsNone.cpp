#include "ClockJumps.h"

// Nothing tells of a suspend or a new system time: what fell due by the wall clock
// waits for the next monotonic timer.
std::unique_ptr<ClockJumps> ClockJumps::create()
{
    return std::make_unique<ClockJumps>();
}
