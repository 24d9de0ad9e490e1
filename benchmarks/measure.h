// What the benchmarks share. A case is named "operation/who/size", so that `table.py` can put the
// daemon's own figure beside that of its yardstick.
#pragma once

#include <benchmark/benchmark.h>

// Calls of the system allocator so far; nullptr in the program that measures time.
[[gnu::weak]] unsigned long allocation_count();

// Reports the calls of the system allocator per operation of the loop that it encloses.
class allocation_meter {
public:
    explicit allocation_meter(benchmark::State& s) : state(s), before(count()) {}
    ~allocation_meter() {
        state.counters["allocations"] = double(count() - before) / double(state.iterations());
    }
    allocation_meter(allocation_meter const&) = delete;
    allocation_meter& operator=(allocation_meter const&) = delete;

private:
    static unsigned long count() { return allocation_count ? allocation_count() : 0; }

    benchmark::State& state;
    unsigned long before;
};
