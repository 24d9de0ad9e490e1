#include "sim/sim.h"

#include "config/settings.h"
#include "dhcp6/dhcp6.h"

using namespace sim;

namespace {

std::string const offer = "00020006736572766572000300024941";  // server, identity association
std::string const address = "20010db8000000000000000000000050";

dhcp6& client() {
    return dhcp6::clients.find_or_insert("eth1");
}

void receive(std::string const& type, std::string const& options) {
    client().iaid = "IAID";  // no longer a random one
    datagram_arrives(546, hex(type) + of(client().message.transaction_id()) + hex(options),
                     "fe80::1");
}

// Of an argument "T1/T2/OPTIONS"; the address stands behind an option that does not count.
void reply(str const& arg) {
    auto const time = [&](int n) { return to_hex(big_endian(arg.get_field(n, '/').uvalue(), 4)); };
    receive("07", "0003002c49414944" + time(0) + time(1) + "000d0000 00050018" + address +
                      "0000000000000000" + of(arg.get_field(2, '/')));
}

events const world = {
    {"start", [](auto&) { client().start("eth1"); }},
    {"stop", [](auto&) { client().stop(); }},
    {"advertise", [](auto& options) { receive("02", options.empty() ? offer : options); }},
    {"reply", [](auto& arg) { reply(to_str(arg)); }},
    {"message", [](auto& data) { receive(data.substr(0, 2), data.substr(2)); }},
    {"foreign", [](auto&) { datagram_arrives(546, hex("02ffffff" + offer), "fe80::1"); }},
    {"state", [](auto&) { say(dhcp6::state_names[client().state]); }},
    {"bytes",
     [](auto&) {
         packet const last = sent.back();
         say(last.interface + " " + last.to + " " + to_hex(last.data.substr(4)));
     }},
    {"global",
     [](auto& adr) { files["/proc/net/if_inet6"].content += adr + " 02 40 20 80 eth1\n"; }},
    {"REQUEST", [](auto&) { play(world, "start 3 advertise log journal"); }},
};

struct dhcp6_test : sim::test {
    void SetUp() override {
        test::SetUp();
        ntp_server.clear();
        mac_addr = "0004AABBCCDD";
    }
};

}  // namespace

TEST_F(dhcp6_test, exchanges_go_like_this) {
    std::string const duid = "0001000a000300010004aabbccdd", to = "eth1 [ff02::1:2]:547 ";
    std::string const wanted = "0006000e0015001600170018001f0029002a";
    std::string const named = to + duid + "0002000673657276657200080002";
    std::string const asked = "000300024941" + wanted;
    std::string const long_id = "00030400" + std::string(2046, 'a');  // of 1,023 bytes
    std::string const link_local = "global:fe80000000000000020004fffeaabbcc ";
    std::string const other = address.substr(0, 31) + "4";
    std::string const published = " reply:10/20/0018000d05566f6963650264650001610000170020" +
                                  address + other + "001f0020" + other + address;
    tell(world,
         {{"start 140 state", "3 4 5 6 67 68 69 70 131 132 133 134 SOLICIT, 140 FAILED"},
          {"start 3 foreign message:07" + offer + " 1 advertise:" + offer + "000d00020000 1",
           "3 4 SOLICIT, 4 5 REQUEST"},
          {"start 3 advertise:" + offer + "000d000400006f6b 1", "3 4 SOLICIT"},  // "ok"
          {"start 3 advertise:0002000173" + long_id + " state 0.5", "3 SOLICIT, 3 3 REQUEST"},
          {"start 3 advertise:000200027373" + long_id + " 1", "3 4 SOLICIT"},
          // A part of an offer is none, but ends the copies.
          {"start 3 advertise:000300024941 9 state", "3 12 SOLICIT"},
          {"start 3 advertise:000200024941 9 state", "3 12 SOLICIT"},
          {"start 3 message:07 1 bytes advertise bytes reply:70/71 70 bytes 1 bytes",
           "3 4 SOLICIT, " + to + duid + wanted +
               "000800020fa00003000c4941494400000e1000001518, REQUEST, " + named + "0fa0" + asked +
               ", 74 RENEW, " + named + "2110" + asked + ", 75 REBIND, " + named + "24f8" + asked},
          {link_local + "global:00000000000000000000000000000001 start 3", "3 SOLICIT"},
          {link_local + "global:20010db8000000000000000000000007 start 3 bytes log 100 "
                        "message:07 state start 3",
           "3 INFORMATION-REQUEST, " + to + "000800020bb8" + duid + wanted +
               ", 9 Detected IPv6 address 20010db8000000000000000000000007, 7 DHCPv6 on eth1 goes "
               "to STATELESS, 4 5 6 INFORMATION-REQUEST, 103 STATELESS, 106 SOLICIT"},
          {"REQUEST reply:7/4294967295 7 state 4 state 60",
           "10 10 11 12 13 RENEW, 14 FAILED, 74 SOLICIT"},
          // By default T1 is an hour, and T2 half as much again, of a product that wraps here.
          {"REQUEST reply:10/12 12 state reply:0/0 state 3600 reply:4/0 6 reply:1431655766/0 1 "
           "reply:4294967295/4294967295 9999999 state",
           "13 14 RENEW, 15 15 REBIND, BOUND, 3615 3619 3620 RENEW, 3621 REBIND, 3622 RENEW, "
           "10003621 BOUND"},
          {"REQUEST message:070003001149414944000000000000000000050001aa journal state", "3 BOUND"},
          {"REQUEST reply:50/100 start 3", "6 RENEW"},
          {"REQUEST reply:10/100 stop 1000 state", "1003 INITIAL"},
          {"REQUEST message:07000300246e6f6e650000000000000000000000050018" + address +
               "0000000000000000 1" + published + " journal log 10" + published +
               " message:0100170010" + other + " journal log",
           "4 NTP to [2001:db8::54]:123, SIOCSIFADDR eth1 2001:db8::50/64, write resolv.conf, "
           "write dhcp.info, 5 Set up IPv6 address 2001:db8::50, 7 DHCPv6 on eth1 goes to BOUND, 7 "
           "DHCPv6: Set DNS domain to voice.de, 7 DHCPv6: Add DNS server [2001:db8::50], 7 DHCPv6: "
           "Add DNS server [2001:db8::54], 7 DHCPv6: Set NTP server to [2001:db8::54], 9 NTP to "
           "[2001:db8::54]:123, 14 RENEW, NTP to [2001:db8::54]:123, read resolv.conf, read "
           "dhcp.info, read resolv.conf, write resolv.conf, read dhcp.info, 7 DHCPv6 on eth1 goes "
           "to RENEW, 7 DHCPv6 on eth1 goes to BOUND, 7 DHCPv6: Add DNS server [2001:db8::54]"}});
    EXPECT_EQ(files["resolv.conf"].content, "search voice.de\nnameserver [2001:db8::54]\n");
    EXPECT_EQ(describe(client().fd), "udp [*]:546 eth1 reuse nonblocking");
}
