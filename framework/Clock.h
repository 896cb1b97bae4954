// Clock: the wall clock in microseconds since 1970, and the conversion of such ticks to seconds.
#pragma once

#include <cstdint>

class Clock {
public:
    static int64_t now();
    static double toSeconds(int64_t microseconds) { return static_cast<double>(microseconds) / 1e6; }
};
