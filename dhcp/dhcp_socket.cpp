// The sockets of the DHCPv4 client, and the headers it writes itself on the packet socket:
//   IPv4 (RFC 791, 3.1)                      UDP (RFC 768)
//   offset  size  field                      offset  size  field
//        0     1  0x45: version 4, 5 words        0     2  source port: 68
//        1     1  type of service: 0              2     2  destination port: 67
//        2     2  total length                    4     2  length
//        4     4  identification, fragment: 0     6     2  checksum, over a pseudo-header,
//        8     1  TTL: 128                                 header and message
//        9     1  protocol: 17, UDP
//       10     2  header checksum
//       12     4  source: 0.0.0.0
//       16     4  destination: 255.255.255.255
#include "dhcp/dhcp.h"

#include "config/settings.h"
#include "core/log.h"
#include "lib/descriptors.h"
#include "lib/packet_socket.h"
#include "lib/utils.h"

#include <net/ethernet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int ip_header_length = 20;
constexpr int udp_header_length = 8;
constexpr int time_to_live = 128;

// The Internet checksum (RFC 1071); an odd last byte counts as the high one.
str checksum(str const& bytes) {
    unsigned int sum = 0;
    for (int i = 0; i < bytes.length(); i += 2) {
        sum += bytes[i] * 256U + bytes[i + 1];
    }
    while (sum >> 16) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return utils::int2str(~sum, 2);
}

str ip_header(int payload_length) {
    str const length = utils::int2str(unsigned(ip_header_length + payload_length), 2);
    str const before = utils::int2str(0x4500, 2) + length + str('\0', 4) +
                       utils::int2str(time_to_live << 8 | IPPROTO_UDP, 2);
    str const addresses = c_0_0_0_0 + str('\xFF', 4);
    return before + checksum(before + addresses) + addresses;
}

str udp_datagram(str const& message) {
    str const length = utils::int2str(unsigned(udp_header_length + message.length()), 2);
    str const ports =
        utils::int2str(dhcp_packet::client_port, 2) + utils::int2str(dhcp_packet::server_port, 2);
    str const pseudo_header = c_0_0_0_0 + str('\xFF', 4) + utils::int2str(IPPROTO_UDP, 2) + length;
    str sum = checksum(pseudo_header + ports + length + message);
    if (utils::str2int(sum) == 0) {
        sum = str('\xFF', 2);  // Zero means "no checksum" (RFC 768).
    }
    return ports + length + sum + message;
}

}  // namespace

int dhcp::lookup_interface_index() {
    if (interface_index == 0) {
        interface_index = get_interface_index(interface);
    }
    return interface_index;
}

void dhcp::close_socket() {
    if (fd != -1) {
        close(fd);
        fd = -1;
    }
}

void dhcp::create_raw_socket() {
    close_socket();
    raw_mode = true;
    fd = packet_socket::open(SOCK_DGRAM, ETHERTYPE_IP, lookup_interface_index());
    if (fd == -1 && log_level >= 1) {
        log_add_message(1, "DHCPv4: no valid raw socket", str::null);
    }
}

void dhcp::create_udp_socket() {
    close_socket();
    raw_mode = false;
    fd = descriptors::open_socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (fd < 0) {
        fd = -1;
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
    if (!raw_mode) {
        utils::send_udp_packet(fd, server, message);
        return;
    }
    str const datagram = udp_datagram(message);
    packet_socket::send(fd, ETHERTYPE_IP, interface_index, packet_socket::broadcast_address(),
                        ip_header(datagram.length()) + datagram);
}
