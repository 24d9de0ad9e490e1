#include "sim/sim.h"

#include "config/settings.h"
#include "dhcp6/dhcp6.h"

using namespace sim;

namespace {

bytes const duid = hex("0001 000a 0003 0001 0004aabbccdd");
bytes const wanted = hex("0006 000e 0015 0016 0017 0018 001f 0029 002a");
bytes const address = hex("20010db8 00000000 00000000 00000050");

dhcp6& client() {
    return dhcp6::clients.find_or_insert("eth1");
}

bytes option(unsigned int code, bytes const& value) {
    return big_endian(code, 2) + big_endian(unsigned(value.size()), 2) + value;
}

bytes ia_na(unsigned int t1, unsigned int t2, bytes const& adr = address) {
    return option(3, of(client().iaid) + big_endian(t1, 4) + big_endian(t2, 4) + option(13, "") +
                         option(5, adr + bytes(adr.size() == 16 ? 8 : 0, '\1')));
}

void receive(char type, bytes const& options) {
    datagram_arrives(546, type + of(client().message.transaction_id()) + options, "fe80::1");
}

void reply(std::string const& times, bytes const& options = "") {  // "T1/T2"
    size_t const slash = times.find('/');
    receive(7, ia_na(unsigned(std::stoul(times)), unsigned(std::stoul(times.substr(slash + 1)))) +
                   options);
}

events const world = {
    {"start", [](auto&) { client().start("eth1"); }},
    {"stop", [](auto&) { client().stop(); }},
    {"advertise", [](auto&) { receive(2, option(2, "server") + ia_na(0, 0)); }},
    {"reply", [](auto& times) { reply(times); }},
    {"options", [](auto& options) { receive(7, ia_na(10, 20) + hex(options)); }},
    {"without", [](auto& options) { receive(7, hex(options)); }},
    {"message", [](auto& data) { receive(data[0] - '0', hex(data.substr(1))); }},
    {"nobody", [](auto&) { receive(7, option(3, "none" + bytes(8, '\0') + option(5, address))); }},
    {"broken", [](auto&) { receive(7, ia_na(10, 20, bytes(15, 'x'))); }},
    {"state", [](auto&) { say(dhcp6::state_names[client().state]); }},
    {"global",
     [](auto& adr) { files["/proc/net/if_inet6"].content += adr + " 02 40 20 80 eth1\n"; }},
};

class dhcp6_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        ntp_server.clear();
        mac_addr = "0004AABBCCDD";
    }
};

}  // namespace

TEST_F(dhcp6_test, exchanges_go_like_this) {
    tell(world,
         {{"start 140 state", "3 4 5 6 67 68 69 70 131 132 133 134 SOLICIT, 140 FAILED"},
          {"start 3 advertise reply:7/4294967295 7 state 4 state 60",
           "3 SOLICIT, REQUEST, 10 10 11 12 13 RENEW, 14 FAILED, 74 SOLICIT"},
          {"start 3 advertise reply:10/12 10 state 2 state reply:10/12 state 10 reply:0/0 3600 "
           "0.5 reply:4294967295/0 9999999 state",
           "3 SOLICIT, REQUEST, 13 13 14 RENEW, 15 15 REBIND, BOUND, 25 3625 RENEW, 10003624.5 "
           "BOUND"},
          {"start 3 advertise nobody advertise 1 state log journal reply:20/30 journal log 20 "
           "reply:20/30 journal log",
           "3 SOLICIT, 3 4 REQUEST, 7 DHCPv6 on eth1 goes to SOLICIT, 7 DHCPv6 on eth1 goes to "
           "REQUEST, SIOCSIFADDR eth1 2001:db8::50/64, 5 Set up IPv6 address 2001:db8::50, 7 "
           "DHCPv6 on eth1 goes to BOUND, 24 RENEW, 7 DHCPv6 on eth1 goes to RENEW, 7 DHCPv6 on "
           "eth1 goes to BOUND"},
          {"start 3 advertise journal broken journal state", "3 SOLICIT, REQUEST, BOUND"},
          {"start 3 advertise reply:50/100 start 3 state", "3 SOLICIT, REQUEST, 6 6 RENEW"},
          {"start 3 advertise reply:10/100 stop 1000 state", "3 SOLICIT, REQUEST, 1003 INITIAL"},
          {"global:fe80000000000000020004fffeaabbcc global:00000000000000000000000000000001 "
           "start 3 state",
           "3 3 SOLICIT"},
          {"global:fe80000000000000020004fffeaabbcc global:20010db8000000000000000000000007 "
           "start 3 log 100 without:0018000805766F6963650000 state log start 3 state",
           "3 INFORMATION-REQUEST, 9 Detected IPv6 address 20010db8000000000000000000000007, 7 "
           "DHCPv6 on eth1 goes to STATELESS, 4 5 6 INFORMATION-REQUEST, 103 STATELESS, 7 DHCPv6: "
           "Set DNS domain to voice, 106 106 SOLICIT"}});
}

TEST_F(dhcp6_test, messages_have_these_bytes) {
    auto const elapsed = [](unsigned int ms) { return option(8, big_endian(ms, 2)); };
    files["/proc/net/if_inet6"].content = bytes(32, '2') + " 02 40 00 00 eth1\n";
    client().start("eth1");
    run_for(3);
    EXPECT_BYTES(sent.at(0).data, "\13" + of(client().xid) + elapsed(3000) + duid + wanted);
    files.erase("/proc/net/if_inet6");
    SetUp();
    client().start("eth1");
    run_for(4);
    bytes const xid = of(client().xid);
    bytes const sent_ia = option(3, of(client().iaid) + big_endian(3600, 4) + big_endian(5400, 4));
    EXPECT_BYTES(sent.at(0).data, "\1" + xid + duid + wanted + elapsed(3000) + sent_ia);
    EXPECT_BYTES(sent.at(1).data, "\1" + xid + duid + wanted + elapsed(4000) + sent_ia);
    EXPECT_EQ(sent[0].interface + " " + sent[0].to, "eth1 [ff02::1:2]:547");
    EXPECT_EQ(describe(client().fd), "udp [*]:546 eth1 reuse nonblocking");
    play(world, "advertise");
    bytes const server_and = duid + option(2, "server");
    EXPECT_NE(of(client().xid), xid);
    bytes const request = of(client().message.serialize());
    EXPECT_BYTES(request,
                 "\3" + of(client().xid) + server_and + elapsed(4000) + ia_na(0, 0) + wanted);
    play(world, "reply:70/71 70");
    EXPECT_BYTES(of(client().message.serialize()), "\5" + of(client().xid) + server_and +
                                                       elapsed(74000 - 65536) + ia_na(0, 0) +
                                                       wanted);
    play(world, "1");
    EXPECT_BYTES(of(client().message.serialize()), "\6" + of(client().xid) + server_and +
                                                       elapsed(75000 - 65536) + ia_na(0, 0) +
                                                       wanted);
}

TEST_F(dhcp6_test, an_advertise_counts_without_status_text_and_with_server_and_address) {
    bytes const offer = option(2, "server") + option(3, "ia");
    for (auto const& [options, story] :
         table<bytes, char const*>{{offer, "3 3 4 REQUEST"},
                                   {offer + option(13, hex("0000")), "3 3 4 REQUEST"},
                                   {offer + option(13, hex("0000 6f6b")), "3 4 SOLICIT"},
                                   {option(2, "s") + option(3, bytes(1023, 'i')), "3 3 4 REQUEST"},
                                   {option(2, "s") + option(3, bytes(1024, 'i')), "3 4 SOLICIT"},
                                   {option(3, "ia"), "3 SOLICIT"},
                                   {option(2, "server"), "3 SOLICIT"}}) {
        SetUp();
        play(world, "start 3");
        datagram_arrives(546, hex("02 ffffff") + offer, "fe80::1");  // of another client
        EXPECT_EQ(play(world,
                       "message:7" + to_hex(options) + " message:2" + to_hex(options) + " state 1"),
                  story);
    }
}

TEST_F(dhcp6_test, a_reply_publishes_domain_dns_and_sntp_servers) {
    std::string const adr = "20010db800000000000000000000005";
    std::string const reply = "options:0018000d05566f69636502646500016100"
                              "00170020" +
                              adr + "0" + adr +
                              "4"
                              "001f0020" +
                              adr + "4" + adr + "0";
    dynamic_dns6_server3 = "[2001:db8::9]";
    play(world, "start 3 advertise reply:10/20 log 10");
    EXPECT_EQ(
        play(world, reply + " log 10 " + reply +
                        " message:1"
                        "00170010" +
                        adr + "4 log"),
        "13 NTP to [2001:db8::54]:123, 7 DHCPv6 on eth1 goes to RENEW, 7 DHCPv6 on eth1 goes to "
        "BOUND, 7 DHCPv6: Set DNS domain to voice.de, 7 DHCPv6: Add DNS server [2001:db8::50], 7 "
        "DHCPv6: Add DNS server [2001:db8::54], 7 DHCPv6: Set NTP server to [2001:db8::54], 18 NTP "
        "to [2001:db8::54]:123, 23 RENEW, NTP to [2001:db8::54]:123, 7 DHCPv6 on eth1 goes to "
        "RENEW, 7 DHCPv6 on eth1 goes to BOUND, 7 DHCPv6: Add DNS server [2001:db8::54]");
    EXPECT_EQ(files["resolv.conf"].content, "search voice.de\nnameserver [2001:db8::54]\n");
    dhcp6_packet const packet(to_str(hex("07123456 0017 0001 61 0017 0001 62 0002 ffff 63")));
    EXPECT_EQ(packet.get_option(23, 1) + packet.get_option(2), "bc");
    EXPECT_EQ(packet.get_option(23, 2) + packet.get_option(1), str::null);
    EXPECT_EQ(dhcp6_packet("abc").serialize(), str::null);
}
