// The network around one device: servers, a switch and strangers. They answer what the device
// sends, each in its own mood; the wire between loses, doubles, delays and damages.
#pragma once

#include "sim/sim.h"

namespace life {

extern std::mt19937 dice;
bool chance(double share);  // true in so many of one case
int below(int count);
template<class value>
value one_of(std::initializer_list<value> const& all) {
    return all.begin()[below(int(all.size()))];
}

enum mood { serving, silent, strange };  // strange: allowed, but of no help

// How things are. As it stands: in order.
struct conditions {
    std::map<int, mood> moods;                             // of servers, by port or EtherType
    double loss = 0, doubling = 0, delay = 0, damage = 0;  // each a share of the packets
    bool neighbour_has_our_address = false;
};
extern conditions weather;
extern int voice_vlan;     // 0: the switch announces none
extern int lease_seconds;  // 0: for ever

// What the DHCP server acknowledged last on an interface.
struct grant {
    sim::bytes address;
    int seconds = 0;
    double moment = 0;
};
extern std::map<std::string, grant> granted;
extern double disturbed_at;  // when bytes were last not as they should be

extern bool link_is_up;
void set_link(bool up);
void renumber();  // other addresses from now on, and other times to live
void react(sim::packet const& sent);
void attack();               // A stranger sends junk, or an earlier answer once more, damaged.
void scan_files(int count);  // Strangers ask for transfers, and never go on with them.
bool is_time_server(std::string const& name_or_address);

}  // namespace life
