// The network around one device: a switch, servers, management systems and neighbours. They answer
// what the device sends, each in its own mood; the wire between loses, doubles, delays and damages.
#pragma once

#include "sim/sim.h"

#include <array>
#include <map>
#include <random>
#include <string>

class dhcp_packet;
class dhcp6_packet;

namespace life {

using sim::bytes;
using sim::packet;

constexpr int usual_descriptors = 1024;  // `descriptors_max` in good times

enum mood { serving, silent, strange };  // strange: allowed, but of no help

// How things are. As it stands: in order.
struct conditions {
    double loss = 0;  // each a share of the packets
    double duplication = 0;
    double reordering = 0;
    double damage = 0;
    mood dhcp = serving;
    mood dhcp6 = serving;
    mood dns = serving;
    mood ntp = serving;
    mood authenticator = serving;
    bool neighbour_has_our_address = false;
};

// What a server acknowledged last on an interface.
struct grant {
    bytes address;
    int seconds = 0;  // 0: for ever
    double moment = 0;
};

class network {
public:
    explicit network(unsigned int seed) : dice(seed) {}

    // True in so many of one case; a number below `count`.
    bool chance(double share) { return double(dice() >> 8) / (1 << 24) < share; }
    int below(int count) { return int(dice() % unsigned(count)); }
    template<class value>
    value one_of(std::initializer_list<value> const& all) {
        return all.begin()[below(int(all.size()))];
    }

    void react(packet const& question);
    // Whether there is one of that name or address.
    static bool is_time_server(std::string const& server);
    void set_link(bool up);
    // Other addresses from now on, and other times to live.
    void renumber();
    // A stranger sends, to whatever socket: junk, or an earlier packet once more, damaged.
    void attack();
    // A neighbour loads files, or stores them; counts what came out.
    void start_transfer();
    void scan_transfers(int count);

    conditions now;
    bool link = true;
    bool calls_fail = false;
    int call_failures = 0;      // so far
    int voice_vlan = 0;         // 0: the switch announces none
    bool router_alive = false;  // gives IPv6 addresses by itself
    bool dhcp_gives_ntp = true;
    int lease_seconds = 3600;              // 0: for ever
    double disturbed_at = -1;              // when bytes were last not as their sender meant them
    std::map<std::string, grant> granted;  // by interface
    std::map<std::string, long> counts;    // of faults, and of transfers, by name

private:
    struct transfer {
        std::string peer;
        std::string file;
        bytes content;  // expected of a read, sent by a write
        bytes loaded;
        bool is_write = false;
        unsigned int block = 0;
        unsigned int socket = 0;
        int failures = 0;  // `call_failures` at its start, -1 when calls failed already
    };

    void send(bytes const& data, std::function<void(bytes const&)> const& arrive,
              bool has_checksum = false);
    void answer_dhcp(packet const& question, bytes const& message);
    bytes dhcp_answer(dhcp_packet const& question, int type);
    void answer_arp(packet const& question);
    void answer_dhcp6(packet const& question);
    void add_address(dhcp6_packet& answer, bytes const& iaid);
    void answer_dns(packet const& question);
    void answer_ntp(packet const& question);
    void answer_eapol(packet const& question);
    void announce_policy();
    void answer_transfer(packet const& question);
    void answer_read(transfer& each, packet const& question);
    void upload_ends(transfer& each);
    void send_block(transfer& each);
    void overhear(int kind, bytes const& packet);
    bytes address(int host) const;

    std::mt19937 dice;
    int subnet = 1;
    int host = 2;  // the device's
    bytes interface_addresses;
    std::map<std::string, transfer> transfers;  // by peer
    int next_peer = 1;
    std::array<std::pair<int, bytes>, 32> overheard;  // EtherType or port, frame or datagram
    size_t heard = 0;
};

}  // namespace life
