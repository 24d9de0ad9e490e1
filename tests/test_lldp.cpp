#include "sim/sim.h"

#include "config/settings.h"
#include "dhcp/dhcp.h"
#include "dhcp6/dhcp6.h"
#include "lldp/lldp.h"

using namespace sim;

namespace {

constexpr char link_file[] = "/proc/avalanche/cpmac_link";

lldp& agent() {
    return lldp::clients.find_or_insert("eth1");
}

bytes announced() {
    agent().setup_packet();
    return of(agent().packet.serialize());
}

events const world = {
    {"start", [](auto&) { agent().start("eth1"); }},
    {"stop", [](auto&) { agent().stop(); }},
    {"tlvs",
     [](auto& tlvs) {
         frame_arrives("eth1", 0x88CC, hex("0180c200000e02deadbeef0088cc" + tlvs + "0000"));
     }},
    {"quiet", [](auto& name) { dhcp::clients.find(to_str(name))->resend_timer.clear(); }},
    {"ipv4", [](auto&) { system_ipv6 = false; }},
    {"ipv6", [](auto&) { system_ipv4 = false; }},
    {"static",
     [](auto& text) {
         use_dhcp = str::f;
         ip_adr = to_str(text).get_field(0, '/');
         netmask = to_str(text).get_field(1, '/');
         gateway = "10.1.2.1";
     }},
};

class lldp_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        ntp_server.clear();  // or the first address starts a request for its name
        mac_addr = "0004AABBCCDD";
    }
};

}  // namespace

TEST_F(lldp_test, frames_have_these_bytes_before_and_after_an_address_is_known) {
    files["/nv/base.txt"].content = "9.1 of today";
    files["/nv/serial.txt"].content = "SN-1\n" + bytes(40, 'x');
    files["/nv/base-type.txt"].content = "read, but in no TLV";
    files[link_file].content = "eth1: port 1: UP link=1, speed=100, duplex=full\n";
    asset_id = "asset";
    bytes const port_to_capabilities = hex("0407 03 0004aabbccdd 0602 0078 0803") + "NET" +
                                       hex("0a11") + "Brakwell_BB:CC:DD" + hex("0c15") +
                                       "vorn q7, SW 9.9.52XXX" + hex("0e04 0020 0020");
    bytes const link_and_med =
        hex("fe09 00120f01 03 6600 0010 fe07 0012bb01 0023 03 fe08 0012bb02 01");
    bytes const inventory = hex("fe0a 0012bb05") + "Rev. 1" + hex("fe07 0012bb06") + "9.1" +
                            hex("fe0d 0012bb07") + "9.9.52XXX" + hex("fe24 0012bb08") + "SN-1\n" +
                            bytes(27, 'x') + hex("fe17 0012bb09") + "Brakwell Devices AG" +
                            hex("fe06 0012bb0a") + "q7" + hex("fe09 0012bb0b") + "asset" +
                            hex("0000");
    std::string const ipv6 = "20010db8000000000000000000000001";
    for (auto const& [address, chassis_id, management_address, word] :
         table<std::string, std::string, std::string, char const*>{
             {"", "0206 0501 00000000", "", "800000"},
             {"0a010203", "0206 0501 0a010203", "100c 0501 0a010203 01 00000000 00", "000000"},
             {ipv6, "0212 0502" + ipv6, "1018 0502" + ipv6 + "01 00000000 00", "000000"}}) {
        agent().management_address = to_str(hex(address));
        EXPECT_BYTES(announced(), hex("0180c200000e 0004aabbccdd 88cc") + hex(chassis_id) +
                                      port_to_capabilities + hex(management_address) +
                                      link_and_med + hex(word) + inventory);
    }
}

TEST_F(lldp_test, the_frame_tells_the_link_and_prefers_the_learnt_vlan_to_valid_settings) {
    agent().management_address = str(10, 1, 2, 3);
    agent().voice_priority = 5;
    agent().voice_dscp = 46;
    for (auto const& [learnt, vlan, priority, word, status, mau] :
         table<int, int, int, char const*, char const*, char const*>{
             {100, 4095, 7, "40c96e", "eth1: port 1: UP link=1, speed= 10 , duplex= FULL \n",
              "000b"},
             {0, 4095, 7, "5fffee",
              "a b c UP x, y=100, z=Full\na b c UP x, y=10, z=\na b c DOWN x, y=100, z=", "000a"},
             {0, 4096, 0, "00002e", "a b c UP x, y=100, z=Half", "000f"},
             {0, 102, 8, "00002e", "a b c UP x, y=1000, z=Full", "0000"}}) {
        agent().voice_vlan = learnt;
        vlan_id = vlan;
        vlan_prio = priority;
        files[link_file].content = status;
        EXPECT_NE(announced().find(hex("0012bb02 01") + hex(word)), bytes::npos) << word;
        EXPECT_NE(announced().find(hex("00120f01 03 6600") + hex(mau)), bytes::npos) << status;
    }
}

TEST_F(lldp_test, parsing_ends_early_but_never_fails) {
    for (auto const& [data, count] : table<bytes, int>{{hex("0000 0203 010203"), 0},
                                                       {hex("0201 aa 04"), 1},
                                                       {hex("032c 010203"), 1},
                                                       {hex("0201 aa fe00"), 2},
                                                       {hex("0300") + bytes(256, '\2'), 1}}) {
        EXPECT_EQ(lldp_packet(to_str(data)).options.count, count) << to_hex(data);
    }
    // The first of the right type, organisation and subtype.
    lldp_packet const tlvs(to_str(
        hex("0205 0012bb0211 fe05 0012bb0322 fe05 00120f0233 fe05 0012bb0244 fe05 0012bb0255")));
    EXPECT_EQ(of(tlvs.get_tia_option(2)) + of(tlvs.get_tia_option(4)), hex("44"));
}

// Each case has VLANs of its own: which interfaces exist is remembered for the whole process.
TEST_F(lldp_test, the_agent_starts_address_clients_like_this) {
    for (char const* bad : {"0.0.2.7/255.255.255.0", "192.0.2.0/255.255.255.0",
                            "192.0.2.7/ffff::", "192.0.2.7/255.0.255.0", "192.0.2.7/0.0.0.0",
                            "192.0.2.7/255.255.255.255"}) {
        tell(world, {{std::string("ipv4 static:") + bad + " start 3", "0 1 2 LLDP, 3 DISCOVER"}});
    }
    std::string const voice = "fe080012bb02014000ee";
    std::string const counts = "0 LLDP, DISCOVER";
    std::string const ignored = "0 LLDP";
    tell(
        world,
        {{"ipv4 static:10.1.2.3/255.255.255.254 start 2.99 journal 0.01 journal 97",
          "0 1 2 LLDP, 3 SIOCSIFADDR eth1 10.1.2.3, SIOCSIFNETMASK eth1 255.255.255.254, "
          "SIOCSIFBRDADDR eth1 10.1.2.3, SIOCDELRT eth1 0.0.0.0 to 0.0.0.0/0.0.0.0 flags 2, "
          "SIOCADDRT eth1 10.1.2.1 to 0.0.0.0/0.0.0.0 flags 3, 33 63 93 LLDP"},
         {"ipv4 start 1.5 journal log tlvs:fe080012bb020140c92e journal log quiet:eth1.100 0.5 "
          "tlvs:fe080012bb020140cb6e tlvs:fe080012bb020140cb6e journal log 1",
          "0 1 LLDP, 1.5 9 Starting LLDP, 1.5 1.5 9 Send LLDP, DISCOVER on eth1.100, add VLAN eth1 "
          "100, egress eth1.100 0 to 4, ingress eth1.100 0 to 4, SIOCSIFFLAGS eth1.100 3, "
          "SIOCSIFMTU eth1.100 1496, SIOCSIFADDR eth1.100 0.0.0.0, SIOCSIFNETMASK eth1.100 "
          "0.0.0.0, SIOCSIFBRDADDR eth1.100 0.0.0.0, SIOCDELRT eth1.100 0.0.0.0 to 0.0.0.0/0.0.0.0 "
          "flags 2, SIOCADDRT eth1.100 0.0.0.0 to 0.0.0.0/0.0.0.0 flags 3, 8 LLDP: VLAN=100, "
          "Priority=4, DSCP=46, 5 Using VLAN 100, 7 DHCPv4 on eth1.100 goes to INIT, 7 DHCPv4 on "
          "eth1.100 goes to SELECTING, 2 LLDP, 9 Send LLDP, 8 LLDP: VLAN=101, Priority=5, DSCP=46"},
         {"ipv6 start journal tlvs:fe080012bb020140d12e stop 4 journal start 3 journal",
          "0 LLDP, 3 4 SOLICIT on eth1.104, add VLAN eth1 104, egress eth1.104 0 to 4, ingress "
          "eth1.104 0 to 4, SIOCSIFFLAGS eth1.104 3, SIOCSIFMTU eth1.104 1496, LLDP, 5 SOLICIT on "
          "eth1.104, LLDP, 6 SOLICIT on eth1.104, LLDP"},
         {"ipv4 start 3 stop 40 start 1", "0 1 2 LLDP, 3 DISCOVER, 43 44 LLDP"},
         {"ipv4 start tlvs:" + voice, counts},
         {"ipv4 start tlvs:fe080012bb02024000ee", ignored},
         {"ipv4 start tlvs:fe080012bb02034000ee", counts},
         {"ipv4 start tlvs:fe080012bb02054000ee", counts},
         {"ipv4 start tlvs:fe080012bb02064000ee" + voice, ignored},  // The first is the one.
         {"ipv4 start tlvs:fe070012bb01003304" + voice, counts},
         {"ipv4 start tlvs:fe070012bb01003303" + voice, ignored},  // an endpoint
         {"ipv4 start tlvs:fe080012bb020100002e", ignored}});      // not tagged
}
