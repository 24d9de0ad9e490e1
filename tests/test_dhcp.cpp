#include "sim/sim.h"

#include "config/settings.h"
#include "dhcp/dhcp.h"
#include "dhcp/resolv_conf.h"

using namespace sim;

namespace {

char const server_id[] = "3604c0000201";
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
    is_broadcast = false;
}

void damaged(int ether_type, bytes data, std::string const& position) {
    data[std::stoul(position)] ^= 3;
    frame_arrives("eth1", ether_type, data);
}

std::string seconds(timeout const& timer) {
    return std::to_string(timer.seconds());
}

events const world = {
    {"start", [](auto&) { client().start("eth1"); }},
    {"stop", [](auto&) { client().stop(); }},
    {"offer", [](auto&) { answer(bytes("350102") + server_id); }},
    {"offer2", [](auto&) { answer("3501023604c0000209"); }},  // of another server
    {"ack", [](auto& options) { answer("350105" + (options.empty() ? lease : options)); }},
    {"nak", [](auto&) { answer("350106"); }},
    {"inform", [](auto&) { answer("350108"); }},
    {"damaged", [](auto& position) { damaged(0x0800, frame("350102"), position); }},
    {"cut", [](auto& size) { frame_arrives("eth1", 0x0800, frame("").substr(0, stoul(size))); }},
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
    {"timers", [](auto&) { say(seconds(client().t1_timer) + "/" + seconds(client().t2_timer)); }},
    {"address",
     [](auto&) { say(configured["SIOCSIFADDR eth1"] + "/" + configured["SIOCSIFBRDADDR eth1"]); }},
};

std::map<std::string, std::string> const way_to = {
    {"NEW", ""},
    {"SELECTING", "start"},
    {"REQUESTING", "start offer"},
    {"BOUND", "start offer ack"},
    {"RENEWING", "start offer ack 1801"},
    {"REBINDING", "start offer ack 3151"},
    {"HELD", "start offer conflict"},
    {"STOPPED", "start offer ack stop"},
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
    client().request.xid = "xids";
    dhcp::resend_proc("eth1");
    EXPECT_EQ(sent[1].interface + " " + sent[1].to, "eth1 ffffffffffff");
    bytes const name_and_list = hex("0c07") + "vorn-q7" + hex("370d 0103060c0f2a2b4243787d8485");
    bytes const class_and_end = hex("3c07") + "vorn q7" + hex("7d0176ff00");
    EXPECT_BYTES(sent[1].data,
                 hex("4500013e 0000 0000 8011 39b0 00000000 ffffffff 0044 0043 012a d976") +
                     hex("01010600") + "xids" + bytes(20, '\0') + hex("0004aabbccdd") +
                     bytes(202, '\0') + hex("63825363 350101 3d07010004aabbccdd") + name_and_list +
                     class_and_end);
    bytes const ids = hex("3d07010004aabbccdd 3204c0000232 3604c0000201");
    for (auto const& [place, client_address, options] : table<char const*, char const*, bytes>{
             {"REQUESTING", "00000000", hex("350103") + ids + name_and_list},
             {"REBINDING", "c0000232", hex("350103") + ids + name_and_list},
             {"HELD", "00000000", hex("350104") + ids + hex("ff00")}}) {
        after(way_to.at(place));
        bytes const last = of(client().request.serialize());
        EXPECT_BYTES(last.substr(12, 4) + last.substr(240, options.size()),
                     hex(client_address) + options);
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
             {hex("340100 340101 ff"), 52, 0, "01"},          // A second one is like any other,
             {hex("340201 0c0155 ff"), 12, 0, "55"},  // the length of the first counts as 1.
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
        {"SELECTING offer", "0 REQUEST, probe, REQUESTING"},
        {"SELECTING offer2", "0 REQUEST, probe, REQUESTING"},
        {"SELECTING nak", "0 " + anew},
        {"REQUESTING offer", "0 REQUEST, REQUESTING"},
        {"REQUESTING ack", "0 BOUND"},
        {"REQUESTING conflict", "0 DECLINE, INIT, new xid"},
        {"BOUND t1", "0 REQUEST to 192.0.2.1:67, RENEWING, new xid"},
        {"BOUND conflict", "0 DECLINE, INIT, new xid"},
        {"RENEWING ack", "1801 BOUND"},
        {"RENEWING nak", "1801 " + anew},
        {"RENEWING t2", "1801 REQUEST to 255.255.255.255:67, REBINDING, new xid"},
        {"REBINDING ack", "3151 BOUND"},
        {"REBINDING nak", "3151 " + anew},
        {"HELD ack", "0 " + anew},
        {"HELD t2", "0 " + anew},
        {"HELD start", "0 " + anew},
        // Any reply with our transaction id ends the copies, but nothing else.
        {"SELECTING damaged:9 damaged:22 damaged:23 damaged:28 damaged:32 damaged:267", ""},
        {"SELECTING cut:268 100", "100 SELECTING"},
        {"SELECTING inform 100 log", "100 1 DHCPv4: receive type 8, SELECTING"},
        // Another protocol, a request, one for another address, our own reply.
        {"REQUESTING arp:3 arp:7 arp:17 mac:02A0B7999999 conflict", "0 REQUESTING"},
        {"BOUND 6 conflict start 1794.99 timers 0.01 address",
         "1 2 probe, 3 4 5 announcement, 1800.99 0/1350, 1801 REQUEST to 192.0.2.1:67, "
         "192.0.2.50/192.0.2.255, RENEWING, new xid"},
        {"RENEWING start address", "1801 DISCOVER, 0.0.0.0/0.0.0.0, SELECTING, new xid"},
        {"REBINDING ack address timers", "3151 0.0.0.0/0.0.0.0, 1801/3151, BOUND"},
        // By default, T1 and T2 are a second after 4 and 7 eighths of 10 / 8 * 8.
        {"REQUESTING ack:33040000000a timers", "0 5/8, BOUND"},
        {"REQUESTING ack:3304000000643a04000000143b040000001e timers", "0 21/31, BOUND"},
        {"RENEWING ack:ff timers", "1801 0/0, BOUND"},
        {"RENEWING ack:3304ffffffff3a0400000014 timers", "1801 0/0, BOUND"},
        {"REQUESTING ack:01020fff00 address", "0 192.0.2.50/240.0.255.255, BOUND"},
        {"REQUESTING ntp:192.0.2.7 ack:2a03c00002", "0 NTP to 0.0.0.0:123, BOUND"},
        {"REQUESTING ack:2a04c0000209", "0 BOUND"},
        {"NEW ntp:192.0.2.6 start offer ack:2a08c0000209c0000208 stop start offer ack:2a04c0000209",
         "0 NTP to 192.0.2.6:123, DISCOVER, REQUEST, probe, NTP to 192.0.2.9:123, DISCOVER, "
         "REQUEST, probe, BOUND, new xid"}};
    // All other pairs change nothing and send nothing.
    for (auto const& [place, way] : way_to) {
        for (char const* event :
             {"offer", "offer2", "ack", "nak", "inform", "t1", "t2", "conflict"}) {
            stories.emplace(place + " " + event, "");
        }
        after(way + " stop");
        EXPECT_EQ(play(world, "10000"), "") << "stop silences the client in " << place;
    }
    for (auto const& [script, story] : stories) {
        size_t const blank = script.find(' ');
        after(way_to.at(script.substr(0, blank)) + " state log journal");
        std::string const before = play(world, "state");
        EXPECT_EQ(play(world, script.substr(blank) + " state"), story.empty() ? before : story)
            << script;
    }
}

TEST_F(dhcp_test, copies_leave_every_3_or_5_seconds_for_ever) {
    client().start("eth1");
    run_for(3600);
    EXPECT_NEAR(sent.size(), 900, 60) << "both about as often";
    for (size_t i = 1; i < sent.size(); ++i) {
        double const gap = sent[i].at - sent[i - 1].at;
        EXPECT_TRUE(gap == 3 || gap == 5);
        // `secs` counts from the copy before; all else but the checksum stays.
        EXPECT_BYTES(sent[i].data.substr(36),
                     big_endian(unsigned(gap), 2) + sent[0].data.substr(38));
    }
}

TEST_F(dhcp_test, a_lease_is_logged_applied_and_published) {
    after("start log journal");
    EXPECT_EQ(play(world, "offer log ack:330400000e103a04ffffffff0104fffffff01c04c00002ff0308c0000"
                          "201c00002020608c0000235c63364350f056f72670000420574667470004304626f6f74 "
                          "log journal"),
              "0 REQUEST, probe, 9 DHCPv4: recv dhcp offer in state SELECTING, 7 DHCPv4 on eth1 "
              "goes to REQUESTING, 9 DHCPv4: Receive DHCP ACK in state REQUESTING, 7 DHCPv4: Lease "
              "duration is 3600 sec, renewing lease in 4294967295 sec, 7 DHCPv4 on eth1 goes to "
              "BOUND, 5 DHCPv4: Use IP address 192.0.2.50, 7 DHCPv4: Set TFTP server to tftp, 7 "
              "DHCPv4: Set Bootfile name to boot, write resolv.conf, write dhcp.info, SIOCSIFADDR "
              "eth1 192.0.2.50, SIOCSIFNETMASK eth1 255.255.255.240, SIOCSIFBRDADDR eth1 "
              "192.0.2.255, SIOCDELRT eth1 0.0.0.0 to 0.0.0.0/0.0.0.0 flags 2, SIOCADDRT eth1 "
              "192.0.2.1 to 0.0.0.0/0.0.0.0 flags 3");
    EXPECT_EQ(files["dhcp.info"].content, "option66: tftp\noption67: boot\ndhcp-server: 192.0.2.1");
    EXPECT_EQ(describe(client().fd), "udp *:68 eth1 nonblocking reuse broadcast");
    // Servers of one group and one domain: what is set, then what DHCPv6 tells.
    for (auto const& [variable, content] : table<str*, char const*>{
             {&dynamic_dns4_server3,
              "search org\nnameserver 192.0.2.53\nnameserver 198.51.100.53\nnameserver x\n"},
             {&dynamic_dns6_server1, "search org\nnameserver x\n"},
             {&dynamic_dns6_domain, "search x\nnameserver x\n"},
             {&static_dns_server4, "search x\nnameserver x\n"}}) {
        *variable = "x";
        write_resolv_conf();
        EXPECT_EQ(files["resolv.conf"].content, content);
    }
}
