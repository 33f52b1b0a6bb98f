#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process when a property does not hold: that is how a fuzz target reports a finding.
inline void require(bool holds, const char* property) {
    if (!holds) {
        std::fprintf(stderr, "broken: %s\n", property);
        std::abort();
    }
}
