// What the simulated system calls share.
#pragma once

#include "sim/sim.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <utility>

namespace sim {

struct message {
    bytes data;
    bytes from;  // a socket address
};

struct descriptor {
    unsigned int number = 0;  // of all ever opened
    std::string path;         // of a file; empty for a socket
    size_t offset = 0;
    int domain = 0;
    int type = 0;
    int port = 0;             // EtherType of a packet socket
    int interface_index = 0;  // of a packet socket
    std::string device;       // SO_BINDTODEVICE
    bytes peer;               // a socket address, when connected
    lines flags;              // options and multicast groups
    std::string multicast_interface;
    std::list<message> incoming;

    bool has(std::string const& flag) const {
        return std::find(flags.begin(), flags.end(), flag) != flags.end();
    }
};

extern std::map<int, descriptor> descriptors;
extern lines journal;
extern long long clock_ms;  // never goes back: the daemon counts the wraps of times()
extern bool power_is_out;

bool fails(char const* call);  // with errno
int refuse(int error);         // -1, with errno
descriptor* find(int fd);      // nullptr when it is not open
// nullptr, with errno, when it is not open or the call is to fail.
descriptor* usable(int fd, char const* call);
int add(descriptor const& fresh);
bool anything_to_read();
void reset_clock();
void reset_network();
inline bytes raw(void const* data, size_t size) {
    return {static_cast<char const*>(data), size};
}
template<class structure>
structure read_as(void const* memory) {
    structure result;
    memcpy(&result, memory, sizeof result);
    return result;
}

}  // namespace sim
