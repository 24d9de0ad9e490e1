#include "sim/sim.h"

#include "config/settings.h"
#include "dhcp/dhcp.h"
#include "dhcp/resolv_conf.h"

#include <map>
#include <set>
#include <sstream>

using namespace sim;

namespace {

constexpr int type_ip = 0x0800;
constexpr int type_arp = 0x0806;

bytes const our_mac = hex("0004aabbccdd");
bytes const our_address = hex("c0000232");  // 192.0.2.50
bytes const server_id = hex("3604 c0000201");
bytes const lease = server_id + hex("3304 00000e10 0104 ffffff00 0304 c0000201");  // 3600 s
bytes const headers = hex("4500000000000000 4011 0000 c0000201 ffffffff 0043 0044 0000 0000");
bytes const cookie = hex("63825363");
char const* const conflict = "0001080006040002 02a0b7999999 c0000232 0004aabbccdd c0000232";

dhcp& client() {
    return dhcp::clients.find_or_insert("eth1");
}

std::string state() {
    return dhcp::state_names[client().state];
}

bytes message(int type, bytes const& options) {
    return hex("02010600") + of(client().xid) + bytes(8, '\0') + our_address + bytes(8, '\0') +
           our_mac + bytes(10 + 64 + 128, '\0') + cookie + hex("3501") +
           big_endian(unsigned(type), 1) + options + '\xFF';
}

void answer(int type, bytes const& options) {
    frame_arrives("eth1", type_ip, headers + message(type, options));  // or, if that is not open:
    is_broadcast = true;
    datagram_arrives(68, message(type, options));
    is_broadcast = false;
    run_for(0);
}

void neighbour_says(std::string const& arp) {
    frame_arrives("eth1", type_arp, hex(arp));
    run_for(0);
}

bytes last_message() {
    auto last = sent.rbegin();
    while (last->protocol == type_arp) {
        ++last;
    }
    return last->protocol == type_ip ? last->data.substr(28) : last->data;
}

// The DHCP messages sent since the last look, as "DISCOVER" (broadcast on the packet socket) or
// "REQUEST to 192.0.2.1:67".
std::string messages() {
    static char const* const names[] = {"", "DISCOVER", "", "REQUEST", "DECLINE"};
    std::string text;
    for (packet const& each : take_sent()) {
        bool const is_raw = each.protocol == type_ip;
        if (each.protocol != type_arp) {
            text += text.empty() ? "" : ", ";
            text += names[int(each.data.at(is_raw ? 270 : 242))] + (is_raw ? "" : " to " + each.to);
        }
    }
    return text;
}

// Plays events, and seconds that pass, in order. Events: start, stop, offer, offer2 (of another
// server), ack, nak, inform, t1, t2 (the timers), conflict (an ARP reply for the offered address).
void play(std::string const& script) {
    static std::map<std::string, void (*)()> const known = {
        {"start", [] { client().start("eth1"); }},
        {"stop", [] { client().stop(); }},
        {"offer", [] { answer(2, server_id); }},
        {"offer2", [] { answer(2, hex("3604 c0000209")); }},
        {"ack", [] { answer(5, lease); }},
        {"nak", [] { answer(6, server_id); }},
        {"inform", [] { answer(8, server_id); }},
        {"t1", [] { dhcp::t1_callback("eth1"); }},
        {"t2", [] { dhcp::t2_callback("eth1"); }},
        {"conflict", [] { neighbour_says(conflict); }},
    };
    std::istringstream events(script);
    for (std::string event; events >> event;) {
        known.count(event) ? known.at(event)() : run_for(std::stod(event));
    }
}

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
    void after(std::string const& script) {
        SetUp();
        play(script);
    }
};

}  // namespace

TEST_F(dhcp_test, discover_is_a_broadcast_frame_with_these_bytes) {
    play("start");
    ASSERT_EQ(sent.size(), 1U);
    bytes const& data = sent[0].data;
    EXPECT_EQ(data.substr(28), hex("01010600") + of(client().xid) + bytes(20, '\0') + our_mac +
                                   bytes(10 + 64 + 128, '\0') + cookie + hex("350101 3d0701") +
                                   our_mac + hex("0c07") + "vorn-q7" +
                                   hex("370d 0103060c0f2a2b4243787d8485 3c07") + "vorn q7\xFF");
    EXPECT_EQ(sent[0].interface + " " + sent[0].to, "eth1 ffffffffffff");
    EXPECT_EQ(data.substr(0, 10), hex("4500 013a 0000 0000 8011"));
    EXPECT_EQ(data.substr(12, 14), hex("00000000 ffffffff 0044 0043 0126"));
}

TEST_F(dhcp_test, request_and_decline_name_the_offer_in_every_state) {
    bytes const ids = hex("3d0701") + our_mac + hex("3204 c0000232") + server_id;
    bytes const request = hex("350103") + ids + hex("0c07") + "vorn-q7" + hex("370d");
    bytes const none(4, '\0');
    for (auto const& [place, client_address, options] :
         table<std::string, bytes, bytes>{{"REQUESTING", none, request},
                                          {"RENEWING", our_address, request},
                                          {"REBINDING", our_address, request},
                                          {"held INIT", none, hex("350104") + ids + hex("ff00")}}) {
        after(way_to.at(place));
        EXPECT_EQ(last_message().substr(12, 4), client_address) << place;
        EXPECT_EQ(last_message().substr(240, options.size()), options) << place;
    }
}

TEST_F(dhcp_test, parsing_keeps_what_there_is_of_damaged_options) {
    // sname holds option 66 and an overload that must not count, file another option 66.
    bytes const sname_file =
        hex("420151 340101") + bytes(58, '\0') + hex("4201f1 34010200") + bytes(121, '\0');
    for (auto const& [options, code, index, value] : table<char const*, int, int, char const*>{
             {"00 00 06 02 0102 ff", 6, 0, "0102"},  // pads are skipped
             {"06 02 0102 ff 06 01 09", 6, 1, ""},   // nothing counts behind the end
             {"06 01 07 06 09 0102", 6, 1, "0102"},  // a code may stand twice, and be cut off
             {"34 01 01 ff", 66, 0, "f1"},           // overload: file
             {"34 01 02 ff", 66, 0, "51"},           // overload: sname
             {"34 01 03 42 01 07 ff", 66, 0, "51"},  // overload: sname, file, then the rest
             {"34 01 03 42 01 07 ff", 66, 2, "07"},
             {"34 01 00 34 01 01 ff", 66, 0, ""},       // the first one counts
             {"34 01 00 34 01 01 ff", 52, 0, "01"},     // a later one is like any other
             {"34 02 01 0c 01 55 ff", 12, 0, "55"}}) {  // its length counts as 1
        dhcp_packet const parsed(to_str(hex("02010600 01020304 0000 8000") + bytes(32, '\0') +
                                        sname_file + cookie + hex(options)));
        EXPECT_EQ(of(parsed.get_option(code, index)), hex(value)) << options;
        EXPECT_EQ(of(parsed.serialize()).substr(10, 2), hex("0000")) << "flags are never sent";
    }
}

TEST_F(dhcp_test, foreign_and_damaged_packets_are_dropped_and_copies_go_on) {
    play("start");
    bytes const good = headers + message(2, server_id);
    std::vector<bytes> packets = {good.substr(0, 267), bytes(good).replace(32, 4, "xids")};
    for (size_t const position : {9, 22, 23, 28, 267}) {  // protocol, port, type, cookie
        packets.push_back(bytes(good).replace(position, 1, "\x03"));
    }
    packets.push_back(good.substr(0, 268));  // a message, though without a type
    for (bytes const& each : packets) {
        EXPECT_TRUE(client().resend_timer.active);
        frame_arrives("eth1", type_ip, each);
        run_for(0);
        EXPECT_EQ(state(), "SELECTING");
    }
    EXPECT_FALSE(client().resend_timer.active);
}

TEST_F(dhcp_test, unanswered_messages_are_copied_every_3_or_5_seconds_for_ever) {
    play("start 3600");
    std::map<double, int> gaps;
    for (size_t i = 1; i < sent.size(); ++i) {
        double const gap = sent[i].at - sent[i - 1].at;
        gaps[gap] += 1;
        // `secs` counts from the copy before; all else but the checksum stays.
        EXPECT_EQ(sent[i].data.substr(36, 2), big_endian(unsigned(gap), 2));
        EXPECT_EQ(sent[i].data.substr(38), sent[0].data.substr(38));
    }
    EXPECT_EQ(gaps.size(), 2U);
    EXPECT_TRUE(gaps[3] > 100 && gaps[5] > 100);
}

TEST_F(dhcp_test, any_reply_with_our_xid_ends_the_copies) {
    play("start inform 100");
    EXPECT_EQ(messages(), "DISCOVER");
    play("offer 2 offer 100");
    EXPECT_EQ(messages(), "REQUEST, REQUEST") << "one more, the last";
}

TEST_F(dhcp_test, a_new_xid_is_drawn_for_discover_renewal_rebinding_and_decline_only) {
    std::set<bytes> xids;
    for (char const* step : {"start", "offer ack 1801", "1350", "nak", "offer conflict"}) {
        play(step);
        EXPECT_TRUE(xids.insert(last_message().substr(4, 4)).second) << step;
    }
    after("start");
    str const xid = client().xid;
    play("10 offer 10 ack");
    EXPECT_EQ(client().xid, xid);
}

TEST_F(dhcp_test, every_event_in_every_state_does_this) {
    // All other pairs change nothing and send nothing.
    std::map<std::string, std::string> const outcomes = {
        {"SELECTING offer", "REQUESTING: REQUEST"},
        {"SELECTING offer2", "REQUESTING: REQUEST"},
        {"SELECTING nak", "SELECTING: DISCOVER"},
        {"REQUESTING offer", "REQUESTING: REQUEST"},
        {"REQUESTING ack", "BOUND: "},
        {"REQUESTING conflict", "INIT: DECLINE"},
        {"BOUND t1", "RENEWING: REQUEST to 192.0.2.1:67"},
        {"BOUND conflict", "INIT: DECLINE"},
        {"RENEWING ack", "BOUND: "},
        {"RENEWING nak", "SELECTING: DISCOVER"},
        {"RENEWING t2", "REBINDING: REQUEST to 255.255.255.255:67"},
        {"REBINDING ack", "BOUND: "},
        {"REBINDING nak", "SELECTING: DISCOVER"},
        {"held INIT ack", "SELECTING: DISCOVER"},
        {"held INIT t2", "SELECTING: DISCOVER"},
    };
    for (auto const& [place, way] : way_to) {
        for (char const* event :
             {"offer", "offer2", "ack", "nak", "inform", "t1", "t2", "conflict"}) {
            after(way);
            std::string const before = state();
            messages();
            play(event);
            auto const found = outcomes.find(place + " " + event);
            std::string const expected = found == outcomes.end() ? before + ": " : found->second;
            EXPECT_EQ(state() + ": " + messages(), expected) << place << " " << event;
        }
    }
}

TEST_F(dhcp_test, start_leaves_a_bound_client_alone_and_stop_silences_any) {
    play("start offer ack start");
    EXPECT_EQ(state(), "BOUND");
    play("1801 start");
    EXPECT_TRUE(messages().ends_with("REQUEST to 192.0.2.1:67, DISCOVER"));
    EXPECT_EQ(configured["SIOCSIFADDR eth1"], "0.0.0.0");
    after("start offer conflict stop start");
    EXPECT_EQ(state(), "SELECTING") << "the conflict is over";
    for (auto const& [place, way] : way_to) {
        after(way + " stop");
        take_sent();
        play("10000");
        EXPECT_EQ(sent.size(), 0U) << place;
    }
}

TEST_F(dhcp_test, renewal_and_rebinding_come_a_second_after_t1_and_t2_and_keep_no_address) {
    for (auto const& [times, renewing, rebinding] : table<char const*, double, double>{
             {"3304 0000000a", 5, 8},  // rounded down to a multiple of 8
             {"3304 00000064 3a04 00000014 3b04 0000001e", 21, 31}}) {
        after("start offer");
        answer(5, server_id + hex(times));
        run_until(renewing - 0.01);
        EXPECT_EQ(state(), "BOUND") << times;
        run_until(renewing);
        EXPECT_EQ(state(), "RENEWING") << times;
        run_until(rebinding - 0.01);
        EXPECT_EQ(state() + " " + configured["SIOCSIFADDR eth1"], "RENEWING 192.0.2.50") << times;
        run_until(rebinding);
        datagram_arrives(68, message(5, lease));
        run_for(0);
        EXPECT_EQ(state(), "REBINDING") << "unicast does not arrive without an address";
        play("ack");
        EXPECT_EQ(state() + " " + configured["SIOCSIFADDR eth1"], "BOUND 0.0.0.0") << times;
    }
}

TEST_F(dhcp_test, t1_and_t2_are_unsigned) {
    after("start offer");
    answer(5, server_id + hex("3304 00000e10 3a04 ffffffff 3b04 80000000"));
    EXPECT_EQ(client().t2_timer.node->key - rtimestamp::now(), 2147483649 * 1000000000);
    EXPECT_EQ(client().t1_timer.node->key - rtimestamp::now(), 4294967296 * 1000000000);
    EXPECT_EQ(
        count_logged("7 DHCPv4: Lease duration is 3600 sec, renewing lease in 4294967295 sec"), 1);
}

TEST_F(dhcp_test, a_lease_without_a_positive_duration_never_ends) {
    for (char const* times : {"", "3304 ffffffff 3a04 00000014"}) {
        after("start offer ack 1801");  // with timers armed
        answer(5, server_id + hex(times));
        play("8640000");
        EXPECT_EQ(state(), "BOUND") << times;
    }
}

TEST_F(dhcp_test, time_servers_of_settings_and_lease_are_asked_once_known) {
    for (auto const& [setting, options, asked] : table<char const*, char const*, std::string>{
             {"192.0.2.6", "2a08 c0000209 c0000208", "192.0.2.6:123 192.0.2.9:123 "},
             {"192.0.2.7", "2a04 c0000209", ""},
             {"192.0.2.7", "2a03 c00002", "0.0.0.0:123 "},
             {"", "2a04 c0000209", ""}}) {
        ntp_server = setting;
        play("start offer");
        answer(5, lease + hex(options));
        play("stop");
        std::string requests;
        for (packet const& each : take_sent()) {
            requests += each.to.ends_with(":123") ? each.to + " " : "";
        }
        EXPECT_EQ(requests, asked) << options;
    }
}

TEST_F(dhcp_test, interface_and_globals_get_what_the_server_said) {
    for (auto const& [options, mask, broadcast, router] :
         table<char const*, char const*, char const*, std::string>{
             {"0104 fffffff0 1c04 c00002ff", "255.255.255.240", "192.0.2.255", "0.0.0.0"},
             {"0102 ffff", "255.255.0.0", "192.0.255.255", "0.0.0.0"},  // filled, computed
             {"0308 c0000201 c0000202 0608 c0000235 c6336435 0f05 6f72670000", "0.0.0.0", "0.0.0.0",
              "192.0.2.1"}}) {
        after("start offer");
        answer(5, hex(options));
        EXPECT_EQ(configured["SIOCSIFNETMASK eth1"], mask);
        EXPECT_EQ(configured["SIOCSIFBRDADDR eth1"], broadcast);
        EXPECT_EQ(configured["SIOCADDRT eth1"], router + " to 0.0.0.0/0.0.0.0 flags 3");
    }
    EXPECT_EQ(dynamic_dns4_server2 + dynamic_dns4_domain, "198.51.100.53org");
    EXPECT_EQ(describe(client().fd), "udp *:68 eth1 nonblocking reuse broadcast");
}

TEST_F(dhcp_test, an_offer_is_probed_three_times_and_announced_three_times) {
    play("start 2 offer ack 60");
    std::erase_if(sent, [](packet const& each) { return each.protocol != type_arp; });
    ASSERT_EQ(sent.size(), 6U);
    for (size_t i = 0; i < 6; ++i) {
        bytes const sender = i < 3 ? bytes(4, '\0') : our_address;
        EXPECT_EQ(sent[i].at, 2 + double(i));
        EXPECT_EQ(sent[i].data,
                  hex("0001080006040001") + our_mac + sender + bytes(6, '\0') + our_address);
    }
}

TEST_F(dhcp_test, only_another_hosts_reply_for_the_offered_address_is_a_conflict) {
    play("start offer");
    for (char const* harmless : {
             "0001080006040002 0004aabbccdd c0000232 0004aabbccdd c0000232",  // our own
             "0001080006040002 02a0b7999999 c0000233 0004aabbccdd c0000232",  // another address
             "0001080006040001 02a0b7999999 c0000232 000000000000 c0000232",  // a request
             "0001080006040002 02a0b7999999 c0000232 0004aabbccdd c00002",    // 27 bytes
         }) {
        neighbour_says(harmless);
        EXPECT_EQ(state(), "REQUESTING") << harmless;
    }
    play("ack 3 conflict");  // The probe is over.
    EXPECT_EQ(state(), "BOUND");
    after("start offer ack 2.99 conflict");
    EXPECT_EQ(describe(client().arp_fd), "closed");
    run_until(3151);
    EXPECT_TRUE(messages().ends_with("DECLINE, DISCOVER")) << "held until T2";
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

TEST_F(dhcp_test, damaged_packets_neither_crash_nor_cost_memory) {
    play("start");
    int type = 2;
    bytes const options = hex("340103") + lease + hex("0604 c0000235 1c02 c000");
    expect_survives_damage(message(type, options), [&](bytes const& damaged) {
        bytes reply = damaged;
        if (reply.size() > 242) {  // Else hardly any would get beyond the first tests.
            type = type == 2 ? 5 : type == 5 ? 6 : 2;
            reply.replace(0, 1, "\x02").replace(4, 4, of(client().xid));
            reply.replace(236, 7, cookie + hex("3501") + big_endian(unsigned(type), 1));
        }
        client().process_data(to_str(client().raw_mode ? headers + reply : reply));
        client().process_arp(to_str(damaged.substr(0, 40)));
        if (client().state == dhcp::state_bound || client().state == dhcp::state_init) {
            play("stop start");
        }
        log_records.clear();
    });
}

TEST_F(dhcp_test, renewals_allocate_nothing) {
    play("start offer");
    expect_allocates_nothing([] {
        answer(5, server_id + hex("3304 00000040"));  // 64 s
        ASSERT_EQ(state(), "BOUND");
        run_for(33);
        ASSERT_EQ(state(), "RENEWING");
    });
}
