#include "sim/sim.h"

#include "config/settings.h"
#include "dhcp/dhcp.h"
#include "dhcp/resolv_conf.h"

#include <functional>
#include <set>
#include <sstream>
#include <sys/select.h>

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
    datagram_arrives(68, message(type, options));
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
    std::istringstream events(script);
    for (std::string event; events >> event;) {
        static std::map<std::string, std::function<void()>> const known = {
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

// --- Messages ---

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
    for (auto const& [place, client_address, options] : table<std::string, bytes, bytes>{
             {"REQUESTING", bytes(4, '\0'), request},
             {"RENEWING", our_address, request},
             {"REBINDING", our_address, request},
             {"held INIT", bytes(4, '\0'), hex("350104") + ids + hex("ff00")}}) {
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
             {"06 01 07 06 01 08", 6, 1, "08"},      // a code may stand twice
             {"06 09 0102", 6, 0, "0102"},           // cut off
             {"34 01 01 ff", 66, 0, "f1"},           // overload: file
             {"34 01 02 ff", 66, 0, "51"},           // overload: sname
             {"34 01 03 42 01 07 ff", 66, 0, "51"},  // overload: sname, file, then the rest
             {"34 01 03 42 01 07 ff", 66, 2, "07"},
             {"34 02 01 0c 01 55 ff", 12, 0, "55"}}) {  // its length counts as 1
        dhcp_packet const parsed(to_str(hex("02010600 01020304 0000 8000") + bytes(32, '\0') +
                                        sname_file + cookie + hex(options)));
        EXPECT_EQ(of(parsed.get_option(code, index)), hex(value)) << options;
        EXPECT_EQ(of(parsed.flags), hex("8000"));
        EXPECT_EQ(of(parsed.serialize()).substr(10, 2), hex("0000")) << "flags are never sent";
    }
}

TEST_F(dhcp_test, foreign_and_damaged_packets_are_dropped_and_copies_go_on) {
    play("start");
    bytes const good = headers + message(2, server_id);
    std::vector<bytes> packets = {"\x45", good.substr(0, 267), bytes(good).replace(32, 4, "xids")};
    for (size_t const position : {9, 22, 23, 28, 267}) {  // protocol, port, type, cookie
        packets.push_back(bytes(good).replace(position, 1, "\x03"));
    }
    for (bytes const& each : packets) {
        EXPECT_TRUE(client().resend_timer.active && client().state == dhcp::state_selecting);
        frame_arrives("eth1", type_ip, each);
        run_for(0);
    }
    EXPECT_TRUE(client().resend_timer.active && client().state == dhcp::state_selecting);
    EXPECT_EQ(count_logged("7 DHCPv4: recv packet has no magic cookie"), 1);
    frame_arrives("eth1", type_ip, good.substr(0, 268));
    run_for(0);
    EXPECT_FALSE(client().resend_timer.active) << "240 bytes are a message, though without a type";
}

// --- Copies ---

TEST_F(dhcp_test, unanswered_messages_are_copied_every_3_or_5_seconds_for_ever) {
    play("start 3600");
    std::vector<packet> const copies = take_sent();
    std::map<double, int> gaps;
    for (size_t i = 1; i < copies.size(); ++i) {
        double const gap = copies[i].at - copies[i - 1].at;
        gaps[gap] += 1;
        // `secs` counts from the copy before; all else but the checksum stays.
        EXPECT_EQ(copies[i].data.substr(36, 2), big_endian(unsigned(gap), 2));
        EXPECT_EQ(copies[i].data.substr(28, 8) + copies[i].data.substr(38),
                  copies[0].data.substr(28, 8) + copies[0].data.substr(38));
    }
    EXPECT_EQ(gaps.size(), 2U);
    EXPECT_GT(gaps[3], 100);
    EXPECT_GT(gaps[5], 100);
}

TEST_F(dhcp_test, any_reply_with_our_xid_ends_the_copies) {
    for (auto const& [script, sent_messages] : table<char const*, char const*>{
             {"start inform 100", "DISCOVER"},
             {"start offer 2 offer2 100", "DISCOVER, REQUEST"},
             {"start offer 2 offer 100", "DISCOVER, REQUEST, REQUEST"}}) {  // one more, the last
        after(script);
        EXPECT_EQ(messages(), sent_messages);
    }
}

TEST_F(dhcp_test, a_new_xid_is_drawn_for_discover_renewal_rebinding_and_decline_only) {
    std::set<bytes> xids;
    size_t drawn = 0;
    for (char const* step : {"start", "offer ack 1801", "1350", "nak", "offer conflict"}) {
        play(step);
        xids.insert(last_message().substr(4, 4));
        EXPECT_EQ(xids.size(), ++drawn) << step;
    }
    after("start 10");
    str const xid = client().xid;
    play("offer 10 ack");
    EXPECT_EQ(client().xid, xid);
}

// --- States ---

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
    after("start offer ack start");
    EXPECT_EQ(state(), "BOUND");
    play("1801 start");
    EXPECT_TRUE(messages().ends_with("REQUEST to 192.0.2.1:67, DISCOVER"));
    EXPECT_EQ(configured["SIOCSIFADDR eth1"], "0.0.0.0");
    after("start offer conflict stop start");
    EXPECT_TRUE(messages().ends_with("DECLINE, DISCOVER")) << "the conflict is over";
    for (auto const& [place, way] : way_to) {
        after(way + " stop");
        EXPECT_EQ(describe(client().fd), "closed");
        take_sent();
        play("10000");
        EXPECT_EQ(sent.size(), 0U) << place;
    }
}

TEST_F(dhcp_test, without_a_packet_socket_only_the_log_tells) {
    first_descriptor = FD_SETSIZE;  // fits no descriptor set
    play("start 100");
    EXPECT_EQ(count_logged("1 DHCPv4: no valid raw socket"), 1);
    EXPECT_EQ(sent.size(), 0U);
    EXPECT_EQ(open_descriptors(), 1) << "the log";
}

// --- Timers ---

TEST_F(dhcp_test, renewal_and_rebinding_come_a_second_after_t1_and_t2) {
    for (auto const& [times, renewing, rebinding] : table<char const*, double, double>{
             {"3304 00000e10", 1801, 3151},
             {"3304 0000000a", 5, 8},  // rounded down to a multiple of 8
             {"3304 00000064 3a04 00000014 3b04 0000001e", 21, 31}}) {
        after("start offer");
        answer(5, server_id + hex(times));
        messages();
        run_until(renewing - 0.01);
        EXPECT_EQ(state() + messages(), "BOUND") << times;
        run_until(renewing);
        EXPECT_EQ(state() + " " + messages(), "RENEWING REQUEST to 192.0.2.1:67") << times;
        run_until(rebinding - 0.01);
        EXPECT_EQ(state() + " " + configured["SIOCSIFADDR eth1"], "RENEWING 192.0.2.50") << times;
        run_until(rebinding);
        EXPECT_EQ(state() + " " + configured["SIOCSIFADDR eth1"], "REBINDING 0.0.0.0") << times;
        EXPECT_TRUE(messages().ends_with("REQUEST to 255.255.255.255:67"));
    }
}

TEST_F(dhcp_test, a_lease_without_a_positive_duration_never_ends) {
    for (char const* times : {"", "3304 00000000", "3304 ffffffff 3a04 00000014"}) {
        after("start offer ack 1801");  // with timers armed
        answer(5, server_id + hex(times));
        messages();
        play("8640000");
        EXPECT_EQ(state() + messages(), "BOUND") << times;
    }
}

// --- The lease ---

TEST_F(dhcp_test, a_lease_reaches_interface_files_and_globals) {
    play("start offer");
    EXPECT_EQ(describe(client().fd), "packet 2048 eth1 nonblocking");
    take_journal();
    answer(5, lease + hex("060c c0000235 c6336435 cb007135 0f0d") + bytes("example.org\0\0", 13) +
                  hex("4205 7466747000 4308") + "boot.bin");
    EXPECT_EQ(take_journal(),
              (lines{"write resolv.conf", "write dhcp.info", "SIOCSIFADDR eth1 192.0.2.50",
                     "SIOCSIFNETMASK eth1 255.255.255.0", "SIOCSIFBRDADDR eth1 192.0.2.255",
                     "SIOCDELRT eth1 0.0.0.0 to 0.0.0.0/0.0.0.0 flags 2",
                     "SIOCADDRT eth1 192.0.2.1 to 0.0.0.0/0.0.0.0 flags 3"}));
    EXPECT_EQ(dynamic_dns4_server3 + dynamic_dns4_domain + assigned_option_66 + assigned_option_67,
              "203.0.113.53example.orgtftpboot.bin");
    EXPECT_EQ(describe(client().fd), "udp *:68 eth1 nonblocking reuse broadcast");
}

TEST_F(dhcp_test, the_interface_gets_what_the_server_said) {
    for (auto const& [options, mask, broadcast, wanted_routes] :
         table<char const*, char const*, char const*, lines>{
             {"0104 fffffff0 1c04 c00002ff", "255.255.255.240", "192.0.2.255", {}},
             {"0104 fffffff0", "255.255.255.240", "192.0.2.63", {}},  // computed
             {"0102 ffff", "255.255.0.0", "192.0.255.255", {}},       // zero-filled
             {"0308 c0000201 c0000202", "0.0.0.0", "0.0.0.0", {"eth1 192.0.2.1"}}}) {
        after("start offer");
        answer(5, hex(options));
        EXPECT_EQ(configured["SIOCSIFNETMASK eth1"], mask);
        EXPECT_EQ(configured["SIOCSIFBRDADDR eth1"], broadcast);
        EXPECT_EQ(routes, wanted_routes);
    }
}

TEST_F(dhcp_test, an_ack_after_rebinding_does_not_put_the_address_back) {
    play("start offer ack 3151 ack");
    EXPECT_EQ(state() + " " + configured["SIOCSIFADDR eth1"], "BOUND 0.0.0.0");
    messages();
    play("1801");
    EXPECT_EQ(messages(), "REQUEST to 255.255.255.255:67");
}

// --- The conflict check ---

TEST_F(dhcp_test, an_offer_is_probed_three_times_and_announced_three_times) {
    play("start 2 offer ack 60");
    int count = 0;
    for (packet const& each : take_sent()) {
        if (each.protocol == type_arp) {
            bytes const sender = count < 3 ? bytes(4, '\0') : our_address;
            EXPECT_EQ(each.at, 2 + count++);
            EXPECT_EQ(each.data,
                      hex("0001080006040001") + our_mac + sender + bytes(6, '\0') + our_address);
            EXPECT_EQ(each.interface + " " + each.to, "eth1 ffffffffffff");
        }
    }
    EXPECT_EQ(count, 6);
    EXPECT_EQ(describe(client().arp_fd), "closed");
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
}

TEST_F(dhcp_test, a_late_conflict_declines_and_holds_the_client_until_t2) {
    play("start offer ack 2.99 conflict");
    EXPECT_EQ(describe(client().arp_fd), "closed");
    messages();
    run_until(3150.99);
    std::string const copies = messages();
    EXPECT_EQ(copies.find("DISCOVER"), std::string::npos);
    EXPECT_GT(copies.size(), 600 * sizeof "DECLINE");
    run_until(3151);
    EXPECT_TRUE(messages().ends_with("DISCOVER"));
    play("offer");  // A new probe begins.
    EXPECT_EQ(client().arp_count, 1);
}

// --- Files for other programs ---

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

// --- Robustness ---

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
        play(client().state == dhcp::state_bound  ? "stop start"
             : client().state == dhcp::state_init ? "start"
                                                  : "");
        take_sent();
        take_journal();
        log_records.clear();
    });
}

TEST_F(dhcp_test, ten_thousand_renewals_allocate_nothing) {
    play("start offer");
    answer(5, server_id + hex("3304 00000040"));  // 64 s
    unsigned int allocated = 0;
    for (int i = 0; i < 10000; ++i) {
        if (i == 100) {  // warm
            allocated = str::allocated_size;
            allocations = 0;
        }
        run_for(33);
        ASSERT_EQ(state(), "RENEWING");
        answer(5, server_id + hex("3304 00000040"));
        ASSERT_EQ(state(), "BOUND");
        take_sent();
        log_records.clear();
    }
    EXPECT_EQ(str::allocated_size, allocated);
    EXPECT_EQ(allocations, 0);
}
