// Time, and what waits for it.
#include "sim/calls.h"

#include "core/main_loop.h"
#include "core/timeout.h"

#include <cmath>
#include <ctime>
#include <sys/select.h>
#include <sys/times.h>
#include <unistd.h>

namespace sim {

int handler_ms;
bool expects_all_watched;
unsigned int clock_ticks_offset = 0;
bool last_ticks_fail;
long long clock_ms = 0;

namespace {

constexpr long long epoch_ms = 1700000000000;  // of the wall clock, when the program begins

long long case_start_ms = 0;
std::multimap<long long, std::function<void()>> outside;  // by ms

// Lets time pass up to a moment, or to the event that makes a watched descriptor readable.
template<class condition>
void let_pass(long long end_ms, condition readable) {
    while (!outside.empty() && outside.begin()->first <= end_ms) {
        clock_ms = std::max(clock_ms, outside.begin()->first);
        outside.extract(outside.begin()).mapped()();
        if (readable()) {
            return;
        }
    }
    clock_ms = end_ms;
}

}  // namespace

double now() {
    return double(clock_ms - case_start_ms) / 1000;
}

void run_until(double moment) {
    long long const end_ms = case_start_ms + std::llround(moment * 1000);
    for (int idle_passes = 0; idle_passes < 10000 && !power_is_out;) {
        auto const* const first = timeout_queue::global_queue.first();
        long long const left = (end_ms - clock_ms) * 1000000;
        if (!anything_to_read() && !(first && first->key - rtimestamp::now() <= left)) {
            clock_ms = std::max(clock_ms, end_ms);
            return;
        }
        long long const before_ms = clock_ms;
        main_loop_pass();
        idle_passes = clock_ms == before_ms ? idle_passes + 1 : 0;
    }
    EXPECT_TRUE(power_is_out) << "the main loop goes round without letting time pass";
}

void run_for(double seconds) {
    run_until(now() + seconds);
}

void at(double moment, std::function<void()> const& action) {
    outside.emplace(case_start_ms + std::llround(moment * 1000), action);
}

void reset_clock() {
    outside.clear();
    handler_ms = 0;
    last_ticks_fail = false;
    expects_all_watched = true;
    case_start_ms = clock_ms = (clock_ms + 9) / 10 * 10;
}

}  // namespace sim

using namespace sim;

extern "C" {

// The result has 32 bits, as on the device.
clock_t __wrap_times(struct tms*) {
    int const ticks = static_cast<int>(static_cast<uint32_t>(clock_ms / 10) + clock_ticks_offset);
    return last_ticks_fail && ticks < 0 && ticks >= -4095 ? refuse(-ticks) : ticks;
}

int __wrap_gettimeofday(struct timeval* time, void*) {
    time->tv_sec = static_cast<time_t>((epoch_ms + clock_ms) / 1000);
    time->tv_usec = static_cast<suseconds_t>(clock_ms % 1000 * 1000);
    return 0;
}

int __wrap_settimeofday(struct timeval const* time, void*) {
    journal.push_back("settimeofday " + std::to_string(uint32_t(time->tv_sec)));
    return 0;
}

unsigned int __wrap_sleep(unsigned int seconds) {
    journal.push_back("sleep " + std::to_string(seconds));
    return 0;
}

int __wrap_usleep(useconds_t microseconds) {
    let_pass(clock_ms + microseconds / 1000, anything_to_read);
    return 0;
}

int __wrap_select(int count, fd_set* readable, fd_set*, fd_set*, struct timeval* limit) {
    if (fails("select")) {
        return -1;
    }
    fd_set const watched = *readable;
    int ready = 0;
    auto const watch = [&] {
        FD_ZERO(readable);
        for (auto const& [fd, each] : descriptors) {
            if (fd < count && FD_ISSET(fd, &watched) && !each.incoming.empty()) {
                FD_SET(fd, readable);
                ++ready;
            }
        }
        EXPECT_TRUE(ready > 0 || !expects_all_watched || !anything_to_read())
            << "a socket with data is not watched";
        return ready > 0;
    };
    for (int fd = 0; fd < count; ++fd) {
        EXPECT_TRUE(!FD_ISSET(fd, &watched) || find(fd)) << fd << " is watched, but not open";
    }
    if (!watch() && limit) {
        let_pass(clock_ms + limit->tv_sec * 1000LL + limit->tv_usec / 1000, watch);
    }
    return ready > 0 || limit ? ready : refuse(EINTR);  // It would wait for ever.
}

}  // extern "C"
