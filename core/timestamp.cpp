#include "core/timestamp.h"

#include <cerrno>
#include <sys/time.h>
#include <sys/times.h>

constinit long long rtimestamp::ticks10 = rtimestamp::ms2ticks(10);
constinit rtimestamp system_start;

namespace {

// Some C libraries take the last 4095 counts before a wrap for failures, of which errno tells the
// negated count; with others the very last one is -1 by itself.
uint32_t kernel_count() {
    errno = 1;
    clock_t const count = times(nullptr);
    return static_cast<uint32_t>(count == -1 ? -errno : count);
}

}  // namespace

// The kernel counts clock ticks in 32 bits, here taken as 100 a second.
rtimestamp rtimestamp::now() {
    static uint32_t previous_count = 0;
    static long long wraps = 0;
    uint32_t const count = kernel_count();
    if (count < previous_count) {
        ++wraps;
    }
    previous_count = count;
    rtimestamp result;
    result.ticks = ((wraps << 32) + count) * 10000000LL;
    return result;
}

atimestamp atimestamp::now() {
    timeval time = {};
    gettimeofday(&time, nullptr);
    atimestamp result;
    result.ms = static_cast<long long>(time.tv_sec) * 1000 + time.tv_usec / 1000;
    return result;
}

long long text2ms(str const& text) {
    unsigned int const seconds = text.get_field(0, ".").uvalue();
    return seconds * 1000LL + text.get_field(1, ".").uvalue();
}

long long text2ms(char const* text) {
    return text2ms(str(text));
}

str ms2text(long long ms) {
    return str::decimal(ms / 1000) + "." + str::decimal(ms % 1000);
}

void init_timestamps() {
    rtimestamp::ticks10 = rtimestamp::ms2ticks(10);
    system_start = rtimestamp::now();
}
