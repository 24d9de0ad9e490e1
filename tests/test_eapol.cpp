#include "sim/sim.h"

#include "config/settings.h"
#include "core/log.h"
#include "lldp/lldp.h"

#include <cerrno>

using namespace sim;

namespace {

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
    {"start", [](auto&) { lldp::clients.find_or_insert("eth1").start("eth1"); }},
    {"nosocket", [](auto&) { fail("socket", EMFILE); }},
    {"packet", packet},
    {"body", body},
    {"request", [](auto& type) { body("0107" + two_bytes(type.size() / 2 + 4) + type); }},
};

struct eapol_test : sim::test {
    void SetUp() override {
        test::SetUp();
        mac_addr = "0004AABBCCDD";
        ieee_802_1x_username = "base7";
        log_level = 7;
        ieee_802_1x_password = "secret";
        system_ipv4 = system_ipv6 = false;
    }
};

}  // namespace

TEST_F(eapol_test, the_supplicant_does_this) {
    std::string const challenge = "000102030405060708090a0b0c0d0e0f";
    std::string const waits = "start 1.5 body: 98.5 log ";
    tell(world,
         {
             // Another version, another type, a header cut off, a body cut off.
             {"start 0.5 packet:0200000403010004 packet:01010000 packet:0103 "
              "packet:0100000503010004 3.5",
              "0 1 2 EAPOL 01010000, 3 4 LLDP"},
             // Challenges: with something behind, of 8 bytes, cut off, empty. An unknown method.
             {"start request:01 request:0268757368 log request:0304 request:0410" + challenge +
                  "61 request:0408" + challenge + " request:0410" + challenge.substr(2) +
                  " request:04 request:0d20 request: 100",
              "0 EAPOL 01010000, EAPOL 0100000a0207000a016261736537, EAPOL 010000050207000502, 2 "
              "802.1X notification: hush, EAPOL "
              "01000016020700160410821643665b430359e52ac524d29c8f95, 0 0 0 EAPOL "
              "01000006020700060400, 0 0 EAPOL 01000006020700060304"},
             // Requests, a response among them, up to a length that cannot be; padding.
             {"start body:01010005010209000501010200050d010200050d010300030101000501 "
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
    tell(world, {{"nosocket start 4 log", ""}});
    EXPECT_EQ(lldp::clients.find("eth1")->state, lldp::state_lldp);
}
