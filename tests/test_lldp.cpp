#include "sim/sim.h"

#include "config/settings.h"
#include "dhcp/dhcp.h"
#include "dhcp6/dhcp6.h"
#include "lldp/lldp.h"

#include <cmath>

using namespace sim;

namespace {

constexpr int type_lldp = 0x88CC;
constexpr char link_file[] = "/proc/avalanche/cpmac_link";

lldp& agent() {
    return lldp::clients.find_or_insert("eth1");
}

void start() {
    agent().start("eth1");
}

bytes announced() {
    agent().setup_packet();
    return of(agent().packet.serialize());
}

bytes policy(int application, int vlan, int priority, int dscp) {
    unsigned int const word = 0x400000U + unsigned(vlan * 512 + priority * 64 + dscp);
    return hex("fe08 0012bb02") + big_endian(unsigned(application), 1) + big_endian(word, 3);
}

void switch_says(bytes const& tlvs) {
    bytes const ethernet_header = hex("0180c200000e 02deadbeef00 88cc");
    frame_arrives("eth1", type_lldp, ethernet_header + tlvs + hex("0000"));
    run_for(0);
}

// The moments, in tenths of a second, at which LLDP frames left, or DHCP messages ("30 DHCP").
lines moments() {
    lines all;
    for (packet const& each : take_sent()) {
        std::string const moment = std::to_string(std::lround(each.at * 10));
        all.push_back(each.protocol == type_lldp ? moment : moment + " DHCP on " + each.interface);
    }
    return all;
}

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
        EXPECT_EQ(announced(), hex("0180c200000e 0004aabbccdd 88cc") + hex(chassis_id) +
                                   port_to_capabilities + hex(management_address) + link_and_med +
                                   hex(word) + inventory);
    }
}

TEST_F(lldp_test, the_mau_type_follows_the_drivers_last_line_that_is_up) {
    for (auto const& [status, type] : table<char const*, char const*>{
             {"eth1: port 1: UP link=1, speed= 10 , duplex= FULL \n", "000b"},
             {"a b c UP x, y=100, z=Full\na b c UP x, y=10, z=\na b c DOWN x, y=100, z=", "000a"},
             {"a b c UP x, y=1000, z=Full", "0000"}}) {
        files[link_file].content = status;
        EXPECT_NE(announced().find(hex("00120f01 03 6600") + hex(type)), bytes::npos) << status;
    }
}

TEST_F(lldp_test, the_policy_word_prefers_the_learnt_vlan_to_valid_settings) {
    agent().management_address = str(10, 1, 2, 3);
    agent().voice_priority = 5;
    agent().voice_dscp = 46;
    for (auto const& [learnt, vlan, priority, word] :
         table<int, int, int, char const*>{{100, 4095, 7, "40c96e"},
                                           {0, 4095, 7, "5fffee"},
                                           {0, 4096, 0, "00002e"},
                                           {0, 102, 8, "00002e"}}) {
        agent().voice_vlan = learnt;
        vlan_id = vlan;
        vlan_prio = priority;
        EXPECT_NE(announced().find(hex("0012bb02 01") + hex(word)), bytes::npos) << word;
    }
}

TEST_F(lldp_test, parsing_ends_early_but_never_fails) {
    for (auto const& [data, count] : table<char const*, int>{
             {"0000 0203 010203", 0}, {"0201 aa 04", 1}, {"032c 010203", 1}, {"0201 aa fe00", 2}}) {
        EXPECT_EQ(lldp_packet(to_str(hex(data))).options.count, count) << data;
    }
    bytes const long_value(256, '\2');
    EXPECT_EQ(lldp_packet(to_str(hex("0300") + long_value)).options.count, 1);
    // The first of the right type, organisation and subtype.
    lldp_packet const tlvs(to_str(
        hex("0205 0012bb0211 fe05 0012bb0322 fe05 00120f0233 fe05 0012bb0244 fe05 0012bb0255")));
    EXPECT_EQ(of(tlvs.get_tia_option(2)) + of(tlvs.get_tia_option(4)), hex("44"));
}

TEST_F(lldp_test, frames_leave_at_0_1_2_seconds_then_dhcp_starts_then_every_30_seconds) {
    system_ipv6 = false;
    use_dhcp = "false";  // A static client sends nothing.
    ip_adr = "10.1.2.3";
    netmask = "255.255.255.254";
    start();
    EXPECT_EQ(describe(agent().lldp_fd), "packet 35020 eth1 nonblocking 0180c200000e");
    EXPECT_EQ(sent[0].to, "0180c200000e");
    run_until(2.99);
    EXPECT_EQ(configured["SIOCSIFADDR eth1"], "192.0.2.50");
    run_until(3);
    EXPECT_EQ(configured["SIOCSIFADDR eth1"], "10.1.2.3");
    EXPECT_EQ(default_interface_index, 2);
    run_until(100);
    EXPECT_EQ(moments(), (lines{"0", "10", "20", "330", "630", "930"}));
    EXPECT_EQ(of(agent().management_address), hex("0a010203"));
}

// Each case has VLANs of its own: which interfaces exist is remembered for the whole process.
TEST_F(lldp_test, a_policy_starts_dhcp_on_its_vlan_at_once_and_a_later_one_moves_no_client) {
    start();
    run_until(1.5);
    switch_says(policy(1, 100, 5, 46));
    EXPECT_EQ(configured["ingress eth1.100"], "0 to 5");
    EXPECT_EQ(default_interface_index, interfaces["eth1.100"]);
    dhcp::clients.find("eth1.100")->resend_timer.clear();
    run_until(2.9);
    EXPECT_EQ(moments(), (lines{"0", "10", "15 DHCP on eth1.100", "20"}));
    switch_says(policy(1, 101, 5, 46));
    switch_says(policy(1, 101, 5, 46));
    EXPECT_EQ(count_logged("8 LLDP: VLAN=101, Priority=5, DSCP=46"), 1);
    EXPECT_EQ(interfaces.count("eth1.101"), 0U);
}

TEST_F(lldp_test, only_a_tagged_voice_policy_of_a_switch_counts) {
    bytes const voice = policy(1, 0, 0, 46);
    for (auto const& [tlvs, counts] :
         table<bytes, bool>{{policy(5, 0, 0, 46), true},
                            {hex("fe07 0012bb01 0033 04") + voice, true},
                            {hex("fe07 0012bb01 0033 03") + voice, false},  // an endpoint
                            {policy(2, 0, 0, 46) + voice, false},           // the first is the one
                            {hex("fe08 0012bb02 01 00002e"), false}}) {     // not tagged
        SetUp();
        start();
        switch_says(tlvs);
        EXPECT_EQ(agent().voice_dscp, counts ? 46 : 0) << to_hex(tlvs);
        EXPECT_EQ(dhcp::clients.count, counts ? 1 : 0) << to_hex(tlvs);
    }
}

TEST_F(lldp_test, an_invalid_static_configuration_means_dhcp) {
    for (auto const& [dhcp_setting, address, mask] :
         table<char const*, char const*, char const*>{{"", "192.0.2.7", "255.255.255.0"},
                                                      {"false", "0.0.2.7", "255.255.255.0"},
                                                      {"false", "192.0.2.7", "255.0.255.0"},
                                                      {"false", "192.0.2.7", "ffff::"}}) {
        SetUp();
        use_dhcp = dhcp_setting;
        ip_adr = address;
        netmask = mask;
        start();
        run_until(3);
        EXPECT_EQ(moments().back(), "30 DHCP on eth1") << address << " " << mask;
    }
}

TEST_F(lldp_test, stop_ends_the_frames_and_the_base_interfaces_clients_alone) {
    start();
    switch_says(policy(1, 104, 0, 46));
    dhcp6::clients.find_or_insert("eth1").start("eth1");
    agent().stop();
    EXPECT_EQ(agent().voice_vlan + agent().voice_dscp, 0);
    EXPECT_TRUE(dhcp6::clients.find("eth1.104")->renew_timer.active);
    take_sent();
    run_for(100);
    EXPECT_GT(sent.size(), 20U);
    for (packet const& each : sent) {
        EXPECT_EQ(each.interface, "eth1.104");
    }
}

TEST_F(lldp_test, damaged_frames_and_an_hour_of_own_ones_cost_no_memory) {
    start();
    agent().dhcp_started = true;  // or damaged policies would make VLAN interfaces of any number
    bytes const tlvs = hex("0206 0501 00000000 fe07 0012bb01 0023 04") + policy(1, 7, 5, 46);
    expect_survives_damage(bytes(14, '\0') + tlvs, [](bytes const& damaged) {
        agent().process_lldp(to_str(damaged));
        log_records.clear();
    });
    unsigned int const allocated = str::allocated_size;
    allocations = 0;
    run_for(3600);
    EXPECT_EQ(str::allocated_size, allocated);
    EXPECT_EQ(allocations, 0);
}
