#include "readers.h"

#include "config/setting_container.h"
#include "config/settings.h"
#include "dhcp/dhcp.h"
#include "dhcp6/dhcp6.h"
#include "lldp/lldp.h"
#include "ntp/ntp_client.h"
#include "tftp/tftp.h"

using namespace sim;

namespace {

constexpr size_t message_offset = 28;  // behind the headers of IPv4 and UDP

bytes unchanged(bytes const& data) {
    return data;
}

void nothing() {}

// --- DNS, asked by a time client ---

void begin_dns() {
    use_dhcp = str::f;
    static_dns_server1 = "192.0.2.1";
    static_dns_server3 = "[2001:db8::53]";
    ntp_server = "pool.ntp.org";
    start_manual_ntp_server();
}

// --- DHCPv4 and ARP ---

dhcp& client() {
    return dhcp::clients.find_or_insert("eth1");
}

void begin_dhcp() {
    mac_addr = "0004AABBCCDD";
    ntp_server.clear();
    client().start("eth1");
}

void frame_to_client(bytes const& frame) {
    frame_arrives("eth1", 0x0800, frame);
}

void reply(char type) {
    bytes const headers = hex("4500000000000000 4011 0000 c0000201 ffffffff 0043 0044 0000 0000");
    frame_to_client(headers + hex("02010600") + of(client().xid) + bytes(8, '\0') +
                    hex("c0000232") + bytes(216, '\0') + hex("63825363 3604c0000201 3501") + type);
    run_for(0);
}

void await_by_frame() {
    if (!client().raw_mode || client().state == dhcp::state_init) {
        client().stop();
        client().start("eth1");
    }
}

void await_at_udp() {
    if (client().raw_mode) {
        reply(2);
        reply(5);
    }
    dhcp::t1_callback("eth1");
}

void await_probe_answer() {
    if (client().arp_fd == -1) {
        client().stop();
        client().start("eth1");
        reply(2);
    }
}

// --- DHCPv6: awaits a REPLY and an ADVERTISE in turn ---

dhcp6& client6() {
    return dhcp6::clients.find_or_insert("eth1");
}

void begin_dhcp6() {
    mac_addr = "0004AABBCCDD";
    client6().start("eth1");
    run_for(3);
}

void await_message6() {
    bool const has_solicited = client6().state == dhcp6::state_solicit;
    client6().goto_state(has_solicited ? dhcp6::state_request : dhcp6::state_solicit);
}

bytes fitted6(bytes const& message) {
    bytes const ours = patched(message, 1, of(client6().message.transaction_id()));
    size_t const place = ours.find("IAID");
    return patched(ours, std::min(place, ours.size()), of(client6().iaid));
}

// --- The switch ---

void begin_agent() {
    mac_addr = "0004AABBCCDD";
    ntp_server.clear();
    lldp::clients.find_or_insert("eth1").start("eth1");
}

void begin_guarded_agent() {
    ieee_802_1x_username = "base7";
    ieee_802_1x_password = "secret";
    begin_agent();
}

// --- Time and files ---

void begin_ntp() {
    ntp_server = "192.0.2.9";
    start_manual_ntp_server();
}

void begin_tftp() {
    files["settings.xml"].content = "present";
    files["f"].content = bytes(10000, 'f');
    files["pipe"] = {"x", file::pipe};
    settings.init();
    http_username1 = "admin";
    http_password1 = "bluefern";
    tftp_enabled = true;
    init_tftp();
}

// Each from another peer.
void request(bytes const& packet) {
    static unsigned int peers = 0;
    datagram_arrives(69, packet, "192.0.2." + std::to_string(++peers % 250));
}

void await_block() {
    if (tftp_ports.count == 0) {
        request(hex("0002") + bytes("auth.txt\0octet\0", 15));
        run_for(0);
    }
}

tftp_result& transfer() {
    return tftp_ports.first()->value;
}

}  // namespace

bytes patched(bytes const& data, size_t offset, bytes const& part) {
    bytes result = data;
    for (size_t i = 0; i < part.size() && offset + i < data.size(); ++i) {
        result[offset + i] = part[i];
    }
    return result;
}

reader const readers[reader_count] = {
    {"DNS", datagram_max, begin_dns, nothing,
     [](bytes const& data) {
         return patched(data, 0, big_endian(unsigned(dns_services.next_id) - 1, 2));
     },
     [](bytes const& data) { datagram_arrives_at(dns_socket4, data); }, next_question},
    {"DHCPv4 frame", frame_max, begin_dhcp, await_by_frame,
     [](bytes const& data) { return patched(data, message_offset + 4, of(client().xid)); },
     frame_to_client, lease},
    {"DHCPv4", datagram_max, begin_dhcp, await_at_udp,
     [](bytes const& data) { return patched(data, 4, of(client().xid)); },
     [](bytes const& data) { datagram_arrives(68, data); }, lease},
    {"ARP", frame_max, begin_dhcp, await_probe_answer, unchanged,
     [](bytes const& data) { frame_arrives("eth1", 0x0806, data); }, next_message},
    {"DHCPv6", datagram_max, begin_dhcp6, await_message6, fitted6,
     [](bytes const& data) { datagram_arrives(546, data, "fe80::1"); }, lease6},
    {"LLDP", frame_max, begin_agent, nothing, unchanged,
     [](bytes const& data) { frame_arrives("eth1", 0x88CC, data); }, policy},
    {"EAPOL", frame_max, begin_guarded_agent, nothing, unchanged,
     [](bytes const& data) { frame_arrives("eth1", 0x888E, data); }, requests},
    {"NTP",
     datagram_max,
     begin_ntp,
     nothing,
     unchanged,
     [](bytes const& data) { datagram_arrives_at(ntp[0].socket, data, "192.0.2.9"); },
     {}},
    {"TFTP request", datagram_max, begin_tftp, nothing, unchanged, request, file_request},
    {"TFTP transfer", datagram_max, begin_tftp, await_block,
     [](bytes const& data) { return patched(data, 2, big_endian(transfer().block + 1, 2)); },
     [](bytes const& data) { datagram_arrives_at(transfer().socket, data); }, next_message},
};
