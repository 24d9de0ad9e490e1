// Where foreign bytes reach the daemon, for those who send it hostile ones.
#pragma once

#include "sim/meter.h"

constexpr size_t frame_max = 1500;  // bytes that a frame carries
constexpr size_t datagram_max = 65507;

struct reader {
    char const* name;
    size_t size_max;
    void (*begin)();                               // in a fresh world
    void (*await)();                               // leads to where a packet counts
    sim::bytes (*fitted)(sim::bytes const& data);  // with our identifiers at their places
    void (*arrive)(sim::bytes const& data);
    sim::cost beyond;
};

enum reader_number {
    reader_dns,
    reader_dhcp_frame,
    reader_dhcp,
    reader_arp,
    reader_dhcp6,
    reader_lldp,
    reader_eapol,
    reader_ntp,
    reader_tftp_request,
    reader_tftp_transfer,
    reader_count,
};
extern reader const readers[reader_count];

// Overwrites what is at the offset, as far as the data reaches.
sim::bytes patched(sim::bytes const& data, size_t offset, sim::bytes const& part);
