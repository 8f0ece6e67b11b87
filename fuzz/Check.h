// Check: what a fuzz target holds to be true for every input.
#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the program, as a fuzzer or a replay wants it, when the condition is false.
#define KQ_FUZZ_CHECK(condition)                                                                                       \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            std::fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition);                             \
            std::abort();                                                                                              \
        }                                                                                                              \
    } while (false)
