// What hurts a reader of foreign bytes, in the size of a frame and in the largest that its socket
// lets through, many in a row.
#include "readers.h"

using namespace sim;
using hostile_test = sim::test;

namespace {

bytes repeated(char const* digits, size_t times) {
    bytes data;
    for (bytes const part = hex(digits); times > 0; --times) {
        data += part;
    }
    return data;
}

}  // namespace

TEST_F(hostile_test, no_packet_costs_more_than_it_may) {
    // Names that lead through the same labels of 191 bytes, each from a start of its own.
    bytes labels =
        hex("0000 8180 0000 ffff ffff ffff 00 0010 0001 00000000 037c") + repeated("bf41", 350);
    for (unsigned int i = 25; i < 217; i += 2) {
        labels += big_endian(0xC000 + i + (i & 0x80) * 2, 2);  // The low byte is signed.
    }
    bytes const message = hex("02010600") + bytes(12, '\0') + hex("c0000232") + bytes(24, '\0') +
                          repeated("340103", 64) + hex("63825363 3604c0000201 350105");
    bytes const reply6 =
        hex("07000000 0003 0028 49414944 0000000000000000 0005 0018") + bytes(24, '\1');
    for (auto const& [number, begin, rest] : table<reader_number, bytes, char const*>{
             {reader_dns, labels, "c017 0005 0001 00015180 0000"},
             {reader_dns, hex("0000 8180 ffff ffff ffff ffff"), "00"},
             {reader_dhcp, message, "340103"},
             {reader_dhcp, message, "0c00"},
             {reader_dhcp6, hex("02000000 0002 7000") + bytes(28672, 'i') + hex("0003 7000"), "aa"},
             {reader_dhcp6, reply6, "00ee0000"},
             {reader_dhcp6, reply6 + hex("0018 ffff"), "0462626262"},
             {reader_lldp, bytes(14, '\0'), "fe00"},
             {reader_eapol, bytes(18, '\0'), "0107000501"},
             {reader_eapol, bytes(18, '\0'), "03070004"},
             {reader_tftp_request, hex("0001"), "6e"},
             {reader_tftp_request, hex("0001 6c6f6e6700"), "00"},
             {reader_tftp_transfer, hex("0005 0000"), "65"}}) {
        reader const& where = readers[number];
        for (size_t const size : {size_t(1472), where.size_max}) {
            SetUp();
            first_descriptor = 20;
            where.begin();
            meter watch;
            bytes const packet = (begin + repeated(rest, size)).substr(0, size);
            SCOPED_TRACE(std::string(where.name) + ", " + rest + ", " + std::to_string(size));
            for (int n = size < 2000 ? 100 : 5; n > 0; --n) {
                where.await();
                where.arrive(where.fitted(packet));
                watch.expect_cheap(
                    size, [] { run_for(0); }, where.beyond);
            }
        }
    }
}
