#include "ProcessMemory.h"

#include <malloc.h>

void ProcessMemory::keepSmall()
{
    // glibc gives every thread that allocates an arena of its own, and an arena
    // keeps the pages it once used. Tidewell's helper threads (the store probe, the
    // D-Bus registrations, Qt's painting pool) allocate a little, briefly; sharing
    // the main arena saves a few hundred kilobytes for the whole session.
    mallopt(M_ARENA_MAX, 1);
}
