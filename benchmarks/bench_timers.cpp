// One timer is armed behind `n` others and the earliest one fires, so that n stay pending; the
// kernel's clock stands still.
#include "benchmarks/measure.h"
#include "core/timeout.h"

#include <map>
#include <vector>

namespace {

void do_nothing(str const&) {}

enum due_order { ascending, random_order };

// Delays of the timers in milliseconds: ever later ones make a chain of the tree.
class delays {
public:
    delays(due_order o, int n) : order(o), ms(n * 10) {}
    int next() {
        seed = seed * 1103515245 + 12345;
        ms += 10;
        return order == ascending ? ms : ms + int(seed >> 16 & 1023);
    }

private:
    due_order order;
    int ms;
    unsigned int seed = 1;
};

template<due_order order>
void daemon_timers(benchmark::State& state) {
    size_t const pending = size_t(state.range(0));
    std::vector<timeout> timers(pending + 1);
    delays ms(order, int(pending));
    str const name("eth1.100");
    for (size_t i = 0; i < pending; ++i) {
        timers[i].callback(rtimestamp::ms2ticks(ms.next()), callback_argument(do_nothing, name));
    }
    size_t free_timer = pending;
    allocation_meter const meter(state);
    for (auto _ : state) {
        timers[free_timer].callback(rtimestamp::ms2ticks(ms.next()),
                                    callback_argument(do_nothing, name));
        timeout const* const earliest = timeout_queue::global_queue.first()->value;
        timeout_queue::global_queue.next();
        free_timer = size_t(earliest - timers.data());
    }
}

// The same calls, kept in a std::multimap.
template<due_order order>
void multimap_timers(benchmark::State& state) {
    std::multimap<rtimestamp, callback_argument> queue;
    int const pending = int(state.range(0));
    delays ms(order, pending);
    str const name("eth1.100");
    auto const arm = [&] {
        rtimestamp due = rtimestamp::now();
        due.ticks += rtimestamp::ms2ticks(ms.next());
        queue.emplace(due, callback_argument(do_nothing, name));
    };
    for (int i = 0; i < pending; ++i) {
        arm();
    }
    allocation_meter const meter(state);
    for (auto _ : state) {
        arm();
        auto const earliest = queue.begin();
        callback_argument const call = earliest->second;
        queue.erase(earliest);
        call.call();
    }
}

BENCHMARK(daemon_timers<ascending>)->Name("arm and fire/timeout")->Arg(10)->Arg(100);
BENCHMARK(multimap_timers<ascending>)->Name("arm and fire/std::multimap")->Arg(10)->Arg(100);
BENCHMARK(daemon_timers<random_order>)->Name("arm and fire mixed/timeout")->Arg(10)->Arg(100);
BENCHMARK(multimap_timers<random_order>)
    ->Name("arm and fire mixed/std::multimap")
    ->Arg(10)
    ->Arg(100);

}  // namespace
