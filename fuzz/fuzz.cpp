#include "fuzz/fuzz.h"

#include "core/log.h"
#include "core/timeout.h"

#include <cerrno>
#include <cstdlib>
#include <iterator>

namespace {

constexpr char separator[] = "<|>";
constexpr int steps_max = 24;
constexpr double virtual_time_max = 7500;  // seconds in one input
constexpr double pauses[] = {0, 0, 0, 0.5, 1, 5, 21};
constexpr int longest_wait = 3700;                        // seconds, for the next timer
constexpr unsigned int pool_size_max = 64 * 1024 * 1024;  // bytes
constexpr int blocks_kept_max = 20000;

void pass_time(unsigned int pause) {
    if (pause < std::size(pauses)) {
        sim::run_for(pauses[pause]);
        return;
    }
    int const delay = timeout_queue::global_queue.delay(true);
    sim::run_for(delay > 0 && delay <= longest_wait * 1000 ? delay / 1000.0 : 0);
}

// Of blocks of the pool's classes; larger ones go back to the system, which tells of leaks itself.
void expect_bounded_pool() {
    unsigned int carved_bytes = 0;
    int in_use = 0;
    for (str::block_class const& each : str::block_size) {
        carved_bytes += unsigned(each.size) * unsigned(each.carved);
        in_use += each.carved;
        for (auto const* block = each.free_list; block; block = block->next_free) {
            in_use -= 1 + int(block->flags);  // and those behind it that were never used
        }
    }
    EXPECT_LE(carved_bytes, pool_size_max);
    EXPECT_LE(in_use, blocks_kept_max) << "something is never released";
}

class world : public sim::test {
public:
    void play(fuzz::bytes const& input) {
        SetUp();
        srand(1);
        sim::first_descriptor = 20;  // The main loop looks at every number up to the largest.
        log_level = 9;
        fuzz::begin();
        size_t start = 0;
        for (int i = 0; i < steps_max && start < input.size(); ++i) {
            size_t const end = std::min(input.find(separator, start), input.size());
            take(input.substr(start, end - start));
            start = end + sizeof separator - 1;
        }
        TearDown();
    }

private:
    static void take(fuzz::bytes const& text) {
        if (!text.empty() && sim::now() < virtual_time_max) {
            unsigned int const control = fuzz::number(text, 0);
            fuzz::take({control & 7, control >> 3 & 3, control >> 5, text.substr(1)});
            pass_time(control >> 5);
        }
    }
    void TestBody() override {}
};

}  // namespace

void fuzz::fail_some_call(bytes const& choice) {
    static char const* const calls[] = {"ioctl", "socket", "sendto",  "open",
                                        "write", "rename", "connect", "read"};
    sim::fail(calls[number(choice, 0) % std::size(calls)], number(choice, 1) & 1 ? EMFILE : EIO);
}

fuzz::bytes fuzz::patched(bytes const& data, size_t offset, bytes const& part) {
    bytes result = data;
    for (size_t i = 0; i < part.size() && offset + i < data.size(); ++i) {
        result[offset + i] = part[i];
    }
    return result;
}

unsigned int fuzz::number(bytes const& data, size_t i) {
    return i < data.size() ? static_cast<unsigned char>(data[i]) : 0;
}

// sim.cpp replaces operator new, but not the form that the fuzzer itself uses.
extern "C" char const* __asan_default_options() {
    return "alloc_dealloc_mismatch=0:malloc_context_size=1:quarantine_size_mb=4";
}

// The fuzzer would watch over its memory in a thread that sleeps, but here sleep() is simulated,
// and not meant for two threads; the pool is looked at below.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static char no_watch[] = "-rss_limit_mb=0";
    static char largest_block[] = "-malloc_limit_mb=256";
    static std::vector<char*> arguments(*argv, *argv + *argc);
    arguments.insert(arguments.begin() + 1, {no_watch, largest_block});
    *argc = int(arguments.size());
    arguments.push_back(nullptr);
    *argv = arguments.data();
    GTEST_FLAG_SET(break_on_failure, true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, size_t size) {
    static world simulated;
    static int inputs = 0;
    simulated.play(fuzz::bytes(reinterpret_cast<char const*>(data), size));
    if (++inputs % 1024 == 0) {
        expect_bounded_pool();
    }
    return 0;
}
