#include "sim/sim.h"

#include "config/settings.h"
#include "lib/hash.h"
#include "lldp/lldp.h"

#include <cerrno>
#include <cmath>

using namespace sim;

namespace {

constexpr int type_eapol = 0x888E;

lldp& agent() {
    return lldp::clients.find_or_insert("eth1");
}

bytes eap(int code, unsigned int identifier, bytes const& data) {
    return big_endian(unsigned(code), 1) + big_endian(identifier, 1) +
           big_endian(unsigned(data.size()) + 4, 2) + data;
}

bytes eapol(bytes const& body) {
    return hex("0100") + big_endian(unsigned(body.size()), 2) + body;
}

void switch_says(bytes const& packet) {
    bytes const ethernet_header = hex("0180c2000003 02deadbeef00 888e");
    frame_arrives("eth1", type_eapol, ethernet_header + packet);
    run_for(0);
}

// What was sent since the last look: EAPOL packets in hex, "LLDP at TENTHS".
lines answers() {
    lines all;
    for (packet const& each : take_sent()) {
        if (each.protocol == type_eapol) {
            EXPECT_EQ(to_hex(each.data.substr(0, 14)), "0180c20000030004aabbccdd888e");
            EXPECT_EQ(each.interface + " " + each.to, "eth1 0180c2000003");
            all.push_back(to_hex(each.data.substr(14)));
        } else if (each.protocol == 0x88CC) {
            all.push_back("LLDP at " + std::to_string(std::lround(each.at * 10)));
        }
    }
    return all;
}

class eapol_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        mac_addr = "0004AABBCCDD";
        ieee_802_1x_username = "base7";
        ieee_802_1x_password = "secret";
        system_ipv4 = system_ipv6 = false;
        agent().start("eth1");
    }
};

}  // namespace

TEST_F(eapol_test, without_an_authenticator_lldp_follows_three_starts) {
    EXPECT_EQ(describe(agent().eapol_fd), "packet 34958 eth1 nonblocking 0180c2000003");
    run_until(0.5);
    for (char const* ignored : {"02000004 03010004", "01010000", "0103", "01000005 03010004"}) {
        switch_says(hex(ignored));
    }
    run_until(4);
    EXPECT_EQ(answers(), (lines{"01010000", "01010000", "01010000", "LLDP at 30", "LLDP at 40"}));
    SetUp();
    lldp::clients.clear();
    fail("socket", EMFILE);
    agent().start("eth1");
    run_until(4);
    EXPECT_EQ(agent().state, lldp::state_lldp);
}

TEST_F(eapol_test, each_request_has_its_answer) {
    std::string const id = "07";
    bytes const challenge = hex("000102030405060708090a0b0c0d0e0f");
    str const digest = auth_md5_bin(to_str("\7secret" + challenge));
    std::string const response = "01000016 0207 0016 04 10" + to_hex(of(digest));
    for (auto const& [request, answer] : table<bytes, std::string>{
             {hex("01"), "0100000a 0207 000a 01 6261736537"},  // the name "base7"
             {hex("02") + "maintenance", "01000005 0207 0005 02"},
             {hex("03 04"), ""},
             {hex("04 10") + challenge + "name", response},
             {hex("04 08") + challenge, "01000006 0207 0006 04 00"},
             {hex("04 10") + challenge.substr(1), "01000006 0207 0006 04 00"},
             {hex("04"), "01000006 0207 0006 04 00"},
             {hex("0d 20"), "01000006 0207 0006 03 04"},
             {"", "01000006 0207 0006 03 04"}}) {
        answers();
        switch_says(eapol(eap(1, 7, request)));
        EXPECT_EQ(answers(), answer.empty() ? lines() : lines{to_hex(hex(answer))})
            << to_hex(request);
    }
    EXPECT_EQ(count_logged("2 802.1X notification: maintenance"), 1);
    EXPECT_EQ(count_logged("7 802.1X Challenge 0001020304050607"), 1);
}

TEST_F(eapol_test, several_packets_in_one_body_are_handled_in_order_up_to_a_lying_length) {
    answers();
    bytes const identity = eap(1, 1, hex("01"));
    switch_says(
        eapol(identity + eap(2, 9, hex("01")) + eap(1, 2, hex("0d")) + hex("01030003") + identity));
    EXPECT_EQ(answers(), (lines{"0100000a0201000a016261736537", "01000006020200060304"}));
    switch_says(eapol(hex("01030009 01 00")) + hex("00000000"));
    EXPECT_EQ(answers(), lines());
}

TEST_F(eapol_test, the_authenticators_word_leads_to_lldp_its_silence_does_not) {
    for (auto const& [code, text] : table<int, char const*>{
             {3, "7 802.1X authentication done"}, {4, "1 802.1X authentication failed"}}) {
        SetUp();
        run_until(1.5);
        answers();
        switch_says(eapol(""));
        run_until(100);
        EXPECT_EQ(answers(), lines()) << "a frame with no packet has stopped the starts";
        take_log();
        switch_says(eapol(eap(code, 8, "") + eap(7 - code, 9, "") + eap(1, 9, hex("01"))));
        EXPECT_EQ(log_records.size(), 3U) << "nothing counts behind a verdict";
        EXPECT_EQ(count_logged(text), 1);
        run_until(103);
        EXPECT_EQ(answers(), (lines{"LLDP at 1000", "LLDP at 1010", "LLDP at 1020"}));
        EXPECT_TRUE(agent().dhcp_started);
        switch_says(eapol(eap(1, 9, hex("01"))));
        EXPECT_EQ(agent().state, lldp::state_eapol_authenticating) << "authentication once more";
    }
}

TEST_F(eapol_test, damaged_frames_do_no_harm_and_cost_no_memory) {
    bytes const good =
        eapol(eap(1, 1, hex("0104")) + eap(1, 2, hex("0410") + bytes(16, 'c')) + eap(3, 3, ""));
    expect_survives_damage(bytes(14, '\0') + good, [](bytes const& damaged) {
        agent().process_eap(to_str(damaged));
        log_records.clear();
        take_sent();
    });
    allocations = 0;
    switch_says(good);
    EXPECT_EQ(allocations, 0);
}
