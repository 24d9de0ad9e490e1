#include "dhcp/udp_frame.h"

#include "config/settings.h"
#include "dhcp/dhcp_packet.h"
#include "lib/utils.h"

namespace {

constexpr int ip_header_length = 20;
constexpr int udp_header_length = 8;
constexpr int protocol_offset = 9;
constexpr int destination_port_offset = 22;
constexpr int message_offset = 28;
constexpr int version_and_words = 0x45;
constexpr int time_to_live = 128;

// The Internet checksum (RFC 1071); an odd last byte counts as the high one.
str checksum(str const& bytes) {
    unsigned int sum = 0;
    for (int i = 0; i < bytes.length(); i += 2) {
        sum += utils::number_at(bytes, i, 2);
    }
    while (sum >> 16) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return utils::int2str(~sum, 2);
}

str addresses() {
    return c_0_0_0_0 + utils::int2str(0xFFFFFFFF, 4);
}

str ip_header(int payload_length) {
    str const before = utils::int2str(version_and_words, 1) + utils::int2str(0, 1) +
                       utils::int2str(unsigned(ip_header_length + payload_length), 2) +
                       utils::int2str(0, 4) + utils::int2str(time_to_live, 1) +
                       utils::int2str(IPPROTO_UDP, 1);
    return before + checksum(before + addresses()) + addresses();
}

str udp_datagram(str const& message) {
    str const length = utils::int2str(unsigned(udp_header_length + message.length()), 2);
    str const ports =
        utils::int2str(dhcp_packet::client_port, 2) + utils::int2str(dhcp_packet::server_port, 2);
    str const pseudo_header = addresses() + utils::int2str(IPPROTO_UDP, 2) + length;
    str sum = checksum(pseudo_header + ports + length + message);
    if (utils::str2int(sum) == 0) {
        sum = utils::int2str(0xFFFF, 2);  // Zero means "no checksum" (RFC 768).
    }
    return ports + length + sum + message;
}

}  // namespace

str udp_frame::with_headers(str const& message) {
    str const datagram = udp_datagram(message);
    return ip_header(datagram.length()) + datagram;
}

bool udp_frame::is_for_client(str const& packet) {
    return packet[protocol_offset] == IPPROTO_UDP &&
           utils::number_at(packet, destination_port_offset, 2) == dhcp_packet::client_port;
}

str udp_frame::message_of(str const& packet) {
    return packet.substr(message_offset);
}
