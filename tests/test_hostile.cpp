// What hurts a reader of foreign bytes, in the size of a frame and in the largest that its socket
// lets through, many in a row.
#include "readers.h"

using namespace sim;
using hostile_test = sim::test;

TEST_F(hostile_test, no_packet_costs_more_than_it_may) {
    // Its first record holds a name that leads in a circle.
    bytes const answer = hex("0000 8180 0000 ffff ffff ffff 00 0010 0001 00000000 00c2 bf") +
                         bytes(191, 'a') + hex("c017");
    bytes const ack = hex("02010600") + bytes(12, '\0') + hex("c0000232") + bytes(24, '\0') +
                      bytes(192, '\x0c') + hex("63825363 3604c0000201 350105");
    bytes const reply6 =
        hex("07000000 0003 0028 49414944 0000000000000000 0005 0018") + bytes(24, '\1');
    for (auto const& [name, begin, rest] :
         table<std::string, bytes, bytes>{{"DNS", answer, hex("c017 0005 0001 00015180 0002 c017")},
                                          {"DHCPv4", ack, hex("340103")},
                                          {"DHCPv4", ack, hex("0c00")},
                                          {"DHCPv6", reply6, hex("00ee0000")},
                                          {"DHCPv6", reply6 + hex("0018 ffff"), hex("0462626262")},
                                          {"LLDP", bytes(14, '\0'), hex("fe00")},
                                          {"EAPOL", bytes(18, '\0'), hex("0107000501")},
                                          {"EAPOL", bytes(18, '\0'), hex("03070004")},
                                          {"TFTP request", hex("0001"), "n"},
                                          {"TFTP request", hex("0001 6c6f6e67"), hex("00")},
                                          {"TFTP transfer", hex("0005 0000"), "e"}}) {
        reader const& where = readers.at(name);
        for (size_t const size : {size_t(1472), where.size_max()}) {
            SetUp();
            first_descriptor = 20;
            where.begin();
            meter watch;
            bytes packet = begin;
            while (packet.size() < size) {
                packet += rest;
            }
            packet.resize(size);
            SCOPED_TRACE(name + ", " + to_hex(rest) + std::to_string(size));
            for (int n = size < 2000 ? 100 : 5; n > 0; --n) {
                where.await();
                where.arrive(where.fitted(packet));
                watch.expect_cheap(
                    size, [] { run_for(0); }, where.beyond);
            }
        }
    }
}
