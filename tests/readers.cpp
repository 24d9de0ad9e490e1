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

bytes const headers = hex("4500000000000000 4011 0000 c0000201 ffffffff 0043 0044 0000 0000");

// The message that an answer leads to has its own length, however short the answer.
constexpr cost next_message = {.packet_bytes = 600};
// A lease configures and publishes a dozen things, and begins the address check.
constexpr cost lease = {.packet_bytes = 600, .records = 5};
// The DHCPv6 reply logs each of its servers. It lets two time clients begin; their question goes to
// all name servers, eight at most, and each socket that cannot be made nonblocking is logged.
constexpr cost lease6 = {.packets = 7, .packet_bytes = 900, .records = 12, .record_bytes = 1000};
// The first policy starts the clients of both address families.
constexpr cost policy = {.packets = 1, .packet_bytes = 600, .records = 2};
// An answer about a name lets the SNTP clients ask their next questions, of all name servers, or
// send a request. Each alias whose target cannot be leaves a record.
constexpr cost next_question = {
    .packets = 7, .packet_bytes = 900, .records = 6000, .record_bytes = 6000 * 60};
// The name of a file, as long as a path may be, stands in the log; a reader holds a window.
constexpr cost file_request = {.kept = 100 * 8192, .packet_bytes = 600, .record_bytes = 4096};
// Each EAP Request of a frame draws a response and a record; the frame is traced in hex.
constexpr cost requests = {
    .packets = 300, .packet_bytes = 20000, .records = 300, .record_bytes = 30000};

void begin_time(str const& server) {
    use_dhcp = str::f;
    static_dns_server1 = "192.0.2.1";
    static_dns_server3 = "[2001:db8::53]";
    ntp_server = server;
    start_manual_ntp_server();
}

places in_answer(bytes const&) {
    return {{0, big_endian(unsigned(dns_services.next_id) - 1, 2)}};
}

void reply_to_all(bytes const& data) {
    for (ntp_client const& each : ntp) {
        datagram_arrives_at(each.socket, data, each.ipv6 ? "2001:db8::9" : "192.0.2.9");
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

places in_frame(bytes const&) {
    return {{headers.size() + 4, of(client().xid)}};
}

places in_message(bytes const&) {
    return {{0, "\2"}, {4, of(client().xid)}, {236, hex("63825363")}};
}

// To whichever socket is open.
void message_to_client(bytes const& message) {
    client().raw_mode ? frame_arrives("eth1", 0x0800, (headers + message).substr(0, 1500))
                      : datagram_arrives(68, message);
}

void await_at_udp() {
    for (char const type : {2, 5}) {
        if (client().raw_mode) {
            bytes const reply = bytes(16, '\0') + hex("c0000232") + bytes(220, '\0');
            message_to_client(readers.at("DHCPv4").fitted(reply + hex("3604c0000201 3501") + type));
            run_for(0);
        }
    }
    dhcp::t1_callback("eth1");
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

places in_message6(bytes const& data) {
    return {{1, of(client6().message.transaction_id())}, {data.find("IAID"), of(client6().iaid)}};
}

// --- The switch, which guards its port ---

void begin_agent() {
    ntp_server.clear();
    ieee_802_1x_username = "base7";
    ieee_802_1x_password = "secret";
    lldp::clients.find_or_insert("eth1").start("eth1");
}

places in_lldp(bytes const&) {
    return {{0, hex("0180c200000e 02deadbeef00 88cc")}};
}

places in_eapol(bytes const& data) {
    return {{0, hex("0180c2000003 02deadbeef00 888e 0100")},
            {16, big_endian(unsigned(data.size()) - 18, 2)}};
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
places in_block(bytes const& data) {
    tftp_result const* const to = newest_transfer();
    unsigned int const block = to ? to->block + (data.size() > 1 && data[1] == 3) : 0;
    return {{2, big_endian(block, 2)}};
}

void block_arrives(bytes const& data) {
    tftp_result const* const to = newest_transfer();
    datagram_arrives_at(to ? to->socket : -1, data, "192.0.2.1");
}

places none(bytes const&) {
    return {};
}

}  // namespace

bytes reader::fitted(bytes data) const {
    for (auto const& [offset, part] : ours(data)) {
        size_t const start = std::min(offset, data.size());
        size_t const size = std::min(part.size(), data.size() - start);
        data.replace(start, size, part, 0, size);
    }
    return data;
}

void reader::arrive(bytes const& data) const {
    ether_type ? frame_arrives("eth1", ether_type, data) : take(data);
}

std::map<std::string, reader> const readers = {
    {"DNS",
     {0, next_question, [] { begin_time("pool.ntp.org"); }, in_answer,
      [](auto& data) { datagram_arrives_at(dns_socket4, data, "192.0.2.1"); }}},
    {"NTP", {0, {}, [] { begin_time("192.0.2.9"); }, none, reply_to_all}},
    {"DHCPv4 frame", {0x0800, lease, begin_dhcp, in_frame}},
    {"DHCPv4", {0, lease, begin_dhcp, in_message, message_to_client, await_at_udp}},
    {"ARP", {0x0806, next_message, begin_dhcp, none}},
    {"DHCPv6",
     {0, lease6, begin_dhcp6, in_message6,
      [](auto& data) { datagram_arrives(546, data, "fe80::1"); }, await_message6}},
    {"LLDP", {0x88CC, policy, begin_agent, in_lldp}},
    {"EAPOL", {0x888E, requests, begin_agent, in_eapol}},
    {"TFTP request", {0, file_request, begin_tftp, none, request}},
    {"TFTP transfer", {0, next_message, begin_tftp, in_block, block_arrives, await_block}},
};
