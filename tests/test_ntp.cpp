#include "sim/sim.h"

#include "config/settings.h"
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
    datagram_arrives_at(ntp[index].socket, data.substr(0, length), "192.0.2.9");
    run_for(0);
}

// Answers the query sent last with a record of the name asked for.
void dns_answer(unsigned int type, bytes const& data) {
    bytes const query = take_sent().back().data;
    datagram_arrives_at(dns_socket4, query.substr(0, 2) + hex("8180 0001 0001 0000 0000") +
                                         query.substr(12) + hex("c00c") + big_endian(type, 2) +
                                         hex("0001 0000012c") +
                                         big_endian(unsigned(data.size()), 2) + data);
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
    fail("socket", EMFILE);
    start(1, "192.0.2.9");
    repair();
    run_until(3625);
    EXPECT_EQ(events(), "5000 192.0.2.9:123, 10000 192.0.2.9:123, 15000 192.0.2.9:123, "
                        "20000 192.0.2.9:123, 3620000 192.0.2.9:123, 3625000 192.0.2.9:123");
    EXPECT_EQ(count_logged("5 NTP: server 192.0.2.9 timed out"), 0) << "it was not selected";
}

TEST_F(ntp_test, a_reply_of_44_bytes_sets_the_clock_for_an_hour) {
    for (auto const& [seconds, clock] :
         table<unsigned int, unsigned int>{{3913056000U, 1704067201U},
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
    for (int client : {1, 0, 2}) {
        reply(client);
    }
    EXPECT_EQ(count_logged("8 NTP: Use server 192.0.2.8"), 1);
    events();
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
    EXPECT_EQ(take_journal().size(), 1U);
}

TEST_F(ntp_test, what_the_resolver_knows_needs_no_query_and_is_asked_once) {
    for (auto const& [server, wanted] :
         table<char const*, char const*>{{"alias.org:1123", "0 [::9]:123"},  // the default port
                                         {"v4.org", "0 192.0.2.9:123"},
                                         {"circle.org", ""}}) {
        SetUp();
        dns_services.add_cache("alias.org", "v6.org", 300, dns_resolver::type_cname);
        dns_services.add_cache("circle.org", "2.org", 300, dns_resolver::type_cname);
        dns_services.add_cache("2.org", "circle.org", 300, dns_resolver::type_cname);
        dns_services.add_cache("v6.org", "[::9]", 300, dns_resolver::type_aaaa);
        dns_services.add_cache("v4.org", "", 300, dns_resolver::type_aaaa);
        dns_services.add_cache("v4.org", "192.0.2.9", 300, dns_resolver::type_a);
        start(0, server);
        EXPECT_EQ(events(), wanted) << server;
        run_until(3600);
        EXPECT_EQ(events(3600), *wanted ? "" : "0 AAAA") << server << ": failed, and asked anew";
        start(1, "192.0.2.8");
        reply(1);
        events();
        dns_services.add_cache("v6.org", "[::9]", 300, dns_resolver::type_aaaa);
        start(0, "v6.org");
        EXPECT_EQ(events(), "") << "another client is selected";
    }
}

TEST_F(ntp_test, answers_that_never_help_are_waited_upon_from_the_ninth_question_on) {
    for (bool const aliases : {false, true}) {  // ever new ones, or nothing under "NTP.org"
        SetUp();
        start(0, aliases ? "ntp.org" : "NTP.org");  // Answers count in lower case.
        unsigned int number = 0;
        auto const answer = [&] {
            aliases ? dns_answer(5, hex("04") + big_endian(0x61616161 + number++, 4) +
                                        hex("036f726700"))
                    : dns_answer(28, bytes(16, '\x20'));
        };
        for (int questions = 1; questions < 8; ++questions) {
            answer();
            EXPECT_EQ(sent.size(), 1U) << questions;
        }
        for (int waits = 0; waits < 3; ++waits) {
            answer();
            run_for(4.99);
            EXPECT_EQ(sent.size(), 0U);
            run_for(0.01);
            EXPECT_EQ(sent.size(), 1U);
        }
        ntp[0].use_server("other.org");
        EXPECT_EQ(sent.size(), 2U) << "another server does not wait";
    }
}

TEST_F(ntp_test, a_name_that_is_never_answered_is_asked_for_anew) {
    start(0, "ntp.org");
    run_for(19.49);
    events();
    run_for(0.01);
    EXPECT_EQ(events(), "19500 AAAA");
}
