#include "sim/sim.h"

#include "config/settings.h"
#include "dhcp/dhcp.h"
#include "dns/dns_resolver.h"
#include "ntp/ntp_client.h"

#include <cerrno>
#include <cmath>

using namespace sim;

namespace {

// What was sent since the last look, as "5000 192.0.2.9:123" (a request) or "5000 AAAA" (a query);
// in ms since the moment.
std::string events(double since = 0) {
    std::string text;
    for (packet const& each : take_sent()) {
        bool const is_request = each.data[0] == '\x1B';
        text += (text.empty() ? "" : ", ") + std::to_string(std::lround((each.at - since) * 1000)) +
                " " +
                (is_request                 ? each.to
                 : each.data.end()[-3] == 1 ? "A"
                                            : "AAAA");
    }
    return text;
}

void start(int index, char const* server) {
    ntp[index].server = server;
    ntp[index].start_client();
}

void reply(int index, unsigned int seconds = 0, size_t length = 48) {
    bytes const data = bytes(40, '\x5A') + big_endian(seconds, 4) + bytes(4, '\xFF');
    datagram_arrives_at(ntp[index].socket, data.substr(0, length),
                        ntp[index].ipv6 ? "2001:db8::9" : "192.0.2.9");
    run_for(0);
}

// Answers the query sent last, with an address or with none.
void dns_answer(bytes const& data) {
    bytes const query = take_sent().back().data;
    bytes const record = hex("c00c") + query.substr(query.size() - 4) + big_endian(300, 4) +
                         big_endian(unsigned(data.size()), 2) + data;
    datagram_arrives_at(dns_socket4, query.substr(0, 2) + hex("8180 0001") +
                                         big_endian(!data.empty(), 2) + bytes(4, '\0') +
                                         query.substr(12) + (data.empty() ? "" : record));
    run_for(0);
}

class ntp_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        use_dhcp = str::f;
        static_dns_server1 = "192.0.2.1";
    }
};

}  // namespace

TEST_F(ntp_test, a_request_has_these_bytes_and_goes_to_the_servers_port) {
    for (auto const& [server, to] :
         table<char const*, char const*>{{" 192.0.2.9 : 1123", "192.0.2.9:1123"},
                                         {"192.0.2.9:0", "192.0.2.9:123"},
                                         {"[2001:db8::9]", "[2001:db8::9]:123"},
                                         {"[2001:db8::9]:1123", "[2001:db8::9]:1123"}}) {
        SetUp();
        start(2, server);
        EXPECT_EQ(sent.at(0).to, to);
        EXPECT_EQ(sent[0].data, hex("1b") + bytes(23, '\0') + hex("80034bc0") + bytes(20, '\0'));
    }
    start(0, ":123");
    EXPECT_FALSE(ntp[0].timer.active);
}

TEST_F(ntp_test, a_silent_server_is_asked_five_times_an_hour) {
    std::string wanted;
    for (char const* at : {"0", "5000", "10000", "15000", "20000", "3620000", "3625000"}) {
        wanted += (wanted.empty() ? "" : ", ") + std::string(at) + " 192.0.2.9:123";
    }
    start(1, "192.0.2.9");
    run_until(3625);
    EXPECT_EQ(events(), wanted);
    EXPECT_EQ(count_logged("5 NTP: server 192.0.2.9 timed out"), 0) << "it was not selected";
    SetUp();
    fail("socket", EMFILE);
    start(1, "192.0.2.9");
    repair();
    run_for(5);
    EXPECT_EQ(events(now()), "0 192.0.2.9:123");
}

TEST_F(ntp_test, a_reply_of_44_bytes_sets_the_clock_for_an_hour) {
    for (auto const& [seconds, clock] :
         table<unsigned int, unsigned int>{{3913056000U, 1704067201U},
                                           {0xFFFFFFFFU, 2085978496U},
                                           {61505151U, 2147483648U},       // 2038
                                           {2208988798U, 0xFFFFFFFFU}}) {  // 2106
        SetUp();
        start(0, "192.0.2.9");
        run_for(3);
        take_journal();
        reply(0, seconds, 43);
        reply(0, seconds, 44);
        EXPECT_EQ(take_journal(), lines{"settimeofday " + std::to_string(time_t(clock))});
        events();
        run_for(3605);
        EXPECT_EQ(events(3), "3600000 192.0.2.9:123, 3605000 192.0.2.9:123");
    }
}

TEST_F(ntp_test, the_first_client_to_be_answered_is_selected_until_it_times_out) {
    start(0, "192.0.2.7");
    start(1, "192.0.2.8");
    run_until(1);
    start(2, "192.0.2.9");
    events();
    reply(1, 0, 43);
    for (int client : {1, 0, 2}) {
        reply(client);
    }
    EXPECT_EQ(count_logged("8 NTP: Use server 192.0.2.8"), 1);
    run_until(3620.99);
    EXPECT_EQ(events(3601), "0 192.0.2.8:123, 5000 192.0.2.8:123, 10000 192.0.2.8:123, "
                            "15000 192.0.2.8:123");
    EXPECT_EQ(count_logged("5 NTP: server 192.0.2.8 timed out"), 0);
    run_until(3626);
    EXPECT_EQ(count_logged("5 NTP: server 192.0.2.8 timed out"), 1);
    EXPECT_EQ(events(3621), "0 192.0.2.8:123, 4000 192.0.2.7:123, 5000 192.0.2.9:123");
    take_journal();
    reply(2);
    reply(1);
    EXPECT_EQ(count_logged("8 NTP: Use server 192.0.2.9"), 1);
    EXPECT_EQ(take_journal().size(), 1U);
    run_for(3590);
    EXPECT_EQ(events(), "");
}

TEST_F(ntp_test, a_named_server_is_looked_up_and_asked_once) {
    for (auto const& [v6, v4, to] : table<char const*, char const*, std::string>{
             {"20010db8000000000000000000000009", "", "0 [2001:db8::9]:123"},
             {"", "c0000209", "0 192.0.2.9:123"},
             {"", "", ""}}) {
        SetUp();
        start(2, "ntp.org:1123");
        dns_answer(hex(v6));
        if (hex(v6).empty()) {
            EXPECT_EQ(sent.at(0).data.end()[-3], 1) << "now type A";
            dns_answer(hex(v4));
        }
        EXPECT_EQ(count_logged("1 NTP: DNS resolution for ntp.org failed"), to.empty());
        EXPECT_EQ(events(), to) << "the default port";
        run_until(100000);
        EXPECT_EQ(events(3600).substr(0, 6), to.empty() ? "0 AAAA" : "");
        if (!to.empty()) {
            reply(2);
            run_for(3600);
            EXPECT_EQ(events(now()), "0 AAAA");
        }
    }
}

TEST_F(ntp_test, what_the_resolver_knows_needs_no_query) {
    for (auto const& [server, wanted] :
         table<char const*, char const*>{{"alias.org", "0 [::9]:123"},
                                         {"v4.org", "0 192.0.2.9:123"},
                                         {"self.org", ""},
                                         {"circle.org", ""}}) {
        SetUp();
        for (auto const& [name, target] :
             table<char const*, char const*>{{"alias.org", "v6.org"},
                                             {"self.org", "self.org"},
                                             {"circle.org", "2.org"},
                                             {"2.org", "circle.org"}}) {
            dns_services.add_cache(name, target, 300, dns_resolver::type_cname);
        }
        dns_services.add_cache("v6.org", "[::9]", 300, dns_resolver::type_aaaa);
        dns_services.add_cache("v4.org", "", 300, dns_resolver::type_aaaa);
        dns_services.add_cache("v4.org", "192.0.2.9", 300, dns_resolver::type_a);
        start(0, server);
        EXPECT_EQ(events(), wanted) << server;
        start(1, "192.0.2.8");
        reply(1);
        events();
        start(0, server);
        EXPECT_EQ(events(), "") << "another client is selected";
        run_until(3599);
        EXPECT_EQ(ntp[0].timer.active, *wanted == 0) << "asked once, or failed";
        events();
        run_until(3600);
        EXPECT_EQ(events(3600).ends_with("0 AAAA"), *wanted == 0) << server;
    }
}

TEST_F(ntp_test, an_answer_that_leaves_nothing_is_waited_upon_but_silence_is_not) {
    // Names count in lower case; the final dot is not part of them on the wire.
    for (char const* name : {"NTP.org", "ntp.org."}) {
        SetUp();
        start(0, name);
        for (int i = 0; i < 3; ++i) {
            double const answered = now();
            dns_answer(hex("20010db8000000000000000000000009"));
            run_for(5);
            EXPECT_EQ(sent.size(), 1U);
            EXPECT_EQ(sent.at(0).at, answered + 5);
        }
        events();
        double const asked = now();
        run_for(19.49);
        events();
        run_for(0.01);
        EXPECT_EQ(events(asked), "19500 AAAA") << "given up, and asked anew";
    }
}

TEST_F(ntp_test, clients_0_and_1_are_started_by_a_lease) {
    mac_addr = "0004AABBCCDD";
    bytes const lease = hex("3604 c0000201 3304 0000000a");
    bytes const ip_and_udp = hex("4500000000000000 4011 0000 c0000201 ffffffff 00430044 00000000");
    dhcp& client = dhcp::clients.find_or_insert("eth1");
    auto const receive = [&](unsigned int type, bytes const& options) {
        client.process_data(to_str((client.raw_mode ? ip_and_udp : "") + hex("02010600") +
                                   of(client.xid) + bytes(8, '\0') + hex("c0000232") +
                                   bytes(8, '\0') + hex("0004aabbccdd") + bytes(202, '\0') +
                                   hex("63825363 3501") + big_endian(type, 1) + lease + options));
    };
    for (auto const& [setting, options, wanted] : table<char const*, char const*, char const*>{
             {"192.0.2.6", "2a08 c0000209 c0000208", "192.0.2.6:123 192.0.2.9:123 "},
             {"192.0.2.7", "2a04 c0000209", ""},
             {"192.0.2.7", "", "0.0.0.0:123 "},
             {"", "2a04 c0000209", ""}}) {
        ntp_server = setting;
        client.start("eth1");
        receive(2, "");
        receive(5, hex(options));
        std::string requests;
        for (packet const& each : take_sent()) {
            requests += each.data[0] == '\x1B' ? each.to + " " : "";
        }
        EXPECT_EQ(requests, wanted) << options;
        client.stop();
    }
    EXPECT_EQ(count_logged("7 DHCPv4: Set NTP server to 192.0.2.9"), 1);
    EXPECT_EQ(start_manual_ntp_server(), 1);
}
