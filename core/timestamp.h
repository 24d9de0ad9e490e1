// The two clocks: monotonic ticks for waiting, wall-clock milliseconds for the date.
#pragma once

#include "lib/str.h"

// Monotonic time. One tick is a nanosecond; the resolution is that of times(), 10 ms.
class rtimestamp {
public:
    static rtimestamp now();
    static constexpr long long ms2ticks(int ms) { return ms * 1000000LL; }
    static constexpr long long s2ticks(int s) { return s * 1000000000LL; }
    // Rounded half up, the division truncating toward zero.
    static int ticks2ms(long long const& t) { return int((t + 500000) / 1000000); }
    static int ticks2s(long long const& t) { return int((t + 500000000) / 1000000000); }

    bool operator==(rtimestamp const& other) const { return ticks == other.ticks; }
    bool operator<(rtimestamp const& other) const { return ticks < other.ticks; }
    long long operator-(rtimestamp const& other) const { return ticks - other.ticks; }

    static long long ticks10;  // ticks of one clock tick

    long long ticks = 0;
};

// Wall-clock time.
class atimestamp {
public:
    static atimestamp now();

    long long ms = 0;  // since the Unix epoch
};

// Milliseconds from and to text of the form seconds "." milliseconds; the second part is a plain
// number, without leading zeros ("1.5" is 1005 ms).
long long text2ms(str const& text);
long long text2ms(char const* text);
str ms2text(long long ms);

extern rtimestamp system_start;

// Called once, early in start-up.
void init_timestamps();
