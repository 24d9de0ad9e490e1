// The sockets of the DHCPv4 client.
#include "dhcp/dhcp.h"

#include "core/log.h"
#include "dhcp/udp_frame.h"
#include "lib/descriptors.h"
#include "lib/packet_socket.h"
#include "lib/utils.h"

#include <net/ethernet.h>
#include <sys/socket.h>

int dhcp::lookup_interface_index() {
    if (interface_index == 0) {
        interface_index = get_interface_index(interface);
    }
    return interface_index;
}

void dhcp::create_raw_socket() {
    descriptors::close(fd);
    raw_mode = true;
    fd = packet_socket::open(SOCK_DGRAM, ETHERTYPE_IP, lookup_interface_index());
    if (fd == -1) {
        log_text(1, "DHCPv4: no valid raw socket");
    }
}

void dhcp::create_udp_socket() {
    descriptors::close(fd);
    raw_mode = false;
    fd = descriptors::open_socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (fd == -1) {
        return;
    }
    utils::set_nonblocking(fd);
    int const on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    utils::bind_to_device(fd, interface);
    ip_port local;
    local.port = dhcp_packet::client_port;
    sockaddr_in address;
    utils::conv4(local, address);
    (void)bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address);
}

void dhcp::send_dhcp_packet() {
    if (fd == -1) {
        return;
    }
    str const message = request.serialize();
    if (raw_mode) {
        packet_socket::send(fd, ETHERTYPE_IP, interface_index, packet_socket::broadcast_address(),
                            udp_frame::with_headers(message));
    } else {
        (void)utils::send_udp_packet(fd, server, message);  // A copy follows.
    }
}
