#include "benchmarks/measure.h"
#include "lib/str.h"

#include <cstdlib>
#include <string>

namespace {

void sizes(benchmark::internal::Benchmark* b) {
    for (int size : {16, 256, 1024, 8192, 65536}) {
        b->Arg(size);
    }
}

str sample(str const*, int size) {
    return str('x', size);
}
std::string sample(std::string const*, int size) {
    return std::string(size_t(size), 'x');
}

str cut(str const& s, int pos, int count) {
    return s.substr(pos, count);
}
std::string cut(std::string const& s, int pos, int count) {
    return s.substr(size_t(pos), size_t(count));
}

template<class string>
void copy(benchmark::State& state) {
    string const source = sample(static_cast<string const*>(nullptr), int(state.range(0)));
    allocation_meter const meter(state);
    for (auto _ : state) {
        string copied(source);
        benchmark::DoNotOptimize(copied);
    }
}

template<class string>
void cut_out(benchmark::State& state) {
    int const size = int(state.range(0));
    string const source = sample(static_cast<string const*>(nullptr), size);
    allocation_meter const meter(state);
    for (auto _ : state) {
        string part = cut(source, 1, size - 2);
        benchmark::DoNotOptimize(part);
    }
}

template<class string>
void append_bytes(benchmark::State& state) {
    int const size = int(state.range(0));
    allocation_meter const meter(state);
    for (auto _ : state) {
        string text;
        for (int i = 0; i < size; ++i) {
            text += 'x';
        }
        benchmark::DoNotOptimize(text);
    }
}

template<class string>
void concatenate(benchmark::State& state) {
    int const size = int(state.range(0));
    string const left = sample(static_cast<string const*>(nullptr), size / 2);
    string const right = sample(static_cast<string const*>(nullptr), size / 2);
    allocation_meter const meter(state);
    for (auto _ : state) {
        string sum = left + right;
        benchmark::DoNotOptimize(sum);
    }
}

void pool_block(benchmark::State& state) {
    int const size = int(state.range(0));
    allocation_meter const meter(state);
    for (auto _ : state) {
        void* const block = str::malloc(size, true);
        benchmark::DoNotOptimize(block);
        str::free(block);
    }
}

void malloc_block(benchmark::State& state) {
    size_t const size = size_t(state.range(0));
    allocation_meter const meter(state);
    for (auto _ : state) {
        void* block = malloc(size);
        benchmark::DoNotOptimize(block);
        free(block);
    }
}

BENCHMARK(copy<str>)->Name("copy/str")->Apply(sizes);
BENCHMARK(copy<std::string>)->Name("copy/std::string")->Apply(sizes);
BENCHMARK(cut_out<str>)->Name("cut/str")->Apply(sizes);
BENCHMARK(cut_out<std::string>)->Name("cut/std::string")->Apply(sizes);
BENCHMARK(append_bytes<str>)->Name("append bytes/str")->Apply(sizes);
BENCHMARK(append_bytes<std::string>)->Name("append bytes/std::string")->Apply(sizes);
BENCHMARK(concatenate<str>)->Name("concatenate/str")->Apply(sizes);
BENCHMARK(concatenate<std::string>)->Name("concatenate/std::string")->Apply(sizes);
BENCHMARK(pool_block)->Name("block/pool")->Arg(16)->Arg(100)->Arg(1000)->Arg(4000);
BENCHMARK(malloc_block)->Name("block/malloc")->Arg(16)->Arg(100)->Arg(1000)->Arg(4000);

}  // namespace
