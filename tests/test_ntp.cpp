#include "sim/sim.h"

#include "config/settings.h"
#include "dns/dns_resolver.h"
#include "ntp/ntp_client.h"

#include <cerrno>

using namespace sim;

namespace {

// Arguments are "INDEX=SERVER", "INDEX" or "INDEX=SECONDS", "NAME=VALUE".
void start(std::string const& argument) {
    ntp[argument[0] - '0'].use_server(to_str(argument.substr(2)));
}

void reply(std::string const& argument, size_t length) {
    unsigned int const seconds = to_str(argument).get_field(1, '=').uvalue();
    bytes const data = bytes(40, '\x5A') + big_endian(seconds, 4) + bytes(4, '\xFF');
    datagram_arrives_at(ntp[argument[0] - '0'].socket, data.substr(0, length), "192.0.2.9");
}

void cache(std::string const& argument, dns_resolver::dns_type type) {
    str const text = to_str(argument);
    dns_services.add_cache(text.get_field(0, '='), text.get_field(1, '='), 300, type);
}

events const world = {
    {"start", start},
    {"reply", [](auto& argument) { reply(argument, 44); }},
    {"short", [](auto& argument) { reply(argument, 43); }},
    {"nosocket", [](auto&) { fail("socket", EMFILE); }},
    {"repair", [](auto&) { repair(); }},
    {"a", [](auto& argument) { cache(argument, dns_resolver::type_a); }},
    {"aaaa", [](auto& argument) { cache(argument, dns_resolver::type_aaaa); }},
    {"alias", [](auto& argument) { cache(argument, dns_resolver::type_cname); }},
    {"again", [](auto&) { restart_ntp_client(0); }},
    {"waits", [](auto&) { say(std::to_string(ntp[0].timer.seconds())); }},
};

struct ntp_test : sim::test {
    void SetUp() override {
        test::SetUp();
        use_dhcp = str::f;
        static_dns_server1 = "192.0.2.1";
    }
};

}  // namespace

TEST_F(ntp_test, servers_are_asked_like_this) {
    tell(
        world,
        {
            {"start:2=192.0.2.9:1123 start:1=192.0.2.9:0 start:0=[2001:db8::9]:1123",
             "0 NTP to 192.0.2.9:1123, NTP to 192.0.2.9:123, NTP to [2001:db8::9]:1123"},
            {"nosocket start:0= start:1=192.0.2.9 repair 3625",
             "5 10 15 20 3620 3625 NTP to 192.0.2.9:123"},
            {"start:0=192.0.2.9 3 short:0=3913056000 reply:0=3913056000 reply:0=61505151 journal "
             "3605",
             "0 NTP to 192.0.2.9:123, 3 settimeofday 1704067201, settimeofday 2147483648, 3603 "
             "3608 NTP to 192.0.2.9:123"},
            // One that answers is the only one asked, until it has not answered five times.
            {"start:0=192.0.2.7 start:1=192.0.2.8 1 start:2=192.0.2.9 reply:1 reply:0 reply:2 3600 "
             "19 log 5 log journal reply:2 reply:1 journal log",
             "0 NTP to 192.0.2.7:123, NTP to 192.0.2.8:123, 1 NTP to 192.0.2.9:123, 3601 3606 3611 "
             "3616 NTP to 192.0.2.8:123, 3620 8 NTP: Use server 192.0.2.8, 3621 NTP to "
             "192.0.2.8:123, 3625 NTP to 192.0.2.7:123, 5 NTP: server 192.0.2.8 timed out, 3625 "
             "3625 settimeofday 2085978497, 8 NTP: Use server 192.0.2.9"},
            // Names: a request to a resolved address is not repeated.
            {"a:v4.org=192.0.2.9 aaaa:v4.org= aaaa:v6.org=[::9] alias:alias.org=v6.org "
             "start:0=alias.org:1123 start:1=v4.org log 9999",
             "0 NTP to [::9]:123, NTP to 192.0.2.9:123, 8 NTP: Trying to resolve alias.org, 8 NTP: "
             "Trying to resolve v4.org"},
            {"aaaa:x.org= start:0=x.org 0.4", "0 A x.org to 192.0.2.1:53"},
            {"alias:x.org=y.org alias:y.org=x.org start:0=x.org log 3599.99 0.01",
             "0 8 NTP: Trying to resolve x.org, 1 NTP: DNS resolution for x.org failed, 3600 AAAA "
             "x.org to 192.0.2.1:53"},
            {"start:1=192.0.2.8 reply:1 aaaa:v6.org=[::9] start:0=v6.org",
             "0 NTP to 192.0.2.8:123"},
            // From the ninth question on, each one waits, but not for another server.
            {"start:0=x.org again again again again again again again waits again waits 5 waits "
             "again waits start:0=y.org",
             "0 AAAA x.org to 192.0.2.1:53, 0, 5, 0.5 1.5 3.5 AAAA x.org to 192.0.2.1:53, 5 0, 5, "
             "AAAA y.org to 192.0.2.1:53"},
        });
    start("2=192.0.2.9");
    EXPECT_BYTES(sent.at(0).data, hex("1b") + bytes(23, '\0') + hex("80034bc0") + bytes(20, '\0'));
}
