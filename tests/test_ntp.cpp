#include "sim/sim.h"

#include "config/settings.h"
#include "dns/dns_resolver.h"
#include "ntp/ntp_client.h"

#include <cerrno>

using namespace sim;

namespace {

void start(int index, std::string const& server) {
    ntp[index].server = to_str(server);
    ntp[index].start_client();
}

void reply(int index, unsigned int seconds = 0, size_t length = 48) {
    bytes const data = bytes(40, '\x5A') + big_endian(seconds, 4) + bytes(4, '\xFF');
    datagram_arrives_at(ntp[index].socket, data.substr(0, length), "192.0.2.9");
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

void cache(std::string const& name, dns_resolver::dns_type type, char const* value) {
    dns_services.add_cache(to_str(name), value, 300, type);
}

events const world = {
    {"start0", [](auto& server) { start(0, server); }},
    {"start1", [](auto& server) { start(1, server); }},
    {"start2", [](auto& server) { start(2, server); }},
    {"short", [](auto& seconds) { reply(0, unsigned(std::stoul(seconds)), 43); }},
    {"reply", [](auto& seconds) { reply(0, unsigned(std::stoul(seconds)), 44); }},
    {"reply0", [](auto&) { reply(0); }},
    {"reply1", [](auto&) { reply(1); }},
    {"reply2", [](auto&) { reply(2); }},
    {"nosocket", [](auto&) { fail("socket", EMFILE); }},
    {"repair", [](auto&) { repair(); }},
    {"aaaa", [](auto& name) { cache(name, dns_resolver::type_aaaa, "[::9]"); }},
    {"noaaaa", [](auto& name) { cache(name, dns_resolver::type_aaaa, ""); }},
    {"a", [](auto& name) { cache(name, dns_resolver::type_a, "192.0.2.9"); }},
    {"alias", [](auto& name) { cache(name, dns_resolver::type_cname, "v6.org"); }},
    {"circle",
     [](auto& name) {
         cache(name, dns_resolver::type_cname, "2.org");
         cache("2.org", dns_resolver::type_cname, name.c_str());
     }},
};

class ntp_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        use_dhcp = str::f;
        static_dns_server1 = "192.0.2.1";
    }
};

}  // namespace

TEST_F(ntp_test, servers_are_asked_like_this) {
    tell(world,
         {
             {"start2:192.0.2.9:1123 start1:192.0.2.9:0 start0:[2001:db8::9]:1123",
              "0 NTP to 192.0.2.9:1123, NTP to 192.0.2.9:123, NTP to [2001:db8::9]:1123"},
             {"start0::123 start0: 10000", ""},
             {"nosocket start1:192.0.2.9 repair 3625 log",
              "5 10 15 20 3620 3625 NTP to 192.0.2.9:123"},
             {"start0:192.0.2.9 3 short:3913056000 reply:3913056000 reply:61505151 "
              "reply:2208988798 journal 3605",
              "0 NTP to 192.0.2.9:123, 3 settimeofday 1704067201, settimeofday 2147483648, "
              "settimeofday 4294967295, 3603 3608 NTP to 192.0.2.9:123"},
             {"start0:192.0.2.7 start1:192.0.2.8 1 start2:192.0.2.9 reply1 reply0 reply2 3600 19 "
              "log 5 log journal reply2 reply1 journal log",
              "0 NTP to 192.0.2.7:123, NTP to 192.0.2.8:123, 1 NTP to 192.0.2.9:123, 3601 3606 "
              "3611 3616 NTP to 192.0.2.8:123, 3620 8 NTP: Use server 192.0.2.8, 3621 NTP to "
              "192.0.2.8:123, 3625 NTP to 192.0.2.7:123, 5 NTP: server 192.0.2.8 timed out, 3625 "
              "3625 settimeofday 2085978497, 8 NTP: Use server 192.0.2.9"},
             {"a:v4.org noaaaa:v4.org aaaa:v6.org alias:alias.org start0:alias.org:1123 "
              "start1:v4.org log",
              "0 NTP to [::9]:123, NTP to 192.0.2.9:123, 8 NTP: Trying to resolve alias.org, 8 "
              "NTP: Trying to resolve v4.org"},
             {"noaaaa:x.org start0:x.org 0.5", "0 0.5 A x.org to 192.0.2.1:53"},
             {"circle:x.org start0:x.org 3599 journal log 1",
              "3599 8 NTP: Trying to resolve x.org, 1 NTP: DNS resolution for x.org failed, 3600 "
              "AAAA x.org to 192.0.2.1:53"},
             {"start0:ntp.org 20",
              "0 0.5 1.5 3.5 7.5 11.5 15.5 19.5 20 AAAA ntp.org to 192.0.2.1:53"},
             {"aaaa:v6.org start1:192.0.2.8 reply1 start0:v6.org journal",
              "0 NTP to 192.0.2.8:123, settimeofday 2085978497"},
         });
}

TEST_F(ntp_test, a_request_has_these_bytes) {
    start(2, "192.0.2.9");
    EXPECT_BYTES(sent.at(0).data, hex("1b") + bytes(23, '\0') + hex("80034bc0") + bytes(20, '\0'));
}

TEST_F(ntp_test, answers_that_never_help_are_waited_upon_from_the_ninth_question_on) {
    for (bool const aliases : {false, true}) {  // ever new ones, or nothing under "NTP.org"
        SetUp();
        start(0, aliases ? "ntp.org" : "NTP.org");  // Answers count in lower case.
        unsigned int number = 0;
        auto const answer = [&] {
            bytes const label =
                hex("04") + big_endian(0x61616161 + number++, 4) + hex("036f726700");
            aliases ? dns_answer(5, label) : dns_answer(28, bytes(16, '\x20'));
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
