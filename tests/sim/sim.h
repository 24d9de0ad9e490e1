// The simulated outside world of the unit tests: time, files, interfaces, the wire. It stands in
// for the system calls (linker option --wrap); calls on real files and descriptors go through.
// A test makes the world, lets time pass in main loop passes, and reads what the daemon did.
#pragma once

#include "lib/str.h"

#include <climits>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace sim {

using bytes = std::string;
using lines = std::vector<std::string>;
template<class... column>
using table = std::vector<std::tuple<column...>>;

bytes hex(std::string const& digits);  // blanks are skipped
std::string to_hex(bytes const& data);
bytes big_endian(unsigned int value, int count);
bytes of(str const& value);
str to_str(bytes const& data);
std::string dump(bytes const& data);  // in hex, 16 bytes a line, each with its offset

// --- Stories: this arrives, time passes, that leaves ---
// Plays a script of events by name, "name:argument" if need be, and of seconds that pass. Returns
// what left meanwhile. Known everywhere: "log" and "journal", which tell what was added to them.
using events = std::map<std::string, std::function<void(std::string const& argument)>>;
std::string play(events const& known, std::string const& script);
// What left since the last look, with the seconds: "3 DISCOVER, probe, 4 5 probe", which are two
// things at 3, and then one twice.
std::string left();
void say(std::string const& text);  // among what left

// --- Time: seconds since the case began; only waiting lets it pass ---
double now();
// Main loop passes until the moment, or for so long; what is due at that very moment is run.
void run_until(double moment);
void run_for(double seconds);
// The outside acts at a moment, once the daemon waits.
void at(double moment, std::function<void()> const& action);

// --- Files under /nv, /proc and /dev, and those with relative paths ---
struct file {
    enum kind_type { regular, folder, pipe };
    bytes content;
    kind_type kind = regular;
    long size_told = -1;  // by fstat; -1: the true one, but 0 under /proc and /dev
    unsigned int mode = 0;
    bytes synced = {};  // what a power cut leaves
};
extern std::map<std::string, file> files;
extern bool nv_is_apart;  // /nv is a file system of its own

// The power goes at the call that writes to a file after so many good ones. It and all others fail.
void cut_power(int good_calls);
// What was not synced is gone. Whether the power had been cut.
bool power_returns();

// What the daemon did to the world, in order: "read PATH", "write PATH", "SIOCSIFADDR eth1
// 192.0.2.2", "sleep 1", "reboot 1234567", ...
extern lines journal;
lines take_journal();

// --- The log pipe: as written, or decoded to "LEVEL TEXT", then " | EXTRA" if there is one ---
extern std::vector<bytes> log_records;
lines take_log();

// --- Interfaces ---
extern std::map<std::string, int> interfaces;          // index by name: "eth1" has 2
extern std::map<std::string, std::string> configured;  // e.g. "SIOCSIFADDR eth1": "192.0.2.2"

// --- The wire ---
struct packet {
    double at;
    int protocol;  // EtherType, or 17 for UDP
    std::string interface;
    std::string to;  // hardware address in hex, or "192.0.2.1:67"
    bytes data;
    unsigned int socket;  // a number of its own, never used again
};
extern std::vector<packet> sent;
std::vector<packet> take_sent();
// To the packet sockets of that type on that interface, or the UDP sockets of that port, unless
// they are bound to another device. IPv4 reaches an interface without an address only by broadcast.
void frame_arrives(std::string const& interface, int ether_type, bytes const& data);
extern bool is_broadcast;
void datagram_arrives(int port, bytes const& data, std::string const& from = "192.0.2.1",
                      std::string const& device = "");
void datagram_arrives_at(int fd, bytes const& data, std::string const& from = "192.0.2.1");
void answer_arrives(unsigned int socket, bytes const& data, std::string const& from);
std::string describe(int fd);  // "udp *:68 eth1 nonblocking reuse broadcast", "closed", ...

// --- Failures ---
// Every call of that name fails, after so many good ones; so many of them. ("write log": write() to
// a pipe)
void fail(std::string const& call, int error, int good_calls = 0, int bad_calls = INT_MAX);
void repair();
extern unsigned int clock_ticks_offset;  // added to times()
extern bool last_ticks_fail;             // times() takes the 4095 counts before a wrap for errors
extern long long bytes_written;          // to files, but for /proc and uploads on their way
extern int handler_ms;                   // what the daemon takes for each packet
extern bool expects_all_watched;         // no data in a socket that select() is not told of
extern int first_descriptor;             // the numbers of simulated descriptors begin here
extern int descriptors_max;              // open at a time
int open_descriptors();

bytes damaged(bytes const& good, std::minstd_rand& random);

// --- What foreign packets cost: strangers send as many as the wire carries ---
// What the rules of a protocol demand beyond the limits for all.
struct cost {
    long kept = 0;  // bytes of the pool's blocks, by all packets so far
    size_t packets = 0;
    size_t packet_bytes = 0;
    size_t records = 0;
    size_t record_bytes = 0;
};
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

// A fresh world; every global of the daemon as at its start.
void reset_world();
void reset_daemon();

// Starts and ends in a fresh world, with every global of the daemon as at its start.
class test : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Plays each script in a world of its own.
    void tell(events const& known, table<std::string, std::string> const& stories);
};

}  // namespace sim

// A failure shows which lines differ.
#define EXPECT_BYTES(is, wanted) EXPECT_EQ(sim::dump(is), sim::dump(wanted))

inline void PrintTo(str const& value, std::ostream* out) {
    *out << testing::PrintToString(sim::of(value));
}
