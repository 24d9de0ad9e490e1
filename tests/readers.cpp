#include "readers.h"

#include "config/setting_container.h"
#include "config/settings.h"
#include "dhcp/dhcp.h"
#include "dhcp6/dhcp6.h"
#include "lldp/lldp.h"
#include "ntp/ntp_client.h"
#include "tftp/tftp.h"

#include <functional>

using namespace sim;

namespace {

bytes const headers = hex("4500000000000000 4011 0000 c0000201 ffffffff 0043 0044 0000 0000");

bytes unchanged(bytes const& data) {
    return data;
}

void nothing() {}

void at_socket(int fd, bytes const& data, std::string const& from) {
    if (fd != -1) {
        datagram_arrives_at(fd, data, from);
    }
}

// --- Names and time ---

void begin_time(str const& server) {
    use_dhcp = str::f;
    static_dns_server1 = "192.0.2.1";
    static_dns_server3 = "[2001:db8::53]";
    ntp_server = server;
    start_manual_ntp_server();
}

bytes fitted_answer(bytes const& data) {
    return patched(data, 0, big_endian(unsigned(dns_services.next_id) - 1, 2));
}

void reply_arrives(bytes const& data) {
    for (ntp_client const& each : ntp) {
        at_socket(each.socket, data, each.ipv6 ? "2001:db8::9" : "192.0.2.9");
    }
}

// --- DHCPv4 and ARP ---

dhcp& client() {
    return dhcp::clients.find_or_insert("eth1");
}

void begin_dhcp() {
    ntp_server.clear();
    client().start("eth1");
}

bytes fitted_frame(bytes const& data) {
    return patched(data, headers.size() + 4, of(client().xid));
}

bytes fitted_message(bytes const& data) {
    return patched(patched(patched(data, 0, "\2"), 4, of(client().xid)), 236, hex("63825363"));
}

void frame_to_client(bytes const& frame) {
    frame_arrives("eth1", 0x0800, frame);
}

// To whichever socket is open.
void message_to_client(bytes const& message) {
    client().raw_mode ? frame_to_client((headers + message).substr(0, frame_max))
                      : datagram_arrives(68, message);
}

void reply(char type) {
    message_to_client(fitted_message(bytes(16, '\0') + hex("c0000232") + bytes(220, '\0') +
                                     hex("3604c0000201 3501") + type));
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
    client6().start("eth1");
    run_for(3);
}

void await_message6() {
    bool const has_solicited = client6().state == dhcp6::state_solicit;
    client6().goto_state(has_solicited ? dhcp6::state_request : dhcp6::state_solicit);
}

bytes fitted6(bytes const& message) {
    bytes const ours = patched(message, 1, of(client6().message.transaction_id()));
    return patched(ours, std::min(ours.find("IAID"), ours.size()), of(client6().iaid));
}

// --- The switch, which guards its port ---

void begin_agent() {
    ntp_server.clear();
    ieee_802_1x_username = "base7";
    ieee_802_1x_password = "secret";
    lldp::clients.find_or_insert("eth1").start("eth1");
}

bytes fitted_tlvs(bytes const& data) {
    return patched(data, 0, hex("0180c200000e 02deadbeef00 88cc"));
}

bytes fitted_eap(bytes const& data) {
    return patched(data, 0,
                   hex("0180c2000003 02deadbeef00 888e 0100") +
                       big_endian(unsigned(data.size()) - 18, 2));
}

// --- Files ---

void begin_tftp() {
    files["settings.xml"].content = "present";
    files["f"].content = bytes(1200, 'f');
    files["long"].content = bytes(10000, 'f');
    files["pipe"] = {"x", file::pipe};
    settings.init();
    tftp_enabled = true;
    init_tftp();
}

// From one of many peers.
void request(bytes const& packet) {
    size_t const peer = std::hash<bytes>()(packet) % 250;
    datagram_arrives(69, packet, (peer % 4 ? "192.0.2." : "fe80::") + std::to_string(peer));
}

tftp_result const* newest_transfer() {
    tftp_result const* newest = nullptr;
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        newest = &each->value;
    }
    return newest;
}

void await_block() {
    if (tftp_ports.count == 0) {
        request(hex("0002") + bytes("auth.txt\0octet\0", 15));
        run_for(0);
    }
}

// The awaited block, or the acknowledgement of the one that was sent.
bytes fitted_block(bytes const& data) {
    tftp_result const* const to = newest_transfer();
    unsigned int const block = to ? to->block + (data.size() > 1 && data[1] == 3) : 0;
    return patched(data, 2, big_endian(block, 2));
}

void block_arrives(bytes const& data) {
    tftp_result const* const to = newest_transfer();
    at_socket(to ? to->socket : -1, data, "192.0.2.1");
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
    {"DNS", datagram_max, [] { begin_time("pool.ntp.org"); }, nothing, fitted_answer,
     [](bytes const& data) { at_socket(dns_socket4, data, "192.0.2.1"); }, next_question},
    {"DHCPv4 frame", frame_max, begin_dhcp, await_by_frame, fitted_frame, frame_to_client, lease},
    {"DHCPv4", datagram_max, begin_dhcp, await_at_udp, fitted_message, message_to_client, lease},
    {"ARP", frame_max, begin_dhcp, await_probe_answer, unchanged,
     [](bytes const& data) { frame_arrives("eth1", 0x0806, data); }, next_message},
    {"DHCPv6", datagram_max, begin_dhcp6, await_message6, fitted6,
     [](bytes const& data) { datagram_arrives(546, data, "fe80::1"); }, lease6},
    {"LLDP", frame_max, begin_agent, nothing, fitted_tlvs,
     [](bytes const& data) { frame_arrives("eth1", 0x88CC, data); }, policy},
    {"EAPOL", frame_max, begin_agent, nothing, fitted_eap,
     [](bytes const& data) { frame_arrives("eth1", 0x888E, data); }, requests},
    {"NTP", datagram_max, [] { begin_time("192.0.2.9"); }, nothing, unchanged, reply_arrives, {}},
    {"TFTP request", datagram_max, begin_tftp, nothing, unchanged, request, file_request},
    {"TFTP transfer", datagram_max, begin_tftp, await_block, fitted_block, block_arrives,
     next_message},
};
