#pragma once

#include <cstdio>
#include <cstdlib>

// Ends a fuzz target, for libFuzzer to report its input, where something does not hold.
inline void require(bool holds, char const * what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}
