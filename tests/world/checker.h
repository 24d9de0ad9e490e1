// What must hold at any time, whatever the network does; and, on a healthy network, what the device
// must have reached, or else which end the protocols' rules have led it to.
#pragma once

#include "world/network.h"

#include <string>

namespace life {

// Seconds: the selected server is silent and rests an hour, then the next one does.
constexpr double time_to_a_clock = 2 * 3600 + 100;

class checker {
public:
    explicit checker(network& around) : world(around) {}

    // After every pass of the main loop. Hands what was sent to the network.
    void look();
    // Timers against the queue, descriptors against their owners, memory.
    void count_everything();
    void forget_log() { logged_states.clear(); }

    // On a healthy network. Empty when there is a lease (a set clock); else the name of the end.
    std::string why_no_lease();
    std::string why_no_clock();
    // Whether a link flap leaves this end as it is, by the rules.
    static bool outlives_flap(std::string const& end);

    // In health: what the storm needed must have been given back.
    void expect_memory_given_back();
    std::string story() const;  // the last log lines

    bool prints_log = false;
    double clock_set_at = -1;
    int memory_max = 0;
    int healthy_first = 0;  // bytes in use the first time that all was healthy
    int healthy_last = 0;
    int descriptors_max = 0;
    long passes = 0;

private:
    void read_log();
    void check_packet(packet const& each);
    void check_journal();

    network& world;
    std::map<std::string, std::string> logged_states;  // by client, as "DHCPv4 on eth1"
    sim::lines last_lines;
    double last_moment = 0;
    long idle_passes = 0;
    double minute = 0;
    int sent_in_minute = 0;
};

}  // namespace life
