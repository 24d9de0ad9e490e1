#include "sim/sim.h"

#include "config/settings.h"
#include "dhcp6/dhcp6.h"
#include "ntp/ntp_client.h"

#include <cmath>

using namespace sim;

namespace {

bytes const duid = hex("0001 000a 0003 0001 0004aabbccdd");
bytes const wanted = hex("0006 000e 0015 0016 0017 0018 001f 0029 002a");
bytes const address = hex("20010db8 00000000 00000000 00000050");

dhcp6& client() {
    return *dhcp6::clients.find("eth1");
}

std::string state() {
    return dhcp6::state_names[client().state];
}

bytes option(unsigned int code, bytes const& value) {
    return big_endian(code, 2) + big_endian(unsigned(value.size()), 2) + value;
}

bytes elapsed(unsigned int milliseconds) {
    return option(8, big_endian(milliseconds, 2));
}

bytes ia_na(unsigned int t1, unsigned int t2, bytes const& adr = address) {
    bytes const lifetimes(8, '\1');
    return option(3, of(client().iaid) + big_endian(t1, 4) + big_endian(t2, 4) + option(13, "") +
                         option(5, adr + (adr.size() == 16 ? lifetimes : "")));
}

void receive(char type, bytes const& options) {
    datagram_arrives(546, type + of(client().message.transaction_id()) + options, "fe80::1");
    run_for(0);
}

void advertise(bytes const& status = "") {
    receive(2, option(2, "server") + ia_na(0, 0) + status);
}

void reply(unsigned int t1, unsigned int t2, bytes const& options = "") {
    receive(7, ia_na(t1, t2) + options);
}

// What was sent since the last look: "TYPE at SECONDS", equal types one after the other once.
std::string messages() {
    std::string text;
    for (packet const& each : take_sent()) {
        EXPECT_EQ(each.interface + " " + each.to, "eth1 [ff02::1:2]:547");
        std::string const type = std::to_string(int(each.data[0])) + " at";
        text += text.find(type) == std::string::npos ? (text.empty() ? "" : ", ") + type : "";
        text += " " + std::to_string(std::lround(each.at));
    }
    return text;
}

class dhcp6_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        ntp_server.clear();
        mac_addr = "0004AABBCCDD";
        dhcp6::clients.find_or_insert("eth1").start("eth1");
    }
    void bind(unsigned int t1, unsigned int t2) {
        SetUp();
        run_until(3);
        advertise();
        reply(t1, t2);
        ASSERT_EQ(state(), "BOUND");
        messages();
    }
};

}  // namespace

TEST_F(dhcp6_test, options_are_found_and_cut_short_where_the_message_ends) {
    bytes const servers = option(23, bytes(16, 'a')) + option(23, bytes(16, 'b'));
    dhcp6_packet const packet(to_str(hex("07123456") + servers + hex("0002 ffff 61")));
    EXPECT_EQ(of(packet.get_option(23, 1)), bytes(16, 'b'));
    EXPECT_EQ(packet.get_option(23, 2), str::null);
    EXPECT_EQ(packet.get_option(2), "a");
    EXPECT_EQ(packet.get_option(1), str::null);
    EXPECT_EQ(of(dhcp6_packet(to_str(hex("07123456 0002 0000"))).serialize()),
              hex("07123456 0002 0000"));
    EXPECT_EQ(dhcp6_packet("abc").serialize(), str::null);
}

TEST_F(dhcp6_test, the_messages_of_a_lease_have_these_bytes) {
    run_until(2.99);
    EXPECT_EQ(messages(), "");
    run_until(3);
    bytes const xid = of(client().xid);
    bytes const sent_ia = option(3, of(client().iaid) + big_endian(3600, 4) + big_endian(5400, 4));
    EXPECT_EQ(sent.at(0).data, "\1" + xid + duid + wanted + elapsed(3000) + sent_ia);
    EXPECT_EQ(describe(client().fd), "udp [*]:546 eth1 reuse nonblocking");
    run_until(4);
    EXPECT_EQ(sent.at(1).data, "\1" + xid + duid + wanted + elapsed(4000) + sent_ia);
    advertise();
    bytes const server_and = duid + option(2, "server");
    EXPECT_NE(of(client().xid), xid);
    EXPECT_EQ(sent.at(2).data,
              "\3" + of(client().xid) + server_and + elapsed(4000) + ia_na(0, 0) + wanted);
    reply(70, 71);
    run_until(75);
    EXPECT_EQ(sent.at(3).data.substr(4),
              server_and + elapsed(74000 - 65536) + ia_na(0, 0) + wanted);
    EXPECT_EQ(sent.at(4).data.substr(4),
              server_and + elapsed(75000 - 65536) + ia_na(0, 0) + wanted);
    EXPECT_EQ(messages(), "1 at 3 4, 3 at 4, 5 at 74, 6 at 75");
}

TEST_F(dhcp6_test, an_advertise_counts_without_status_text_and_with_server_and_address) {
    bytes const offer = option(2, "server") + option(3, "ia");
    for (auto const& [options, state_after, still_resends] : table<bytes, std::string, bool>{
             {offer, "REQUEST", true},
             {offer + option(13, hex("0000")), "REQUEST", true},
             {offer + option(13, hex("0000 6f6b")), "SOLICIT", true},
             {option(2, "s") + option(3, bytes(1023, 'i')), "REQUEST", true},
             {option(2, "s") + option(3, bytes(1024, 'i')), "SOLICIT", true},
             {option(3, "ia"), "SOLICIT", false},
             {option(2, "server"), "SOLICIT", false}}) {
        SetUp();
        run_until(3);
        receive(7, options);
        EXPECT_EQ(state(), "SOLICIT");
        receive(2, options);
        EXPECT_EQ(state(), state_after) << to_hex(options);
        EXPECT_EQ(client().resend_timer.active, still_resends) << to_hex(options);
    }
    datagram_arrives(546, hex("02 ffffff") + offer, "fe80::1");  // of another client
    run_for(0);
    EXPECT_EQ(state(), "SOLICIT");
}

TEST_F(dhcp6_test, a_reply_puts_the_address_on_the_interface_once) {
    run_until(3);
    advertise();
    receive(7, option(3, "none" + bytes(8, '\0') + option(5, address)) + option(24, hex("0161")));
    advertise();
    EXPECT_EQ(dynamic_dns6_domain, str::null);
    EXPECT_EQ(state(), "REQUEST");
    EXPECT_FALSE(client().resend_timer.active);
    take_journal();
    reply(10, 20);
    EXPECT_EQ(take_journal(), lines{"SIOCSIFADDR eth1 2001:db8::50/64"});
    EXPECT_TRUE(manual_ntp_started);
    run_until(13);
    receive(7, ia_na(10, 20, bytes(16, 'x')));
    EXPECT_EQ(state() + " " + std::to_string(client().renew_timer.seconds()), "BOUND 10");
    EXPECT_EQ(take_journal(), lines{});
    SetUp();
    run_until(3);
    advertise();
    receive(7, ia_na(10, 20, ""));
    EXPECT_EQ(state(), "BOUND");
}

TEST_F(dhcp6_test, renewal_times_have_defaults_and_an_infinity) {
    for (auto const& [t1, t2, renewal, rebinding] :
         table<unsigned int, unsigned int, int, int>{{0, 0, 3600, 5400},
                                                     {0xFFFFFFFF, 0, 0, 2147483646},
                                                     {0x60000000, 0, 0x60000000, 0x10000000},
                                                     {7, 0xFFFFFFFF, 7, 0}}) {
        bind(t1, t2);
        EXPECT_EQ(client().renew_timer.seconds(), renewal);
        EXPECT_EQ(client().rebind_timer.seconds(), rebinding);
    }
    bind(10, 12);
    run_until(15);
    EXPECT_EQ(state(), "REBIND");
    reply(10, 12);
    EXPECT_EQ(state(), "BOUND");
    bind(10, 100);
    run_until(103);
    EXPECT_EQ(messages(), "5 at 13 14 15 16, 1 at 77 78 79 80 103");
    bind(50, 100);
    client().start("eth1");
    run_until(6);
    EXPECT_EQ(state(), "RENEW");
}

TEST_F(dhcp6_test, a_global_address_makes_the_client_ask_for_configuration_only) {
    files["/proc/net/if_inet6"].content = "fe80000000000000020004fffeaabbcc 02 40 20 80 eth1\n"
                                          "\n00000000000000000000000000000001 01 80 10 80 lo\n"
                                          "20010db8000000000000000000000007 02 40 00 00 eth1\n";
    run_until(100);
    EXPECT_EQ(sent.at(0).data, "\13" + of(client().xid) + elapsed(3000) + duid + wanted);
    EXPECT_EQ(messages(), "11 at 3 4 5 6");
    EXPECT_EQ(count_logged("9 Detected IPv6 address 20010db8000000000000000000000007"), 1);
    receive(7, option(24, hex("05 766F696365 00")));
    EXPECT_EQ(dynamic_dns6_domain, "voice");
    EXPECT_EQ(state(), "STATELESS");
    client().start("eth1");
    run_for(3);
    EXPECT_EQ(state() + std::to_string(client().iaid.length()), "SOLICIT4");
}

TEST_F(dhcp6_test, a_reply_publishes_domain_dns_and_sntp_servers) {
    bytes const server2 = hex("20010db8") + bytes(11, '\0') + hex("54");
    bytes const options = option(24, hex("05 566F696365 02 6465 00 0161 00")) +
                          option(23, address + server2) + option(31, server2 + address);
    dynamic_dns6_server3 = "[2001:db8::9]";
    bind(10, 20);
    for (int const moment : {13, 23}) {
        run_until(moment);
        reply(10, 20, options);
    }
    EXPECT_EQ(files["resolv.conf"].content, "search voice.de\nnameserver [2001:db8::50]\n"
                                            "nameserver [2001:db8::54]\n");
    EXPECT_EQ(dynamic_dns6_server3, str::null);
    EXPECT_EQ(count_logged("7 DHCPv6: Set NTP server to [2001:db8::54]"), 1) << "once";
    receive(1, option(23, server2));
    EXPECT_EQ(dynamic_dns6_server1, "[2001:db8::54]");
}

TEST_F(dhcp6_test, damaged_messages_do_no_harm_and_cost_no_memory) {
    bind(10, 20);
    run_until(13);
    bytes const good = hex("07") + of(client().xid) + ia_na(0, 0) + option(23, address) +
                       option(24, hex("0161c000")) + option(31, address);
    expect_survives_damage(good, [](bytes const& data) {
        client().state = dhcp6::state_renew;
        datagram_arrives(546, data, "fe80::1");
        run_for(0);
    });
}

TEST_F(dhcp6_test, renewals_allocate_nothing) {
    bind(1000, 2000);
    expect_allocates_nothing([] {
        run_for(1000);
        ASSERT_EQ(state(), "RENEW");
        reply(1000, 2000);
    });
}
