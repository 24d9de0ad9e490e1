// The memory of the pool's blocks, and what packets cost.
#include "sim/sim.h"

#include <algorithm>
#include <ctime>

namespace sim {

namespace {

long in_use = 0;  // bytes of the pool's blocks, headers included
long most_in_use = 0;

// A busy machine, an emulated one and the sanitizers are no faults of the daemon.
constexpr int patience = 50;

}  // namespace

meter::meter() : before(in_use) {}

long meter::kept() const {
    return in_use - before;
}

void meter::expect_cheap(size_t size, std::function<void()> const& deliver, cost const& beyond) {
    largest = std::max(largest, size);
    constexpr size_t frame_max = 1536;
    bool const is_large = size > frame_max;
    long const start = most_in_use = in_use;
    size_t const first_sent = sent.size();
    size_t const first_logged = log_records.size();
    clock_t const start_time = clock();
    deliver();
    EXPECT_LE(double(clock() - start_time) / CLOCKS_PER_SEC, (is_large ? 0.02 : 0.001) * patience);
    long const own = str::get_bin_size(str::find_bin(int(size))) + str::header_size;
    EXPECT_LE(most_in_use - start - own, is_large ? 1L << 20 : 64L << 10) << "bytes at the peak";
    EXPECT_LE(kept(), (largest > frame_max ? 1536 << 10 : 512 << 10) + beyond.kept);
    EXPECT_LE(sent.size() - first_sent, 2 + beyond.packets);
    EXPECT_LE(log_records.size() - first_logged, 3 + beyond.records);
    size_t sent_bytes = 0;
    size_t logged_bytes = 0;
    std::for_each(sent.begin() + long(first_sent), sent.end(),
                  [&](packet const& each) { sent_bytes += each.data.size(); });
    std::for_each(log_records.begin() + long(first_logged), log_records.end(),
                  [&](bytes const& each) { logged_bytes += each.size(); });
    EXPECT_LE(sent_bytes, 3 * size + beyond.packet_bytes);
    EXPECT_LE(logged_bytes, 4096 + beyond.record_bytes);
}

}  // namespace sim

// Calls from outside of lib/str_pool.cpp; those inside, of one of these to another, count once.
extern "C" {
str::reference* __real__ZN3str18get_cstring_staticEiPS_(int, str*);
void __real__ZN3str15release_cstringEPNS_9referenceE(str::reference*);
void* __real__ZN3str6mallocEib(int, bool);
void __real__ZN3str4freeEPv(void*);

static void count(str::reference const* block, int blocks) {
    sim::in_use += blocks * (block->capacity + str::header_size);
    sim::most_in_use = std::max(sim::most_in_use, sim::in_use);
}

str::reference* __wrap__ZN3str18get_cstring_staticEiPS_(int size, str* owner) {
    str::reference* const block = __real__ZN3str18get_cstring_staticEiPS_(size, owner);
    count(block, 1);
    return block;
}

void __wrap__ZN3str15release_cstringEPNS_9referenceE(str::reference* block) {
    count(block, -1);
    __real__ZN3str15release_cstringEPNS_9referenceE(block);
}

void* __wrap__ZN3str6mallocEib(int size, bool array) {
    void* const memory = __real__ZN3str6mallocEib(size, array);
    count(static_cast<str::reference*>(memory) - 1, 1);
    return memory;
}

void __wrap__ZN3str4freeEPv(void* memory) {
    if (memory) {
        count(static_cast<str::reference*>(memory) - 1, -1);
    }
    __real__ZN3str4freeEPv(memory);
}
}
