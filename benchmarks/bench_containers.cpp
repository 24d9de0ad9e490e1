#include "benchmarks/measure.h"
#include "lib/smap.h"
#include "lib/str_format.h"

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

enum key_order { random_order, ascending_order };

std::vector<int> numbers(int count, key_order order) {
    std::vector<int> keys(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        keys[size_t(i)] = i * 7;
    }
    if (order == random_order) {
        std::shuffle(keys.begin(), keys.end(), std::minstd_rand(1));
    }
    return keys;
}

template<class key>
key make_key(int number);
template<>
int make_key<int>(int number) {
    return number;
}
template<>
str make_key<str>(int number) {
    return str::sprintf("host%05d.example.org", number);
}
template<>
std::string make_key<std::string>(int number) {
    return make_key<str>(number).c_str();
}

template<class key>
void insert(smap<key, int>& map, key const& k) {
    map.insert(k, 1);
}
template<class key>
void insert(std::map<key, int>& map, key const& k) {
    map.emplace(k, 1);
}
template<class key>
bool contains(smap<key, int> const& map, key const& k) {
    return map.find(k);
}
template<class key>
bool contains(std::map<key, int> const& map, key const& k) {
    return map.find(k) != map.end();
}

// Long enough that no branch predictor learns the sequence.
template<class key>
std::vector<key const*> random_picks(std::vector<key> const& keys) {
    constexpr size_t pick_count = 1 << 16;
    std::minstd_rand random(2);
    std::vector<key const*> picks;
    for (size_t i = 0; i < pick_count; ++i) {
        picks.push_back(&keys[random() % keys.size()]);
    }
    return picks;
}

template<class map_type, class key, key_order order>
void find(benchmark::State& state) {
    auto const map = std::make_unique<map_type>();
    std::vector<key> keys;
    for (int number : numbers(int(state.range(0)), order)) {
        keys.push_back(make_key<key>(number));
        insert(*map, keys.back());
    }
    std::vector<key const*> const wanted = random_picks(keys);
    size_t i = 0;
    allocation_meter const meter(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(contains(*map, *wanted[i++ % wanted.size()]));
    }
}

template<class map_type, key_order order>
void fill(benchmark::State& state) {
    std::vector<int> const keys = numbers(int(state.range(0)), order);
    allocation_meter const meter(state);
    for (auto _ : state) {
        map_type map;
        for (int key : keys) {
            insert(map, key);
        }
        benchmark::DoNotOptimize(map);
    }
}

void counts(benchmark::internal::Benchmark* b) {
    for (int count : {10, 100, 1000, 10000}) {
        b->Arg(count);
    }
}

BENCHMARK(find<smap<int, int>, int, random_order>)->Name("find int/smap")->Apply(counts);
BENCHMARK(find<std::map<int, int>, int, random_order>)->Name("find int/std::map")->Apply(counts);
BENCHMARK(find<smap<str, int>, str, random_order>)->Name("find text/smap")->Apply(counts);
BENCHMARK(find<std::map<std::string, int>, std::string, random_order>)
    ->Name("find text/std::map")
    ->Apply(counts);
BENCHMARK(find<smap<int, int>, int, ascending_order>)
    ->Name("find int ascending/smap")
    ->Apply(counts);
BENCHMARK(find<std::map<int, int>, int, ascending_order>)
    ->Name("find int ascending/std::map")
    ->Apply(counts);
BENCHMARK(fill<smap<int, int>, random_order>)->Name("fill/smap")->Apply(counts);
BENCHMARK(fill<std::map<int, int>, random_order>)->Name("fill/std::map")->Apply(counts);
BENCHMARK(fill<smap<int, int>, ascending_order>)->Name("fill ascending/smap")->Apply(counts);
BENCHMARK(fill<std::map<int, int>, ascending_order>)
    ->Name("fill ascending/std::map")
    ->Apply(counts);

}  // namespace
