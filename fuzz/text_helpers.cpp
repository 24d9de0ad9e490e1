// Addresses, numbers and texts in both directions. Kinds of a step:
//   0 a binary address   1 the text of an address or endpoint   2 hex digits   3 numbers
//   4 pieces   5 a message's body   6 the MAC file or /proc/uptime   7 seconds and milliseconds
#include "fuzz/fuzz.h"

#include "core/timestamp.h"
#include "lib/utils.h"

#include <arpa/inet.h>

using namespace sim;

namespace {

// The C library reads the texts alike.
void address(str const& adr) {
    bool const is_ipv6 = adr.length() == ip_port::ipv6_length;
    str const text = utils::readable_ip(adr, false);
    EXPECT_TRUE(utils::readable_ip(adr, true) == (is_ipv6 ? str("[") + text + "]" : text));
    EXPECT_FALSE(utils::need_dns(text));
    unsigned char binary[16] = {};
    EXPECT_EQ(inet_pton(is_ipv6 ? AF_INET6 : AF_INET, of(text).c_str(), binary), 1) << of(text);
    EXPECT_TRUE(adr == str(binary, adr.length()));
    // "::" for a single group at either end reads as two: the known exception.
    bool const is_exception = utils::compact_ip(text).length() > ip_port::ipv6_length;
    EXPECT_TRUE(is_exception || utils::compact_ip(text) == adr) << of(text);
    for (int transport : {1, 2, 3, 4}) {
        str const full = utils::readable_ip(transport, {adr, 547});
        EXPECT_EQ(utils::get_via_port(full.get_rest(transport < 4 ? 1 : 0, ':')).value(), 547);
    }
}

void endpoint_text(str const& text) {
    EXPECT_GE(utils::compact_ip(text).length(), 4);
    str const host = utils::get_via_adr(text);
    EXPECT_LE(host.length() + utils::get_via_port(text).length(), text.length());
    (void)utils::need_dns(host);
}

void hex_digits(str const& bytes) {
    EXPECT_TRUE(utils::hex2bin(utils::bin2hex(bytes, false)) == bytes);
    EXPECT_LE(utils::hex2bin(bytes).length(), bytes.length() / 2);
    (void)utils::hex2dec(bytes);
}

void numbers(str const& bytes, int count) {
    unsigned int const value = utils::str2ulong(bytes, 0);
    EXPECT_EQ(unsigned(utils::str2int(utils::int2str(value, 4 + count))), value);
    EXPECT_EQ(utils::hex2dec(str::hex_text(value, 8)), value);
    EXPECT_TRUE(utils::binbignum(value, 8) == utils::int2str(value, 4));
    EXPECT_EQ((utils::padding(bytes, count, 7) + utils::generate_randstr(count)).length(),
              2 * count);
    EXPECT_EQ(utils::str2int(bytes), utils::str2int(bytes.rightstr(4)));
}

// No piece is empty, and all of them with their separators are no more than the text.
void pieces(str const& text, char separator) {
    str_list const list = utils::split_list(text, separator);
    int sum = list.count - 1;
    for (str_list::node const* each = list.head; each; each = each->next) {
        EXPECT_FALSE(each->value.empty());
        sum += each->value.length();
    }
    EXPECT_LE(sum, text.length());
    EXPECT_LE(split_set(text, separator).count, list.count);
}

void device_file(bytes const& content, bool is_mac) {
    files[is_mac ? "/nv/mac.txt" : "/proc/uptime"].content = content;
    EXPECT_EQ((is_mac ? utils::get_mac_addr() : uptime_text()).empty(), !is_mac && content.empty());
}

void message(str const& text) {
    EXPECT_LE(utils::get_leading_whitespace(text), text.length());
    EXPECT_LE(utils::get_body_pos(text), text.length());
}

}  // namespace

void fuzz::begin() {}

void fuzz::take(step const& each) {
    str const text = to_str(each.data);
    switch (each.kind) {
    case 0: address(utils::padding(text, each.variant & 1 ? 16 : 4, 0)); break;
    case 1: endpoint_text(text); break;
    case 2: hex_digits(text); break;
    case 3: numbers(text, int(each.variant)); break;
    case 4: pieces(text.substr(1), char(text[0])); break;
    case 5: message(text); break;
    case 6: device_file(each.data, each.variant & 1); break;
    default: (void)ms2text(text2ms(text)); break;
    }
}
