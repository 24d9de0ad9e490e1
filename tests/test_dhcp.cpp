#include "sim/sim.h"

#include "config/settings.h"
#include "dhcp/dhcp.h"
#include "dhcp/resolv_conf.h"

using namespace sim;

namespace {

char const lease[] = "3604c0000201330400000e100104ffffff000304c0000201";  // 3600 s
char const reply_of_another[] = "000108000604000202a0b7999999c00002320004aabbccddc0000232";
str xid;  // seen last

dhcp& client() {
    return dhcp::clients.find_or_insert("eth1");
}

bytes frame(std::string const& options) {
    return hex("4500000000000000 4011 0000 c0000201 ffffffff 0043 0044 00000000 02010600") +
           of(client().xid) + bytes(8, '\0') + hex("c0000232") + bytes(8 + 16 + 64 + 128, '\0') +
           hex("63825363" + options) + '\xFF';
}

void answer(std::string const& options) {
    frame_arrives("eth1", 0x0800, frame(options));  // or, if that is not open:
    is_broadcast = true;
    datagram_arrives(68, frame(options).substr(28));
}

void damaged(int ether_type, bytes data, std::string const& position) {
    data[std::stoul(position)] ^= 3;
    frame_arrives("eth1", ether_type, data);
}

events const world = {
    {"start", [](auto&) { client().start("eth1"); }},
    {"stop", [](auto&) { client().stop(); }},
    {"offer", [](auto&) { answer("3501023604c0000201"); }},
    {"offer2", [](auto&) { answer("3501023604c0000209"); }},  // of another server
    {"ack", [](auto& options) { answer("350105" + (options.empty() ? lease : options)); }},
    {"nak", [](auto&) { answer("350106"); }},
    {"inform", [](auto&) { answer("350108"); }},
    {"damaged", [](auto& position) { damaged(0x0800, frame("350102"), position); }},
    {"conflict", [](auto&) { frame_arrives("eth1", 0x0806, hex(reply_of_another)); }},
    {"arp", [](auto& position) { damaged(0x0806, hex(reply_of_another), position); }},
    {"t1", [](auto&) { dhcp::t1_callback("eth1"); }},
    {"t2", [](auto&) { dhcp::t2_callback("eth1"); }},
    {"ntp", [](auto& server) { ntp_server = to_str(server); }},
    {"mac", [](auto& digits) { mac_addr = to_str(digits); }},
    {"state",
     [](auto&) {
         say(dhcp::state_names[client().state] + bytes(client().xid == xid ? "" : ", new xid"));
         xid = client().xid;
     }},
    {"to_t1", [](auto&) { say(std::to_string(client().t1_timer.seconds())); }},
    {"to_t2", [](auto&) { say(std::to_string(client().t2_timer.seconds())); }},
    {"address", [](auto&) { say(configured["SIOCSIFADDR eth1"]); }},
    // The ways to the states; to INIT that of a conflict, which holds the client there.
    {"SELECTING", [](auto&) { play(world, "start state log journal"); }},
    {"REQUESTING", [](auto&) { play(world, "SELECTING offer state log journal"); }},
    {"BOUND", [](auto&) { play(world, "REQUESTING ack state"); }},
    {"RENEWING", [](auto&) { play(world, "BOUND 1801 state"); }},
    {"REBINDING", [](auto&) { play(world, "BOUND 3151 state"); }},
    {"INIT", [](auto&) { play(world, "REQUESTING conflict state"); }},
};

struct dhcp_test : sim::test {
    void SetUp() override {
        test::SetUp();
        ntp_server.clear();  // or the first address starts a request for its name
        mac_addr = "0004AABBCCDD";
    }
};

}  // namespace

TEST_F(dhcp_test, a_discover_has_these_bytes_and_copies_leave_every_3_or_5_seconds) {
    client().vendor_options = "v";
    client().start("eth1");
    EXPECT_EQ(client().request.xid, client().xid);
    client().request.xid = "xids";
    dhcp::resend_proc("eth1");
    EXPECT_BYTES(sent[1].data,
                 hex("4500013e 0000 0000 8011 39b0 00000000 ffffffff 0044 0043 012a d976") +
                     hex("01010600") + "xids" + bytes(20, '\0') + hex("0004aabbccdd") +
                     bytes(202, '\0') + hex("63825363 350101 3d07010004aabbccdd 0c07") + "vorn-q7" +
                     hex("370d 0103060c0f2a2b4243787d8485 3c07") + "vorn q7" + hex("7d0176ff00"));
    EXPECT_EQ(sent[1].interface + " " + sent[1].to, "eth1 ffffffffffff");
    run_for(3600);
    ASSERT_NEAR(sent.size(), 900, 60) << "both about as often";
    double const gap = sent[800].at - sent[799].at;
    EXPECT_TRUE(gap == 3 || gap == 5);
    EXPECT_BYTES(sent[800].data.substr(36, 2), big_endian(unsigned(gap), 2))
        << "since the last copy";
}

TEST_F(dhcp_test, requests_and_declines_name_client_address_and_server) {
    bytes const ids = hex("3d07010004aabbccdd 3204c0000232 3604c0000201");
    bytes const request = hex("350103") + ids + hex("0c07") + "vorn-q7" + hex("370d");
    for (auto const& [place, client_address, options] : table<char const*, bytes, bytes>{
             {"REQUESTING", bytes(4, '\0'), request},
             {"RENEWING", hex("c0000232"), request},
             {"INIT", bytes(4, '\0'), hex("350104") + ids + hex("ff00")}}) {
        SetUp();
        play(world, place);
        bytes const last = of(client().request.serialize());
        EXPECT_BYTES(last.substr(12, 4), client_address) << place;
        EXPECT_BYTES(last.substr(240, options.size()), options) << place;
    }
}

TEST_F(dhcp_test, parsing_keeps_what_there_is_of_damaged_options) {
    bytes header;
    for (char i = 1; i <= 44; ++i) {
        header += i == 11 || i == 12 ? '\0' : i;  // Flags are never sent.
    }
    // sname holds option 66 and an overload that must not count, file another option 66.
    header += hex("420151 340101") + bytes(58, '\0') + hex("4201f1 34010200") + bytes(121, '\0') +
              hex("63825363");
    for (auto const& [options, code, index, value] : table<bytes, int, int, char const*>{
             {hex("0601 07 00 00 0609 0102"), 6, 1, "0102"},  // pads, and an option cut off
             {hex("0602 0102 ff 0601 09"), 6, 1, ""},         // nothing counts behind the end
             {hex("340101 ff"), 66, 0, "f1"},                 // overload: file,
             {hex("340102 ff"), 66, 0, "51"},                 // sname,
             {hex("340103 420107 ff"), 66, 2, "07"},          // both, then the rest
             {hex("340201 340101 ff"), 52, 0, "01"},          // The first one's length counts as 1.
             {bytes(3853, '\0') + hex("060107"), 6, 0, "07"},  // the last of 4,096 bytes
             {bytes(3854, '\0') + hex("060107"), 6, 0, ""}}) {
        dhcp_packet const parsed(to_str(header + options));
        EXPECT_EQ(to_hex(of(parsed.get_option(code, index))), value) << to_hex(options);
    }
    header += hex("060107ff");
    EXPECT_BYTES(of(dhcp_packet(to_str(header)).serialize()), header);
}

TEST_F(dhcp_test, every_event_in_every_state_does_this) {
    std::string const anew = "DISCOVER, SELECTING, new xid";
    std::map<std::string, std::string> stories = {
        {"SELECTING offer state", "0 REQUEST, probe, REQUESTING"},
        {"SELECTING offer2 state", "0 REQUEST, probe, REQUESTING"},
        {"SELECTING nak state", "0 " + anew},
        {"REQUESTING offer state", "0 REQUEST, REQUESTING"},
        {"REQUESTING ack state", "0 BOUND"},
        {"REQUESTING conflict state", "0 DECLINE, INIT, new xid"},
        {"BOUND t1 state", "0 REQUEST to 192.0.2.1:67, RENEWING, new xid"},
        {"BOUND t1 nak state", "0 REQUEST to 192.0.2.1:67, " + anew},
        {"BOUND conflict state", "0 DECLINE, INIT, new xid"},
        {"RENEWING ack state", "1801 BOUND"},
        {"RENEWING nak state", "1801 " + anew},
        {"RENEWING t2 state", "1801 REQUEST to 255.255.255.255:67, REBINDING, new xid"},
        {"REBINDING ack state", "3151 BOUND"},
        {"REBINDING nak state", "3151 " + anew},
        {"INIT ack state", "0 " + anew},
        {"INIT t2 state", "0 " + anew},
        {"INIT start state", "0 " + anew},
        {"SELECTING start journal", "0 DISCOVER"},
        // Any reply with our transaction id ends the copies, but nothing else.
        {"SELECTING damaged:9 damaged:22 damaged:23 damaged:28 damaged:32 damaged:267 state",
         "0 SELECTING"},
        {"SELECTING inform 100 log", "100 1 DHCPv4: receive type 8"},
        // Another protocol, a request, one for another address, our own reply.
        {"REQUESTING arp:3 arp:7 arp:17 mac:02A0B7999999 conflict state", "0 REQUESTING"},
        {"BOUND 6 conflict start 1794.99 to_t1 0.01 address",
         "1 2 probe, 3 4 5 announcement, 1800.99 0, 1801 REQUEST to 192.0.2.1:67, "
         "192.0.2.50"},
        {"REBINDING ack address to_t1", "3151 0.0.0.0, 1801"},
        // By default, T1 and T2 are a second after 4 and 7 eighths of 10 / 8 * 8.
        {"REQUESTING ack:33040000000a to_t1 to_t2", "0 5, 8"},
        {"REQUESTING ack:3304000000643a04000000143b040000001e to_t1 to_t2", "0 21, 31"},
        {"REQUESTING ack:330400000e103b0480000000 2 to_t2", "1 2 probe, 2147483647"},
        {"RENEWING ack:3304ffffffff3a0400000014 to_t1 to_t2 state", "1801 1801 0, BOUND"},
        {"REQUESTING ntp:192.0.2.7 ack:2a03c00002", "0 NTP to 0.0.0.0:123"},
        {"REQUESTING ack:2a04c0000209", ""},
        {"ntp:192.0.2.6 start offer ack:2a08c0000209c0000208 stop start offer ack:2a04c0000209",
         "0 NTP to 192.0.2.6:123, DISCOVER, REQUEST, probe, NTP to 192.0.2.9:123, DISCOVER, "
         "REQUEST, probe"}};
    // All other pairs change nothing and send nothing.
    for (std::string const silence :
         {"0 SELECTING", "0 REQUESTING", "0 BOUND", "1801 RENEWING", "3151 REBINDING", "0 INIT"}) {
        std::string const place = silence.substr(silence.find(' ') + 1);
        for (char const* event :
             {" offer", " offer2", " ack", " nak", " inform", " t1", " t2", " conflict"}) {
            stories.emplace(place + event + " state", silence);
        }
        stories.emplace(place + " stop 10000", "");
    }
    tell(world, {stories.begin(), stories.end()});
}

TEST_F(dhcp_test, a_lease_is_logged_applied_and_published) {
    EXPECT_EQ(
        play(world, "SELECTING offer ack:330400000e103a04ffffffff0104fffffff01c04c00002ff0308c0000"
                    "201c00002020608c0000235c63364350f056f72670000420574667470004304626f6f74 "
                    "log journal"),
        "0 REQUEST, probe, 9 DHCPv4: recv dhcp offer in state SELECTING, 7 DHCPv4 on eth1 goes to "
        "REQUESTING, 9 DHCPv4: Receive DHCP ACK in state REQUESTING, 7 DHCPv4: Lease duration is "
        "3600 sec, renewing lease in 4294967295 sec, 7 DHCPv4 on eth1 goes to BOUND, 5 DHCPv4: Use "
        "IP address 192.0.2.50, 7 DHCPv4: Set TFTP server to tftp, 7 DHCPv4: Set Bootfile name to "
        "boot, write resolv.conf, write dhcp.info, SIOCSIFADDR eth1 192.0.2.50, SIOCSIFNETMASK "
        "eth1 255.255.255.240, SIOCSIFBRDADDR eth1 192.0.2.255, SIOCDELRT eth1 0.0.0.0 to "
        "0.0.0.0/0.0.0.0 flags 2, SIOCADDRT eth1 192.0.2.1 to 0.0.0.0/0.0.0.0 flags 3");
    EXPECT_EQ(files["dhcp.info"].content, "option66: tftp\noption67: boot\ndhcp-server: 192.0.2.1");
    EXPECT_EQ(describe(client().fd), "udp *:68 eth1 nonblocking reuse broadcast");
    // Servers of one group and one domain: what is set, then what DHCPv6 tells.
    std::string const learnt = "search org\nnameserver 192.0.2.53\nnameserver 198.51.100.53\n";
    for (auto const& [variable, content] :
         table<str*, std::string>{{&dynamic_dns4_server3, learnt + "nameserver x\n"},
                                  {&dynamic_dns6_server1, "search org\nnameserver x\n"},
                                  {&dynamic_dns6_domain, "search x\nnameserver x\n"},
                                  {&static_dns_server4, "search x\nnameserver x\n"}}) {
        *variable = "x";
        write_resolv_conf();
        EXPECT_EQ(files["resolv.conf"].content, content);
    }
}
