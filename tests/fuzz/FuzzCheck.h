#pragma once

#include <cstdio>
#include <cstdlib>

// A broken invariant is a crash the fuzzer keeps, with the input that caused it.
#define FUZZ_CHECK(condition)                                                                      \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "invariant broken: %s (%s:%d)\n", #condition, __FILE__,           \
                         __LINE__);                                                                \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)
