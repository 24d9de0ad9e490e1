// What hurts a reader of foreign bytes, in the size of a frame and in the largest that its socket
// lets through, many in a row.
#include "readers.h"

using namespace sim;
using hostile_test = sim::test;

namespace {

bytes repeated(bytes const& part, size_t times) {
    bytes data;
    for (; times > 0; --times) {
        data += part;
    }
    return data;
}

// `steps` apart from offset 23 on. The low byte counts as signed.
bytes pointers(unsigned int count, unsigned int step) {
    bytes data;
    for (unsigned int i = 1; i <= count; ++i) {
        unsigned int const target = 23 + i * step;
        data += big_endian(0xC000 + target + (target & 0x80) * 2, 2);
    }
    return data;
}

}  // namespace

TEST_F(hostile_test, no_packet_costs_more_than_it_may) {
    // Behind the flags, claims of records; the first of them holds what others name.
    std::string const claims = "0000 8180 0000 ffff ffff ffff";
    bytes const region = hex(claims + "00 0010 0001 00000000");
    std::string const message =
        "02010600" + std::string(24, '0') + "c0000232" + std::string(48, '0');
    std::string const options = "63825363 3604c0000201 3501";
    bytes const sname = repeated(hex("340103"), 64);
    bytes const headers = hex("4500000000000000 4011 0000 c0000201 ffffffff 0043 0044 00000000");
    struct {
        reader_number where;
        char const* name;
        bytes begin;
        char const* rest;  // again and again
    } const shapes[] = {
        {reader_dns, "overlapping labels",
         region + hex("037c") + repeated(hex("bf41"), 350) + pointers(96, 2),
         "c017 0005 0001 00015180 0000"},
        {reader_dns, "chains of pointers",
         region + hex("01fc") + repeated(hex("0161"), 1) + pointers(127, 4),
         "c017 0005 0001 00015180 0000"},
        {reader_dns, "claims alone", hex(claims), "00"},
        {reader_dhcp_frame, "options 52", headers + hex(message) + sname + hex(options + "02"),
         "340103"},
        {reader_dhcp, "options 52", hex(message) + sname + hex(options + "05"), "340103"},
        {reader_dhcp, "empty options", hex(message) + sname + hex(options + "05"), "0c00"},
        {reader_arp, "conflict", hex("0001080006040002 02a0b7999999 c0000232"), "00"},
        {reader_dhcp6, "long identifiers",
         hex("02000000 0002 7000") + bytes(28672, 'i') + hex("0003 7000"), "aa"},
        {reader_dhcp6, "empty options",
         hex("07000000 0003 0028 49414944 0000000000000000 0005 0018") + bytes(24, '\1'),
         "00ee0000"},
        {reader_dhcp6, "domain",
         hex("07000000 0003 0028 49414944 0000000000000000 0005 0018") + bytes(24, '\1') +
             hex("0018 ffff"),
         "0462626262"},
        {reader_lldp, "empty TLVs", bytes(14, '\0'), "fe00"},
        {reader_eapol, "Requests", bytes(18, '\0'), "0107000501"},
        {reader_eapol, "Successes", bytes(18, '\0'), "03070004"},
        {reader_ntp, "reply", "", "1c"},
        {reader_tftp_request, "name to read", hex("0001"), "6e"},
        {reader_tftp_request, "longest name", hex("0001") + bytes(4000, 'n'), "00"},
        {reader_tftp_request, "read", hex("0001 6c6f6e6700"), "00"},
        {reader_tftp_transfer, "data", hex("0003 0000"), "64"},
        {reader_tftp_transfer, "error", hex("0005 0000"), "65"},
    };
    for (size_t const size : {size_t(1472), datagram_max}) {
        for (auto const& each : shapes) {
            reader const& where = readers[each.where];
            SetUp();
            first_descriptor = 20;
            where.begin();
            meter watch;
            bytes const packet = (each.begin + repeated(hex(each.rest), size))
                                     .substr(0, std::min(size, where.size_max));
            SCOPED_TRACE(std::string(where.name) + ", " + each.name + ", " + std::to_string(size));
            for (int n = size < 2000 ? 100 : 5; n > 0; --n) {
                where.await();
                where.arrive(where.fitted(packet));
                watch.expect_cheap(
                    packet.size(), [] { run_for(0); }, where.beyond);
            }
        }
    }
}
