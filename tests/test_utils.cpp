#include "sim/sim.h"

#include "lib/utils.h"

#include <cerrno>

using namespace sim;

namespace {

class utils_test : public sim::test {};

str bin(std::string const& digits) {
    return to_str(hex(digits));
}

ip_port endpoint(std::string const& address, int port) {
    ip_port result;
    result.adr = bin(address);
    result.port = port;
    return result;
}

}  // namespace

// --- Addresses ---

TEST_F(utils_test, text_to_address_never_fails) {
    for (auto const& [text, address] : table<char const*, char const*>{
             {"10.1.2.3", "0a010203"},
             {"", "00000000"},
             {"300.x.-1", "2c00ff00"},
             {"[::1]", "0000000000000000 0000000000000001"},
             {"1:2", "0001000000000000 0000000000000002"},  // no "::"
             {"12345:6::ABcd:x9", "2345000600000000 00000000abcd0009"},
             {"1::2::3", "0001000000020000 0000000000000003"},
             {"1:2:3:4:5:6:7:8:9", "0001000200030004 0005000600070008 0009"}}) {
        EXPECT_EQ(of(utils::compact_ip(text)), hex(address)) << text;
    }
}

TEST_F(utils_test, address_to_text_shortens_the_first_long_enough_run_of_zeros) {
    for (auto const& [address, text] : table<char const*, char const*>{
             {"0a0102ff", "10.1.2.255"},
             {"0001000000000001 0000000000000001", "1::1:0:0:0:1"},
             {"0001000000010000 0000000000000001", "1:0:1::1"},
             {"0001000000010000 0000000100010001", "1::1:0:0:1:1:1"},  // only twice as long
             {"fe80000000000000 0000000000000000", "fe80::"},
             {"0001000200030004 0005000600070abc", "1:2:3:4:5:6:7:abc"}}) {
        EXPECT_EQ(utils::readable_ip(bin(address), false), text);
    }
    EXPECT_EQ(utils::readable_ip(str('\0', 16), true), "[::]");
    EXPECT_EQ(utils::readable_ip(endpoint("0a000001", 69)), "10.0.0.1:69");
}

TEST_F(utils_test, only_names_need_dns) {
    for (char const* literal : {"1.2.3.4", "fe80::1", "[fe80::1]", "::"}) {
        EXPECT_FALSE(utils::need_dns(literal)) << literal;
    }
    for (char const* name : {"host", "1.2.3.4.5", "1.2.3.256", "1.2.3", "", "a:b", "g::1"}) {
        EXPECT_TRUE(utils::need_dns(name)) << name;
    }
}

TEST_F(utils_test, numbers_are_big_endian) {
    EXPECT_EQ(utils::int2str(0x12345678, 3) + utils::int2str(0x12345678, 5),
              bin("345678 0012345678"));
    EXPECT_EQ(utils::str2int(bin("99010203")) + utils::str2int(str()), int(0x99010203));
    EXPECT_EQ(utils::str2ulong(bin("00deadbeef"), 1), 0xDEADBEEF);
    EXPECT_EQ(utils::str2ulong(bin("00deadbeef"), 2), 0U);
}

TEST_F(utils_test, the_mac_address_comes_from_its_file_or_is_the_default) {
    for (auto const& [content, mac] :
         table<char const*, char const*>{{"00:04:aa:bb:cc:dd", "0004AABBCCDD"},
                                         {"00:00:01:bb:cc:dd:ee", "000001BBCCDD"},
                                         {"00:00:00:bb:cc:dd", "02A0B7000001"}}) {
        files["/nv/mac.txt"].content = content;
        EXPECT_EQ(utils::get_mac_addr(), mac);
    }
    EXPECT_EQ(take_log()[0], "5 Read MAC address 0004aabbccdd");
}

// --- Sockets ---

TEST_F(utils_test, udp_sockets_take_datagrams_of_the_expected_family_only) {
    int const fd = utils::open_udp_socket(69, false);
    EXPECT_EQ(utils::send_udp_packet(fd, endpoint("c0000201", 67), str()), 0);
    EXPECT_EQ(sent.size(), 0U) << "nothing empty is sent";
    ip_port peer = endpoint("", 7);
    datagram_arrives(69, "data", "2001:db8::1");
    EXPECT_EQ(utils::recv_udp_packet4(fd, peer), "");
    datagram_arrives(69, "data");
    EXPECT_EQ(utils::recv_udp_packet6(fd, peer), "");
    EXPECT_EQ(utils::readable_ip(peer), "0.0.0.0:7") << "left alone";
    datagram_arrives(69, "v6", "2001:db8::1");
    EXPECT_EQ(utils::recv_udp_packet6(fd, peer), "v6");
    EXPECT_EQ(utils::readable_ip(peer), "[2001:db8::1]:69");
    utils::close_udp_socket(fd);
    fail("bind", EADDRINUSE);
    EXPECT_EQ(utils::open_udp_socket(70, true), -1);
}

// --- Text ---

TEST_F(utils_test, hex_text_padding_and_pieces) {
    EXPECT_EQ(utils::hex2dec("1A") + utils::hex2dec("1G"), 26U);
    EXPECT_EQ(utils::hex2bin("0a0B1") + utils::hex2bin("0x10"), str("\x0a\x0b"));
    EXPECT_EQ(utils::bin2hex("\x01\xfa", false) + utils::bin2hex("\x01\xfa", true), "01fa01FA");
    EXPECT_EQ(utils::padding("abc", 5, '0') + utils::padding("abcdef", 3, ' '), "abc00abc");
    str_list const pieces = utils::split_list(",a,,b,", ',');
    ASSERT_EQ(pieces.count, 2);
    EXPECT_EQ(pieces.head->value + pieces.tail->value, "ab");
    EXPECT_EQ(utils::split_list("a\xE9z", '\xE9').count, 1) << "above 0x7F nothing matches";
    EXPECT_EQ(utils::get_body_pos("a: b\r\n\r\nxyz") + utils::get_body_pos("\n\nx"), 8);
    EXPECT_EQ(utils::generate_randstr(7).length(), 7);
}
