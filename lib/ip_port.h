// An endpoint. The family follows from the length of the address alone: 16 bytes are IPv6, every
// other length is IPv4.
#pragma once

#include "lib/str.h"

class ip_port {
public:
    static constexpr int ipv6_length = 16;

    bool is_ipv6() const { return adr.length() == ipv6_length; }

    str adr;       // network order; empty: any
    int port = 0;  // host order
};
