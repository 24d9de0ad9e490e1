#include "lib/packet_socket.h"

#include "lib/descriptors.h"
#include "lib/utils.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <sys/socket.h>

namespace {

constexpr int hardware_address_length = 6;

sockaddr_ll link_address(int ether_type, int interface_index) {
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(static_cast<uint16_t>(ether_type));
    address.sll_ifindex = interface_index;
    return address;
}

}  // namespace

int packet_socket::open(int type, int ether_type, int interface_index) {
    int const fd =
        descriptors::open_socket(AF_PACKET, type, htons(static_cast<uint16_t>(ether_type)));
    if (fd < 0) {
        return -1;
    }
    utils::set_nonblocking(fd);
    sockaddr_ll const local = link_address(ether_type, interface_index);
    (void)bind(fd, reinterpret_cast<sockaddr const*>(&local), sizeof local);
    return fd;
}

void packet_socket::send(int fd, int ether_type, int interface_index, str const& destination,
                         str const& packet) {
    sockaddr_ll remote = link_address(ether_type, interface_index);
    remote.sll_halen = hardware_address_length;
    memcpy(remote.sll_addr, destination.cbuffer(), hardware_address_length);
    (void)sendto(fd, packet.cbuffer(), size_t(packet.length()), 0,
                 reinterpret_cast<sockaddr const*>(&remote), sizeof remote);
}

int packet_socket::membership(int fd, int interface_index, unsigned char const* group, bool join) {
    packet_mreq request = {};
    request.mr_ifindex = interface_index;
    request.mr_type = PACKET_MR_MULTICAST;
    request.mr_alen = hardware_address_length;
    memcpy(request.mr_address, group, hardware_address_length);
    return setsockopt(fd, SOL_PACKET, join ? PACKET_ADD_MEMBERSHIP : PACKET_DROP_MEMBERSHIP,
                      &request, sizeof request);
}
