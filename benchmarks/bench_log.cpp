#include "benchmarks/measure.h"
#include "core/log.h"

#include <cstdio>

namespace {

void line_sprintf(benchmark::State& state) {
    str const name("eth1.100");
    str const verb("REQUESTING");
    allocation_meter const meter(state);
    for (auto _ : state) {
        str line = str::sprintf("DHCPv4 on %s goes to %s, try %d of %d", name, verb, 17, 2345);
        benchmark::DoNotOptimize(line);
    }
}

void line_snprintf(benchmark::State& state) {
    char const* name = "eth1.100";
    char const* verb = "REQUESTING";
    allocation_meter const meter(state);
    for (auto _ : state) {
        char line[256];
        benchmark::DoNotOptimize(name);
        snprintf(line, sizeof line, "DHCPv4 on %s goes to %s, try %d of %d", name, verb, 17, 2345);
        benchmark::DoNotOptimize(line);
    }
}

void dump_sprintf(benchmark::State& state) {
    str const packet('\xA5', int(state.range(0)));
    allocation_meter const meter(state);
    for (auto _ : state) {
        str line = str::sprintf("%h", packet);
        benchmark::DoNotOptimize(line);
    }
}

void dump_snprintf(benchmark::State& state) {
    str const packet('\xA5', int(state.range(0)));
    allocation_meter const meter(state);
    for (auto _ : state) {
        char line[2048];
        for (int i = 0; i < packet.length(); ++i) {
            snprintf(line + 2 * i, 3, "%02x", packet[i]);
        }
        benchmark::DoNotOptimize(line);
    }
}

void record(benchmark::State& state) {
    str const text("DHCPv4 on eth1.100 goes to REQUESTING");
    allocation_meter const meter(state);
    for (auto _ : state) {
        log_add_message(7, text, str::null);
    }
}

// What every log statement costs while its level is off.
void level_off(benchmark::State& state) {
    str const name("eth1.100");
    log_level = 0;
    allocation_meter const meter(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(log_level);
        if (log_level >= 7) {
            log_add_message(7, str::sprintf("DHCPv4 on %s goes to %S", name, "BOUND"), str::null);
        }
    }
    log_level = 9;
}

BENCHMARK(line_sprintf)->Name("log line/str::sprintf");
BENCHMARK(line_snprintf)->Name("log line/snprintf");
BENCHMARK(dump_sprintf)->Name("hex dump/str::sprintf")->Arg(548);
BENCHMARK(dump_snprintf)->Name("hex dump/snprintf")->Arg(548);
BENCHMARK(record)->Name("log record/log_add_message");
BENCHMARK(level_off)->Name("log level off/log statement");

}  // namespace
