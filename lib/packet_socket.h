// Packet sockets (packet(7)), each for one EtherType on one interface.
#pragma once

#include "lib/str.h"

namespace packet_socket {

// Opens and binds a socket; -1 on failure to open. SOCK_DGRAM carries packets without their
// Ethernet header, SOCK_RAW whole frames.
int open(int type, int ether_type, int interface_index);
// Sends a packet (a frame, for SOCK_RAW) to a hardware address of 6 bytes.
void send(int fd, int ether_type, int interface_index, str const& destination, str const& packet);
// Joins or leaves a multicast group of the interface; the result of the system call.
int membership(int fd, int interface_index, unsigned char const* group, bool join);

inline str broadcast_address() {
    return str('\xFF', 6);
}

}  // namespace packet_socket
