#include "sim/sim.h"

#include "config/settings.h"
#include "core/log.h"
#include "lldp/lldp.h"

using namespace sim;

namespace {

lldp& agent() {
    return lldp::clients.find_or_insert("eth1");
}

void tlvs(std::string const& digits) {
    frame_arrives("eth1", 0x88CC, hex("0180c200000e02deadbeef0088cc" + digits + "0000"));
}

std::string two_bytes(size_t number) {
    return to_hex(big_endian(unsigned(number), 2));
}

void packet(std::string const& digits) {
    frame_arrives("eth1", 0x888E, hex("0180c2000003 02deadbeef00 888e" + digits));
}

void body(std::string const& digits) {
    packet("0100" + two_bytes(digits.size() / 2) + digits);
}

events const world = {
    {"start", [](auto&) { agent().start("eth1"); }},
    {"stop", [](auto&) { agent().stop(); }},
    {"guarded", [](auto&) { ieee_802_1x_username = "base7"; }},
    {"level", [](auto& level) { log_level = level[0] - '0'; }},
    {"packet", packet},
    {"body", body},
    {"request", [](auto& type) { body("0107" + two_bytes(type.size() / 2 + 4) + type); }},
    {"tlvs", tlvs},
    {"policy", [](auto& policy) { tlvs("fe080012bb02" + policy); }},
    {"ipv6", [](auto&) { std::swap(system_ipv4, system_ipv6); }},
    {"dhcp", [](auto&) { use_dhcp = "true"; }},
    {"ip", [](auto& text) { ip_adr = to_str(text); }},
    {"mask", [](auto& text) { netmask = to_str(text); }},
};

struct lldp_test : sim::test {
    void SetUp() override {
        test::SetUp();
        ntp_server.clear();  // or the first address starts a request for its name
        mac_addr = "0004AABBCCDD";
        use_dhcp = str::f;
        gateway = "10.1.2.1";
        system_ipv6 = false;
        ieee_802_1x_password = "secret";
    }
};

}  // namespace

TEST_F(lldp_test, a_frame_tells_address_link_and_the_learnt_vlan_or_a_valid_one_of_the_settings) {
    files["/nv/base.txt"].content = "9.1 of today";
    files["/nv/serial.txt"].content = "SN-1\n" + bytes(40, 'x');
    files["/nv/base-type.txt"].content = "read, but in no TLV";
    asset_id = "asset";
    agent().voice_priority = 5;
    agent().voice_dscp = 46;
    bytes const port_to_capabilities = hex("0407 03 0004aabbccdd 0602 0078 0803") + "NET" +
                                       hex("0a11") + "Brakwell_BB:CC:DD" + hex("0c15") +
                                       "vorn q7, SW 9.9.52XXX" + hex("0e04 0020 0020");
    bytes const inventory = hex("fe0a 0012bb05") + "Rev. 1" + hex("fe07 0012bb06") + "9.1" +
                            hex("fe0d 0012bb07") + "9.9.52XXX" + hex("fe24 0012bb08") + "SN-1\n" +
                            bytes(27, 'x') + hex("fe17 0012bb09") + "Brakwell Devices AG" +
                            hex("fe06 0012bb0a") + "q7" + hex("fe09 0012bb0b") + "asset" +
                            hex("0000");
    std::string const ip = "0a010203", chassis = "02060501" + ip,
                      told = "100c0501" + ip + "010000000000";
    std::string const ipv6 = "20010db8000000000000000000000001";
    using text = std::string;
    for (auto const& [address, learnt, vlan, priority, status, identity, management, mau, word] :
         table<text, int, int, int, text, text, text, text, text>{
             {"", 0, 0, 0, "a b c UP x, y=1000, z=Full", "0206050100000000", "", "0000", "800000"},
             {ipv6, 100, 4095, 7, "eth1: port 1: UP link=1, speed= 10 , duplex= FULL \n",
              "02120502" + ipv6, "10180502" + ipv6 + "010000000000", "000b", "40c96e"},
             {ip, 0, 4095, 7,
              "a b c UP x, y=100, z=Full\na b c UP x, y=10, z=\na b c DOWN x, y=100, z=", chassis,
              told, "000a", "5fffee"},
             {ip, 0, 4096, 0, "a b c UP x, y=100, z=Half", chassis, told, "000f", "00002e"}}) {
        agent().management_address = to_str(hex(address));
        agent().voice_vlan = learnt;
        vlan_id = vlan;
        vlan_prio = priority;
        files["/proc/avalanche/cpmac_link"].content = status;
        agent().setup_packet();
        EXPECT_BYTES(of(agent().packet.serialize()),
                     hex("0180c200000e 0004aabbccdd 88cc" + identity) + port_to_capabilities +
                         hex(management + "fe09 00120f01 03 6600" + mau +
                             "fe07 0012bb01 0023 03 fe08 0012bb02 01" + word) +
                         inventory);
    }
}

// Each case has VLANs of its own: which interfaces exist is remembered for the whole process.
TEST_F(lldp_test, the_agent_starts_address_clients_like_this) {
    std::string const address = "ip:192.0.2.7 ";
    for (std::string const bad : {"dhcp mask:255.255.255.0", "mask:255.255.255.0 ip:0.0.2.7",
                                  "mask:255.255.255.0 ip:192.0.2.0", "mask:ffff::",
                                  "mask:255.0.255.0", "mask:0.0.0.0", "mask:255.255.255.255"}) {
        tell(world, {{address + bad + " start 3", "0 1 2 LLDP, 3 DISCOVER"}});
    }
    // Of the applications. Of a switch. The first one of its type, organisation and subtype.
    for (char const* tlvs : {"fe080012bb02014000ee", "fe080012bb02034000ee", "fe080012bb02054000ee",
                             "fe070012bb01003304fe080012bb02014000ee",
                             "04080012bb02024000eefe0800120f02024000eefe080012bb02014000ee"}) {
        tell(world, {{std::string("start tlvs:") + tlvs, "0 LLDP, DISCOVER"}});
    }
    // Another application, also as the first one; of an endpoint; without a tag; behind the end;
    // cut off.
    for (char const* tlvs : {"fe080012bb02024000ee", "fe080012bb02064000eefe080012bb02014000ee",
                             "fe070012bb01003303fe080012bb02014000ee", "fe080012bb020100002e",
                             "0000fe080012bb02014000ee", "fe080012bb0201"}) {
        tell(world, {{std::string("start 0.5 tlvs:") + tlvs, "0 LLDP"}});
    }
    tell(world,
         {{"ip:10.1.2.3 mask:255.255.255.252 start 2.99 journal 0.01 journal 97",
           "0 1 2 LLDP, 3 SIOCSIFADDR eth1 10.1.2.3, SIOCSIFNETMASK eth1 255.255.255.252, "
           "SIOCSIFBRDADDR eth1 10.1.2.3, SIOCDELRT eth1 0.0.0.0 to 0.0.0.0/0.0.0.0 flags 2, "
           "SIOCADDRT eth1 10.1.2.1 to 0.0.0.0/0.0.0.0 flags 3, 33 63 93 LLDP"},
          {"start 3 stop 40 start 1", "0 1 2 LLDP, 3 DISCOVER, 43 44 LLDP"},
          {"ipv6 start journal policy:0140d12e stop journal 4 start 3 journal",
           "0 LLDP, add VLAN eth1 104, egress eth1.104 0 to 4, ingress eth1.104 0 to 4, "
           "SIOCSIFFLAGS eth1.104 3, SIOCSIFMTU eth1.104 1496, 3 4 SOLICIT on eth1.104, LLDP, 5 "
           "SOLICIT on eth1.104, LLDP, 6 SOLICIT on eth1.104, LLDP"},
          {"start 1.5 policy:0140c92e log 0.5 policy:0140cb6e policy:0140cb6e log 1",
           "0 1 LLDP, 1.5 DISCOVER on eth1.100, 9 Starting LLDP, 1.5 1.5 9 Send LLDP, 8 LLDP: "
           "VLAN=100, Priority=4, DSCP=46, 5 Using VLAN 100, 7 DHCPv4 on eth1.100 goes to INIT, 7 "
           "DHCPv4 on eth1.100 goes to SELECTING, 2 LLDP, 9 Send LLDP, 8 LLDP: VLAN=101, "
           "Priority=5, DSCP=46"}});
}

TEST_F(lldp_test, the_supplicant_does_this) {
    std::string const challenge = "000102030405060708090a0b0c0d0e0f";
    std::string const waits = "guarded level:7 start 1.5 body: 98.5 log ";
    tell(world,
         {
             // Another version, another type, a header cut off, a body cut off.
             {"guarded start 0.5 packet:0200000403010004 packet:01010000 packet:0103 "
              "packet:0100000503010004 3.5",
              "0 1 2 EAPOL 01010000, 3 4 LLDP"},
             // Challenges: with something behind, of 8 bytes, cut off, empty. An unknown method.
             {"guarded level:7 start request:01 request:0268757368 log request:0304 request:0410" +
                  challenge + "61 request:0408" + challenge + " request:0410" +
                  challenge.substr(2) + " request:04 request:0d20 request: 100",
              "0 EAPOL 01010000, EAPOL 0100000a0207000a016261736537, EAPOL 010000050207000502, 2 "
              "802.1X notification: hush, EAPOL "
              "01000016020700160410821643665b430359e52ac524d29c8f95, 0 0 0 EAPOL "
              "01000006020700060400, 0 0 EAPOL 01000006020700060304"},
             // Requests, a response among them, up to a length that cannot be; padding.
             {"guarded start body:01010005010209000501010200050d010200050d010300030101000501 "
              "body:0103000901000000000000 body:",
              "0 EAPOL 01010000, EAPOL 0100000a0201000a016261736537, 0 0 EAPOL "
              "01000006020200060304, EAPOL 0100000a0203000a016261736537"},
             {waits + "body:03080004040800040101000501 log 2 request:01 100",
              "0 1 EAPOL 01010000, 100 LLDP, 7 802.1X authentication done, 101 102 LLDP, EAPOL "
              "0100000a0207000a016261736537"},
             {waits + "body:0408000403080004 log 2",
              "0 1 EAPOL 01010000, 100 LLDP, 1 802.1X authentication failed, 101 102 LLDP"},
         });
    EXPECT_EQ(describe(lldp::clients.find("eth1")->eapol_fd),
              "packet 34958 eth1 nonblocking 0180c2000003");
}
