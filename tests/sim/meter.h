// What a foreign packet costs the daemon: memory, processor time, answers, records. Strangers send
// as many as the wire carries, so each has to be cheap.
#pragma once

#include "sim/sim.h"

namespace sim {

// What the rules of a protocol demand beyond the limits for all.
struct cost {
    long kept = 0;  // bytes of the pool's blocks, by all packets so far
    size_t packets = 0;
    size_t packet_bytes = 0;
    size_t records = 0;
    size_t record_bytes = 0;
};
// The message that an answer leads to has its own length, however short the answer.
constexpr cost next_message = {.packet_bytes = 600};
// A lease configures and publishes a dozen things, and begins the address check.
constexpr cost lease = {.packet_bytes = 600, .records = 5};
// The DHCPv6 reply logs each of its servers. It lets two time clients begin; their question goes to
// all name servers, eight at most.
constexpr cost lease6 = {.packets = 7, .packet_bytes = 900, .records = 7, .record_bytes = 1000};
// The first policy starts the clients of both address families.
constexpr cost policy = {.packets = 1, .packet_bytes = 600, .records = 2};
// An answer about a name lets the SNTP clients ask their next questions, of all name servers, or
// send a request. Each alias whose target cannot be leaves a record.
constexpr cost next_question = {
    .packets = 7, .packet_bytes = 900, .records = 6000, .record_bytes = 6000 * 60};
// The name of a file, as long as a path may be, stands in the log; a reader holds a window.
constexpr cost file_request = {.kept = 100 * 8192, .packet_bytes = 600, .record_bytes = 4096};
// Each EAP Request of a frame draws a response and a record; the frame is traced in hex.
constexpr cost requests = {
    .packets = 300, .packet_bytes = 20000, .records = 300, .record_bytes = 30000};

// Watches a row of packets.
class meter {
public:
    meter();
    long kept() const;  // bytes of the pool's blocks, by all packets so far
    // Fails when what `deliver` lets the daemon do costs more than a packet of that size may.
    void expect_cheap(size_t size, std::function<void()> const& deliver, cost const& beyond = {});

private:
    long const before;
    size_t largest = 0;  // bytes of a packet so far
};

}  // namespace sim
