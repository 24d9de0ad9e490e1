#include "sim/sim.h"

#include "lib/utils.h"

#include <cerrno>

using namespace sim;
using namespace utils;
using utils_test = sim::test;

TEST_F(utils_test, addresses_are_read_from_any_text_and_shown_short) {
    for (str const row : {"300.x.-1=44.0.255.0", "1.2.3.4:5=1.2.3.4", "[[::1]]=::1", "1:2=1::2",
                          "fe80::=fe80::", "12345:6::ABcd:x9=2345:6::abcd:9", "1::2::3=1:0:2::3",
                          "1:0:0:1:0:0:0:1=1::1:0:0:0:1", "1:0:1::1=1:0:1::1",
                          "1:2:3:4:5:6:7:8:9=0.0.0.0", "1:2:3:4:5:6:7:fabc=1:2:3:4:5:6:7:fabc"}) {
        EXPECT_EQ(readable_ip(compact_ip(row.get_field(0, '=')), false), row.get_field(1, '='));
    }
    ip_port const v6 = {compact_ip("::"), 69};
    EXPECT_EQ(readable_ip(1, v6) + readable_ip(2, v6) + readable_ip(3, {}) + readable_ip(4, v6),
              "udp:[::]:69tcp:[::]:69tls:0.0.0.0:0:[::]:69");
    str names;
    for (str const text : {"1.2.3.255", "Fe80::0A", "[x]", "::", "9:f:F", "host", "1.2.3.4.5",
                           "1.2.3.256", "1.2.3", "", "a:b", "g::1", "G::1"}) {
        names += need_dns(text) ? text + " " : str();
    }
    EXPECT_EQ(names, "host 1.2.3.4.5 1.2.3.256 1.2.3  a:b g::1 G::1 ");
}

TEST_F(utils_test, numbers_messages_and_lists_are_taken_apart) {
    EXPECT_EQ(of(int2str(0x12345678, 5) + binbignum(0x123456789AB, 18)),
              hex("0012345678 0000000123456789ab"));
    str const five = hex2bin("99deadbeef");
    EXPECT_EQ(str2int(five), int(0xDEADBEEF));
    EXPECT_EQ(str2ulong(five, 1) + str2ulong(five, 2) + str2ulong(five, -1), 0xDEADBEEF);
    EXPECT_EQ(of(hex2bin("09aFA") + hex2bin("0x10") + hex2bin("g0")), hex("09af"));
    EXPECT_EQ(utils::padding("abc", 5, '0') + utils::padding("abcdef", 3, ' '), "abc00abc");
    EXPECT_EQ(get_body_pos("\r\n\r\nA:\r\n\r\nx") * 100 + get_body_pos("\n\nx\n\n"), 1005);
    EXPECT_EQ(get_body_pos("x\r\r") * 10 + get_body_pos("xx\r\n\r") + get_body_pos("x\n"), 30);
    for (str const row :
         {"[2001:db8::1]: 5061 =2001:db8::1=5061", " pbx :5060:1=pbx=5060:1", "pbx=pbx"}) {
        EXPECT_EQ(get_via_adr(row.get_field(0, '=')), row.get_field(1, '='));
        EXPECT_EQ(get_via_port(row.get_field(0, '=')), row.get_field(2, '='));
    }
    EXPECT_EQ(split_set(",b,,a,b,c", ',').count + split_list("a\xE9z", '\xE9').count, 4);
    EXPECT_EQ(get_mac_addr() + uptime_text(), "02A0B7000001");
    files["/proc/uptime"].content = "93784.99 5";
    EXPECT_EQ(uptime_text(), "1 days, 2 hours, 3 minutes");
    for (str const row : {"00:00:01:bb:cc:dd:ee=000001BBCCDD", "00:00:00:b:c:d=02A0B7000001"}) {
        files["/nv/mac.txt"].content = of(row.get_field(0, '='));
        EXPECT_EQ(get_mac_addr(), row.get_field(1, '='));
    }
}

TEST_F(utils_test, sockets_connect_send_and_receive_and_close_when_they_fail) {
    int const udp = open_udp_client(69, {compact_ip("fe80::1"), 70}, 2);
    EXPECT_EQ(describe(udp), "udp [*]:69 to [fe80::1%2]:70 reuse nonblocking");
    ip_port peer = local_endpoint(udp, true);
    datagram_arrives(69, "data");
    EXPECT_TRUE(recv_udp_packet6(udp, peer).empty() && readable_ip(peer) == "[::]:69");
    fail("connect", EINPROGRESS);
    int const tcp = connect_tcp(peer);
    str data("data");
    EXPECT_EQ(send_tcp(tcp, data) + data.length(), 4);
    close_udp_socket(udp);
    close_udp_socket(tcp);
    for (char const* call : {"connect", "ioctl", "socket"}) {
        fail(call, EIO);
        EXPECT_EQ(connect_tcp(peer), -1);
    }
    repair();
    fail("bind", EADDRINUSE);
    EXPECT_EQ(open_udp_socket(70, true) + open_tcp_listener(5061, true), -2);
    EXPECT_EQ(take_log().size(), 5U);
}
