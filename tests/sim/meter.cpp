#include "sim/meter.h"

#include <algorithm>
#include <ctime>

namespace sim {

namespace {

long in_use = 0;  // bytes of the pool's blocks, headers included
long most_in_use = 0;

// A busy machine, an emulated one and the sanitizers are no faults of the daemon.
constexpr double patience = 50;

void taken(str::reference const* block) {
    in_use += block->capacity + str::header_size;
    most_in_use = std::max(most_in_use, in_use);
}

void given_back(str::reference const* block) {
    in_use -= block->capacity + str::header_size;
}

double processor_ms() {
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

}  // namespace

meter::meter() : before(in_use) {}

long meter::kept() const {
    return in_use - before;
}

void meter::expect_cheap(size_t size, std::function<void()> const& deliver, cost const& beyond) {
    constexpr size_t usual_max = 1536;  // bytes: a whole frame
    bool const is_large = size > usual_max;
    largest = std::max(largest, size);
    long const start = most_in_use = in_use;
    size_t const first_sent = sent.size();
    size_t const first_logged = log_records.size();
    double const start_ms = processor_ms();
    deliver();
    EXPECT_LE(processor_ms() - start_ms, (is_large ? 20 : 1) * patience) << "ms";
    long const own = str::get_bin_size(str::find_bin(int(size))) + str::header_size;
    EXPECT_LE(most_in_use - start - own, is_large ? 1L << 20 : 64L << 10) << "bytes at the peak";
    long const kept_max = largest > usual_max ? 1536 << 10 : 512 << 10;
    EXPECT_LE(kept(), kept_max + beyond.kept) << "bytes kept";
    EXPECT_LE(sent.size() - first_sent, 2 + beyond.packets);
    EXPECT_LE(log_records.size() - first_logged, 3 + beyond.records);
    size_t sent_bytes = 0;
    size_t logged_bytes = 0;
    for (size_t i = first_sent; i < sent.size(); ++i) {
        sent_bytes += sent[i].data.size();
    }
    for (size_t i = first_logged; i < log_records.size(); ++i) {
        logged_bytes += log_records[i].size();
    }
    EXPECT_LE(sent_bytes, 3 * size + beyond.packet_bytes);
    EXPECT_LE(logged_bytes, 4096 + beyond.record_bytes);
}

}  // namespace sim

using sim::given_back;
using sim::taken;

// Calls from outside of lib/str_pool.cpp; those inside, of one of these to another, count once.
extern "C" {
str::reference* __real__ZN3str18get_cstring_staticEiPS_(int, str*);
void __real__ZN3str15release_cstringEPNS_9referenceE(str::reference*);
void* __real__ZN3str6mallocEib(int, bool);
void __real__ZN3str4freeEPv(void*);

str::reference* __wrap__ZN3str18get_cstring_staticEiPS_(int size, str* owner) {
    str::reference* const block = __real__ZN3str18get_cstring_staticEiPS_(size, owner);
    taken(block);
    return block;
}

void __wrap__ZN3str15release_cstringEPNS_9referenceE(str::reference* block) {
    given_back(block);
    __real__ZN3str15release_cstringEPNS_9referenceE(block);
}

void* __wrap__ZN3str6mallocEib(int size, bool array) {
    void* const memory = __real__ZN3str6mallocEib(size, array);
    taken(static_cast<str::reference*>(memory) - 1);
    return memory;
}

void __wrap__ZN3str4freeEPv(void* memory) {
    if (memory) {
        given_back(static_cast<str::reference*>(memory) - 1);
    }
    __real__ZN3str4freeEPv(memory);
}
}
