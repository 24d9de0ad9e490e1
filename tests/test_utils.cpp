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

std::string const link_local = "fe80000000000000 0000000000000001";
std::string const global = "20010db800000000 0000000000000001";

}  // namespace

// --- Addresses ---

TEST_F(utils_test, text_to_address_never_fails) {
    for (auto const& [text, address] : table<char const*, char const*>{
             {"10.1.2.3", "0a010203"},
             {"", "00000000"},
             {"300.x.-1", "2c00ff00"},
             {"1.2.3.4.5", "01020304"},
             {"[1.2.3.4]", "01020304"},
             {"a.b:c", "00000000"},
             {"fe80::1", "fe80000000000000 0000000000000001"},
             {"[::1]", "0000000000000000 0000000000000001"},
             {"1::", "0001000000000000 0000000000000000"},
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
             {"", "0.0.0.0"},
             {"0102030405", "0.0.0.0"},
             {"0000000000000000 0000000000000000", "::"},
             {"0001000000000001 0000000000000001", "1::1:0:0:0:1"},
             {"0001000000010000 0000000000000001", "1:0:1::1"},
             {"0001000000010000 0000000100010001",
              "1::1:0:0:1:1:1"},  // twice is not more than twice
             {"fe80000000000000 0000000000000000", "fe80::"},
             {"0000000000000000 0000000000000001", "::1"},
             {"0001000200030004 0005000600070abc", "1:2:3:4:5:6:7:abc"}}) {
        EXPECT_EQ(utils::readable_ip(bin(address), false), text);
    }
    EXPECT_EQ(utils::readable_ip(str('\0', 16), true), "[::]");
    EXPECT_EQ(utils::readable_ip(endpoint("0a000001", 69)), "10.0.0.1:69");
    EXPECT_EQ(utils::readable_ip(transport_type::tls, endpoint(link_local, 547)),
              "tls:[fe80::1]:547");
}

TEST_F(utils_test, only_names_need_dns) {
    for (char const* literal : {"1.2.3.4", "fe80::1", "[fe80::1]", "[host]", "::", "..1.2.3.4."}) {
        EXPECT_FALSE(utils::need_dns(literal)) << literal;
    }
    for (char const* name : {"host", "1.2.3.4.5", "1.2.3.256", "1.2.3", "", "a:b", "[]", "g::1"}) {
        EXPECT_TRUE(utils::need_dns(name)) << name;
    }
}

TEST_F(utils_test, numbers_are_big_endian) {
    EXPECT_EQ(utils::int2str(0x12345678, 3) + utils::int2str(0x12345678, 5) + utils::int2str(1, 0),
              bin("345678 0012345678"));
    EXPECT_EQ(utils::str2int(bin("010203")), 0x10203);
    EXPECT_EQ(utils::str2int(bin("99ffffffff")), -1);
    EXPECT_EQ(utils::str2int(str()), 0);
    EXPECT_EQ(utils::str2ulong(bin("00deadbeef"), 1), 0xDEADBEEF);
    EXPECT_EQ(utils::str2ulong(bin("00deadbeef"), 2), 0U);
    EXPECT_EQ(utils::binbignum(0x123456, 4) + utils::binbignum(1, 7), bin("3456 000001"));
    EXPECT_EQ(utils::binbignum(0x123456789abcdef0, 20), bin("0000123456789abcdef0"));
}

TEST_F(utils_test, the_mac_address_comes_from_its_file_or_is_the_default) {
    for (auto const& [content, mac] :
         table<char const*, char const*>{{"00:04:aa:bb:cc:dd", "0004AABBCCDD"},
                                         {"00:04:aa:bb:cc:dd\n", "0004AABBCCDD"},
                                         {"00:00:01:bb:cc:dd:ee", "000001BBCCDD"},
                                         {"00:00:00:bb:cc:dd", "02A0B7000001"},
                                         {"", "02A0B7000001"}}) {
        files["/nv/mac.txt"].content = content;
        EXPECT_EQ(utils::get_mac_addr(), mac);
    }
    EXPECT_EQ(take_log()[0], "5 Read MAC address 0004aabbccdd");
}

// --- Sockets ---

TEST_F(utils_test, udp_sockets_are_opened_bound_and_connected) {
    int const server = utils::open_udp_socket(69, false);
    int const near = utils::open_udp_client(0, endpoint(link_local, 547), 3);
    int const far = utils::open_udp_client(5, endpoint(global, 53), 3);
    EXPECT_EQ(describe(server), "udp *:69 reuse nonblocking");
    EXPECT_EQ(describe(near), "udp [*]:0 to [fe80::1%3]:547 reuse nonblocking");
    EXPECT_EQ(describe(far), "udp [*]:5 to [2001:db8::1]:53 reuse nonblocking");
    EXPECT_EQ(utils::readable_ip(utils::local_endpoint(server, false)), "0.0.0.0:69");
    EXPECT_EQ(utils::readable_ip(utils::local_endpoint(far, true)), "[::]:5");
    EXPECT_EQ(utils::send_udp_packet(far, "question"), 8);
    EXPECT_EQ(utils::send_udp_packet(server, endpoint("c0000201", 67), "x"), 1);
    EXPECT_EQ(utils::send_udp_packet(server, endpoint("c0000201", 67), str()), 0);
    EXPECT_EQ(utils::send_udp_packet(near, str()), 0);
    ASSERT_EQ(sent.size(), 2U) << "nothing empty is sent";
    EXPECT_EQ(sent[0].to + " " + sent[1].to, "[2001:db8::1]:53 192.0.2.1:67");
    for (int const fd : {server, near, far}) {
        utils::close_udp_socket(fd);
    }
}

TEST_F(utils_test, failures_to_open_are_logged_and_leave_no_socket_behind) {
    fail("bind", EADDRINUSE);
    EXPECT_EQ(utils::open_udp_socket(69, false) + utils::open_udp_socket(70, true), -2);
    fail("ioctl", EIO);
    EXPECT_EQ(utils::connect_tcp(endpoint("c0000201", 80)), -1);
    EXPECT_EQ(get_interface_index("eth1"), 0);
    repair();
    fail("connect", ECONNREFUSED);
    EXPECT_EQ(utils::connect_tcp(endpoint("c0000201", 80)), -1);
    fail("socket", EMFILE);
    EXPECT_EQ(utils::connect_tcp(endpoint("c0000201", 80)), -1);
    EXPECT_EQ(get_interface_index("eth1"), 0);
    EXPECT_EQ(
        take_log(),
        (lines{"1 UDP: binding to port 69 failed", "1 UDPv6: binding to port 70 failed",
               "1 Could not set socket for non blocking IO", "3 Could not connect to 192.0.2.1:80",
               "1 Could not open a socket for 192.0.2.1:80"}));
    repair();
    EXPECT_EQ(get_interface_index("eth1") * 10 + get_interface_index("a name beyond the limit"),
              20);
}

TEST_F(utils_test, datagrams_are_taken_only_from_the_expected_family) {
    int const fd = utils::open_udp_socket(69, false);
    ip_port peer = endpoint("", 7);
    EXPECT_EQ(utils::recv_udp_packet4(fd, peer), "");
    datagram_arrives(69, "data", "2001:db8::1");
    EXPECT_EQ(utils::recv_udp_packet4(fd, peer), "");
    datagram_arrives(69, "data");
    EXPECT_EQ(utils::recv_udp_packet6(fd, peer), "");
    EXPECT_EQ(utils::readable_ip(peer), "0.0.0.0:7") << "left alone";
    datagram_arrives(69, "v4");
    EXPECT_EQ(utils::recv_udp_packet4(fd, peer), "v4");
    EXPECT_EQ(utils::readable_ip(peer), "192.0.2.1:69");
    datagram_arrives(69, "v6", "2001:db8::1");
    EXPECT_EQ(utils::recv_udp_packet6(fd, peer), "v6");
    EXPECT_EQ(utils::readable_ip(peer), "[2001:db8::1]:69");
    utils::close_udp_socket(fd);
}

// --- Text ---

TEST_F(utils_test, hex_text_padding_and_pieces) {
    EXPECT_EQ(utils::hex2dec("1A") + utils::hex2dec("1G") + utils::hex2dec(""), 26U);
    EXPECT_EQ(utils::hex2dec("9FFFFfffe"), 0xFFFFFFFEU);
    EXPECT_EQ(utils::hex2bin("0a0B1"), str("\x0a\x0b"));
    EXPECT_EQ(utils::hex2bin("0x10"), "");
    EXPECT_EQ(utils::bin2hex("\x01\xfa", false) + utils::bin2hex("\x01\xfa", true), "01fa01FA");
    EXPECT_EQ(utils::padding("abc", 5, '0') + utils::padding("abcdef", 3, ' '), "abc00abc");
    str_list const pieces = utils::split_list(",a,,b,", ',');
    ASSERT_EQ(pieces.count, 2);
    EXPECT_EQ(pieces.head->value + pieces.tail->value, "ab");
    EXPECT_EQ(utils::split_list("", ',').count, 0);
    EXPECT_EQ(utils::split_list("a\xE9z", '\xE9').count, 1) << "above 0x7F nothing matches";
    EXPECT_EQ(utils::get_leading_whitespace(bin("20090d0a0041")), 5);
    EXPECT_EQ(utils::generate_randstr(7).length() + utils::generate_randstr(-1).length(), 7);
}

TEST_F(utils_test, a_body_begins_behind_the_first_empty_line) {
    for (auto const& [message, position] :
         table<char const*, int>{{"HTTP/1.0 200 OK\r\nA: b\r\n\r\nxyz", 25},
                                 {"a: b\r\n", 0},
                                 {"\n\nx", 0},
                                 {"a\n\nx", 3},
                                 {"a\r\rx", 3},
                                 {"a\r\n\r", 0},
                                 {"a\r\n\r\n", 5},
                                 {"a\n\r\nx", 0},
                                 {"", 0}}) {
        EXPECT_EQ(utils::get_body_pos(message), position) << message;
    }
}

TEST_F(utils_test, hosts_and_ports_are_told_apart) {
    for (auto const& [text, host, port] :
         table<char const*, char const*, char const*>{{"[2001:db8::1]:5061", "2001:db8::1", "5061"},
                                                      {"10.0.0.1:5060", "10.0.0.1", "5060"},
                                                      {"pbx", "pbx", ""},
                                                      {"", "", ""},
                                                      {" pbx : 5 ", "pbx", "5"},
                                                      {"[::1", "[::1", ""},
                                                      {"a:b:c", "a", "b:c"}}) {
        EXPECT_EQ(utils::get_via_adr(text), host) << text;
        EXPECT_EQ(utils::get_via_port(text), port) << text;
    }
}

TEST_F(utils_test, the_uptime_is_told_in_words) {
    EXPECT_EQ(uptime_text(), "");
    files["/proc/uptime"].content = "93784.99 5.0\n";
    EXPECT_EQ(uptime_text(), "1 days, 2 hours, 3 minutes");
}
