#pragma once

// How the allocator of this process is tuned for a program that starts small and
// then sits idle all day. One implementation per C library.
class ProcessMemory
{
public:
    // Called first thing in main, before any other thread exists.
    static void keepSmall();
};
