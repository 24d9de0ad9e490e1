#include "sim/sim.h"

#include "config/settings.h"
#include "dhcp/dhcp.h"
#include "dhcp/resolv_conf.h"
#include "lib/utils.h"

using namespace sim;

namespace {

bytes const our_mac = hex("0004aabbccdd");
bytes const our_address = hex("c0000232");  // 192.0.2.50
bytes const server_id = hex("3604 c0000201");
char const lease[] = "3604c0000201330400000e100104ffffff000304c0000201";  // 3600 s
bytes const cookie = hex("63825363");

dhcp& client() {
    return dhcp::clients.find_or_insert("eth1");
}

bytes message(int type, bytes const& options) {
    return hex("02010600") + of(client().xid) + bytes(8, '\0') + our_address + bytes(8, '\0') +
           our_mac + bytes(10 + 64 + 128, '\0') + cookie + hex("3501") +
           big_endian(unsigned(type), 1) + options + '\xFF';
}

bytes framed(bytes const& payload) {
    return hex("4500000000000000 4011 0000 c0000201 ffffffff 0043 0044 0000 0000") + payload;
}

void answer(int type, bytes const& options) {
    frame_arrives("eth1", 0x0800, framed(message(type, options)));  // or, if that is not open:
    is_broadcast = true;
    datagram_arrives(68, message(type, options));
    is_broadcast = false;
}

void arp(std::string const& digits) {
    frame_arrives("eth1", 0x0806, hex(digits));
}

events const world = {
    {"start", [](auto&) { client().start("eth1"); }},
    {"stop", [](auto&) { client().stop(); }},
    {"offer", [](auto&) { answer(2, server_id); }},
    {"offer2", [](auto&) { answer(2, hex("3604 c0000209")); }},  // of another server
    {"ack", [](auto& options) { answer(5, hex(options.empty() ? lease : options)); }},
    {"unicast", [](auto&) { datagram_arrives(68, message(5, hex(lease))); }},
    {"nak", [](auto&) { answer(6, server_id); }},
    {"inform", [](auto&) { answer(8, server_id); }},
    {"t1", [](auto&) { dhcp::t1_callback("eth1"); }},
    {"t2", [](auto&) { dhcp::t2_callback("eth1"); }},
    {"conflict", [](auto&) { arp("000108000604000202a0b7999999c00002320004aabbccddc0000232"); }},
    {"arp", [](auto& frame) { arp(frame); }},
    {"state", [](auto&) { say(dhcp::state_names[client().state]); }},
    {"address", [](auto&) { say(configured["SIOCSIFADDR eth1"]); }},
};

// What leads to a state.
std::map<std::string, std::string> const way_to = {
    {"SELECTING", "start"},
    {"REQUESTING", "start offer"},
    {"BOUND", "start offer ack"},
    {"RENEWING", "start offer ack 1801"},
    {"REBINDING", "start offer ack 3151"},
    {"held INIT", "start offer conflict"},
    {"stopped INIT", "start offer ack stop"},
};

class dhcp_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        ntp_server.clear();  // or the first address starts a request for its name
        mac_addr = "0004AABBCCDD";
    }
    std::string after(std::string const& script) {
        SetUp();
        return play(world, script);
    }
};

}  // namespace

TEST_F(dhcp_test, messages_have_these_bytes) {
    client().vendor_options = "v";
    client().start("eth1");
    bytes const data = sent.at(0).data;
    EXPECT_BYTES(data.substr(28), hex("01010600") + of(client().xid) + bytes(20, '\0') + our_mac +
                                      bytes(10 + 64 + 128, '\0') + cookie + hex("350101 3d0701") +
                                      our_mac + hex("0c07") + "vorn-q7" +
                                      hex("370d 0103060c0f2a2b4243787d8485 3c07") + "vorn q7" +
                                      hex("7d01") + "v\xFF" + '\0');
    EXPECT_EQ(sent[0].interface + " " + sent[0].to, "eth1 ffffffffffff");
    EXPECT_BYTES(data.substr(0, 26),
                 hex("4500 013e 0000 0000 8011 39b0 00000000 ffffffff 0044 0043 012a"));
    unsigned int sum = 17 + unsigned(data.size()) - 20;  // of the pseudo header, RFC 768
    for (size_t i = 12; i < data.size(); i += 2) {
        sum += utils::number_at(to_str(data), int(i), 2);
    }
    EXPECT_EQ((sum & 0xFFFF) + (sum >> 16), 0xFFFFU);

    bytes const ids = hex("3d0701") + our_mac + hex("3204 c0000232") + server_id;
    bytes const request = hex("350103") + ids + hex("0c07") + "vorn-q7" + hex("370d");
    for (auto const& [place, client_address, options] : table<std::string, bytes, bytes>{
             {"REQUESTING", bytes(4, '\0'), request},
             {"RENEWING", our_address, request},
             {"REBINDING", our_address, request},
             {"held INIT", bytes(4, '\0'), hex("350104") + ids + hex("ff00")}}) {
        after(way_to.at(place));
        bytes const last = of(client().request.serialize());
        EXPECT_BYTES(last.substr(12, 4), client_address) << place;
        EXPECT_BYTES(last.substr(240, options.size()), options) << place;
    }
}

TEST_F(dhcp_test, parsing_keeps_what_there_is_of_damaged_options) {
    // sname holds option 66 and an overload that must not count, file another option 66.
    bytes const sname_file =
        hex("420151 340101") + bytes(58, '\0') + hex("4201f1 34010200") + bytes(121, '\0');
    for (auto const& [options, code, index, value] : table<bytes, int, int, char const*>{
             {hex("00 00 06 02 0102 ff"), 6, 0, "0102"},  // pads are skipped
             {hex("06 02 0102 ff 06 01 09"), 6, 1, ""},   // nothing counts behind the end
             {hex("06 01 07 06 09 0102"), 6, 1, "0102"},  // a code may stand twice, and be cut off
             {hex("34 01 01 ff"), 66, 0, "f1"},           // overload: file
             {hex("34 01 02 ff"), 66, 0, "51"},           // overload: sname
             {hex("34 01 03 42 01 07 ff"), 66, 0, "51"},  // overload: sname, file, then the rest
             {hex("34 01 03 42 01 07 ff"), 66, 2, "07"},
             {hex("34 01 00 34 01 01 ff"), 66, 0, ""},    // the first one counts
             {hex("34 01 00 34 01 01 ff"), 52, 0, "01"},  // a later one is like any other
             {hex("34 02 01 0c 01 55 ff"), 12, 0, "55"},  // its length counts as 1
             {bytes(3853, '\0') + hex("0601"), 6, 0, ""},
             {bytes(3853, '\0') + hex("060107"), 6, 0, "07"},  // the last of 4,096 bytes
             {bytes(3854, '\0') + hex("060107"), 6, 0, ""}}) {
        dhcp_packet const parsed(to_str(hex("02010600 01020304 0000 8000") + bytes(32, '\0') +
                                        sname_file + cookie + options));
        EXPECT_EQ(to_hex(of(parsed.get_option(code, index))), value) << to_hex(options);
        EXPECT_BYTES(of(parsed.serialize()).substr(10, 2), hex("0000")) << "never sent";
    }
}

TEST_F(dhcp_test, foreign_packets_are_dropped_and_copies_go_on) {
    after("start");
    bytes const good = framed(message(2, server_id));
    std::vector<bytes> packets = {good.substr(0, 267), bytes(good).replace(32, 4, "xids")};
    for (size_t const position : {9, 22, 23, 28, 267}) {  // protocol, port, type, cookie
        packets.push_back(bytes(good).replace(position, 1, "\x03"));
    }
    packets.push_back(good.substr(0, 268));  // a message, though without a type
    for (bytes const& each : packets) {
        EXPECT_TRUE(client().resend_timer.active);
        frame_arrives("eth1", 0x0800, each);
        EXPECT_EQ(play(world, "state"), "0 SELECTING");
    }
    EXPECT_FALSE(client().resend_timer.active) << "any reply with our xid ends the copies";
}

TEST_F(dhcp_test, unanswered_messages_are_copied_every_3_or_5_seconds_for_ever) {
    client().start("eth1");
    run_for(3600);
    std::map<double, int> gaps;
    for (size_t i = 1; i < sent.size(); ++i) {
        double const gap = sent[i].at - sent[i - 1].at;
        gaps[gap] += 1;
        // `secs` counts from the copy before; all else but the checksum stays.
        EXPECT_BYTES(sent[i].data.substr(36, 2), big_endian(unsigned(gap), 2));
        EXPECT_BYTES(sent[i].data.substr(38), sent[0].data.substr(38));
    }
    EXPECT_TRUE(gaps.size() == 2 && gaps[3] > 100 && gaps[5] > 100);
}

TEST_F(dhcp_test, a_new_xid_is_drawn_for_discover_renewal_rebinding_and_decline_only) {
    std::map<bytes, std::string> xids;
    for (char const* step : {"start", "offer ack 1801", "1350", "nak", "offer conflict"}) {
        play(world, step);
        EXPECT_TRUE(xids.emplace(of(client().xid), step).second) << step;
    }
    after("start");
    str const xid = client().xid;
    play(world, "10 offer 10 ack");
    EXPECT_EQ(client().xid, xid);
}

TEST_F(dhcp_test, every_event_in_every_state_does_this) {
    // All other pairs change nothing and send nothing.
    std::map<std::string, std::string> const outcomes = {
        {"SELECTING offer", "0 REQUEST, probe, REQUESTING"},
        {"SELECTING offer2", "0 REQUEST, probe, REQUESTING"},
        {"SELECTING nak", "0 DISCOVER, SELECTING"},
        {"REQUESTING offer", "0 REQUEST, REQUESTING"},
        {"REQUESTING ack", "0 BOUND"},
        {"REQUESTING conflict", "0 DECLINE, INIT"},
        {"BOUND t1", "0 REQUEST to 192.0.2.1:67, RENEWING"},
        {"BOUND conflict", "0 DECLINE, INIT"},
        {"RENEWING ack", "1801 BOUND"},
        {"RENEWING nak", "1801 DISCOVER, SELECTING"},
        {"RENEWING t2", "1801 REQUEST to 255.255.255.255:67, REBINDING"},
        {"REBINDING ack", "3151 BOUND"},
        {"REBINDING nak", "3151 DISCOVER, SELECTING"},
        {"held INIT ack", "0 DISCOVER, SELECTING"},
        {"held INIT t2", "0 DISCOVER, SELECTING"},
    };
    for (auto const& [place, way] : way_to) {
        for (std::string const event :
             {"offer", "offer2", "ack", "nak", "inform", "t1", "t2", "conflict"}) {
            after(way);
            std::string const before = play(world, "state");
            auto const found = outcomes.find(place + " " + event);
            EXPECT_EQ(play(world, event + " state"),
                      found == outcomes.end() ? before : found->second)
                << place << " " << event;
        }
        after(way + " stop");
        EXPECT_EQ(play(world, "10000"), "") << "stop silences the client in " << place;
    }
}

TEST_F(dhcp_test, leases_begin_and_end_like_this) {
    std::string const options = "0104fffffff01c04c00002ff0308c0000201c00002020608c0000235c6336435"
                                "0f056f72670000420574667470004304626f6f74";
    tell(world,
         {{"start inform 100 offer 2 offer 100",
           "0 DISCOVER, 100 REQUEST, 100 101 102 probe, REQUEST, 103 104 105 announcement"},
          {"start offer ack start 1801 unicast state start address",
           "0 DISCOVER, REQUEST, 0 1 2 probe, 3 4 5 announcement, 1801 REQUEST to 192.0.2.1:67, "
           "BOUND, 192.0.2.50"},
          {"start offer ack 1801 start address state",
           "0 DISCOVER, REQUEST, 0 1 2 probe, 3 4 5 announcement, 1801 REQUEST to 192.0.2.1:67, "
           "DISCOVER, 0.0.0.0, SELECTING"},
          // T1 and T2 by default: a second after 4 and 7 eighths of 10 / 8 * 8.
          {"start offer inform 5 ack:33040000000a 4.99 state 0.01 address 2.99 state 0.01 "
           "unicast "
           "state "
           "ack address state",
           "0 DISCOVER, REQUEST, 0 1 2 probe, 3 4 5 announcement, 9.99 BOUND, 10 REQUEST to "
           "192.0.2.1:67, 192.0.2.50, 12.99 RENEWING, 13 REQUEST to 255.255.255.255:67, REBINDING, "
           "0.0.0.0, BOUND"},
          {"start offer inform 5 ack:3304000000643a04000000143b040000001e 20.99 state ack 0.01 "
           "state",
           "0 DISCOVER, REQUEST, 0 1 2 probe, 3 4 5 announcement, 25.99 BOUND, 26 REQUEST to "
           "192.0.2.1:67, RENEWING"},
          {"start offer ack 1801 ack:ff 8640000 state",
           "0 DISCOVER, REQUEST, 0 1 2 probe, 3 4 5 announcement, 1801 REQUEST to 192.0.2.1:67, "
           "8641801 BOUND"},
          {"start offer ack 1801 ack:3304ffffffff3a0400000014 8640000 state",
           "0 DISCOVER, REQUEST, 0 1 2 probe, 3 4 5 announcement, 1801 REQUEST to 192.0.2.1:67, "
           "8641801 BOUND"},
          {"start offer ack 6 conflict state",
           "0 DISCOVER, REQUEST, 0 1 2 probe, 3 4 5 announcement, 6 BOUND"},
          {"start offer ack conflict stop start state",
           "0 DISCOVER, REQUEST, probe, DECLINE, DISCOVER, SELECTING"},
          {"start offer "  // our own reply, one for another address, a request, 27 bytes
           "arp:00010800060400020004aabbccddc00002320004aabbccddc0000232 "
           "arp:000108000604000202a0b7999999c00002330004aabbccddc0000232 "
           "arp:000108000604000102a0b7999999c0000232000000000000c0000232 "
           "arp:000108000604000202a0b7999999c00002320004aabbccddc00002 state",
           "0 DISCOVER, REQUEST, probe, REQUESTING"},
          {"start offer journal ack:01020fff00 address journal",
           "0 DISCOVER, REQUEST, probe, SIOCSIFADDR eth1 0.0.0.0, SIOCSIFNETMASK eth1 0.0.0.0, "
           "SIOCSIFBRDADDR eth1 0.0.0.0, SIOCDELRT eth1 0.0.0.0 to 0.0.0.0/0.0.0.0 flags 2, "
           "SIOCADDRT eth1 0.0.0.0 to 0.0.0.0/0.0.0.0 flags 3, 192.0.2.50, write dhcp.info, "
           "SIOCSIFADDR eth1 192.0.2.50, SIOCSIFNETMASK eth1 15.255.0.0, SIOCSIFBRDADDR eth1 "
           "240.0.255.255, SIOCDELRT eth1 0.0.0.0 to 0.0.0.0/0.0.0.0 flags 2, SIOCADDRT eth1 "
           "0.0.0.0 to 0.0.0.0/0.0.0.0 flags 3"},
          {"start log offer ack:3604c00002013304000000643a0400000014" + options + " log",
           "0 DISCOVER, 7 DHCPv4 on eth1 goes to INIT, 7 DHCPv4 on eth1 goes to SELECTING, "
           "REQUEST, probe, 9 DHCPv4: recv dhcp offer in state SELECTING, 7 DHCPv4 on eth1 goes to "
           "REQUESTING, 9 DHCPv4: Receive DHCP ACK in state REQUESTING, 7 DHCPv4: Lease duration "
           "is 100 sec, renewing lease in 20 sec, 7 DHCPv4 on eth1 goes to BOUND, 5 DHCPv4: Use IP "
           "address 192.0.2.50, 7 DHCPv4: Set TFTP server to tftp, 7 DHCPv4: Set Bootfile name to "
           "boot"}});
    EXPECT_EQ(files["resolv.conf"].content,
              "search org\nnameserver 192.0.2.53\nnameserver 198.51.100.53\n");
    EXPECT_EQ(files["dhcp.info"].content, "option66: tftp\noption67: boot\ndhcp-server: 192.0.2.1");
    EXPECT_EQ(configured["SIOCSIFBRDADDR eth1"] + ", " + configured["SIOCADDRT eth1"],
              "192.0.2.255, 192.0.2.1 to 0.0.0.0/0.0.0.0 flags 3");
    EXPECT_EQ(describe(client().fd), "udp *:68 eth1 nonblocking reuse broadcast");
}

TEST_F(dhcp_test, t1_and_t2_are_unsigned) {
    after("start offer ack:330400000e103a04ffffffff3b0480000000");
    EXPECT_EQ(client().t2_timer.node->key - rtimestamp::now(), 2147483649 * 1000000000);
    EXPECT_EQ(client().t1_timer.node->key - rtimestamp::now(), 4294967296 * 1000000000);
    EXPECT_EQ(
        count_logged("7 DHCPv4: Lease duration is 3600 sec, renewing lease in 4294967295 sec"), 1);
}

TEST_F(dhcp_test, time_servers_of_settings_and_lease_are_asked_once_known) {
    std::string const begun = "0 DISCOVER, REQUEST, probe";
    for (auto const& [setting, options, asked] : table<char const*, std::string, std::string>{
             {"192.0.2.6", "2a08c0000209c0000208",
              "0 NTP to 192.0.2.6:123, DISCOVER, REQUEST, probe, NTP to 192.0.2.9:123"},
             {"192.0.2.7", "2a04c0000209", begun},
             {"192.0.2.7", "2a03c00002", begun + ", NTP to 0.0.0.0:123"},
             {"", "2a04c0000209", begun}}) {
        ntp_server = setting;
        EXPECT_EQ(play(world, "start offer ack:" + options + " stop"), asked) << options;
    }
}

TEST_F(dhcp_test, resolv_conf_names_one_group_of_servers_and_the_first_domain) {
    static_dns_domain = "s";
    dynamic_dns6_domain = "6";
    dynamic_dns4_domain = "4";
    static_dns_server2 = "s2";
    dynamic_dns6_server1 = "[2001:db8::53]";
    dynamic_dns4_server1 = "a";
    dynamic_dns4_server3 = "b";
    for (auto const& [emptied, content] : table<str*, char const*>{
             {&dynamic_dns4_server4, "search s\nnameserver s2\n"},
             {&static_dns_server2, "search s\nnameserver [2001:db8::53]\n"},
             {&static_dns_domain, "search 6\nnameserver [2001:db8::53]\n"},
             {&dynamic_dns6_server1, "search 6\nnameserver a\nnameserver b\n"}}) {
        emptied->clear();
        write_resolv_conf();
        EXPECT_EQ(files["resolv.conf"].content, content);
    }
    take_journal();
    write_resolv_conf();
    EXPECT_EQ(take_journal(), (lines{"read resolv.conf", "read dhcp.info"})) << "nothing to write";
}
