// Where foreign bytes reach the daemon, for those who send it hostile ones.
#pragma once

#include "sim/sim.h"

using places = std::vector<std::pair<size_t, sim::bytes>>;  // offsets, and what stands there

struct reader {
    int ether_type;  // 0: of datagrams
    sim::cost beyond;
    void (*begin)();                         // in a fresh world
    places (*ours)(sim::bytes const& data);  // our identifiers
    void (*take)(sim::bytes const& datagram) = nullptr;
    void (*await)() = [] {};  // leads to where a packet counts

    size_t size_max() const { return ether_type ? 1500 : 65507; }
    sim::bytes fitted(sim::bytes data) const;  // with our identifiers at their places
    void arrive(sim::bytes const& data) const;
};
extern std::map<std::string, reader> const readers;
