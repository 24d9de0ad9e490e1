// ARP frames while an offered address is probed and announced. Kinds of a step:
//   0 a frame   1 a frame that is a reply   2 and is about the offered address   3 and comes from
//   us 4 a server offers again   5 a server acknowledges   6 a call fails
#include "fuzz/fuzz.h"

#include "config/settings.h"
#include "dhcp/dhcp.h"

using namespace sim;

namespace {

bytes const reply = hex("0001080006040002");
bytes const our_mac = hex("0004aabbccdd");
bytes const offered = hex("c0000232");

dhcp& client() {
    return dhcp::clients.find_or_insert("eth1");
}

void server_says(bytes const& options) {
    bytes const headers = hex("4500000000000000 4011 0000 c0000201 ffffffff 0043 0044 0000 0000");
    frame_arrives("eth1", 0x0800,
                  headers + hex("02010600") + of(client().xid) + bytes(8, '\0') + offered +
                      bytes(216, '\0') + hex("63825363") + options);
    run_for(0);
}

}  // namespace

void fuzz::begin() {
    mac_addr = "0004AABBCCDD";
    ntp_server.clear();
    client().start("eth1");
    server_says(hex("350102 3604c0000201"));
}

void fuzz::take(step const& each) {
    bytes frame = each.data;
    frame = each.kind >= 1 ? patched(frame, 0, reply) : frame;
    frame = each.kind >= 2 ? patched(frame, 14, of(client().offered_address)) : frame;
    frame = each.kind >= 3 ? patched(frame, 8, our_mac) : frame;
    if (each.kind <= 3) {
        frame_arrives("eth1", 0x0806, frame);
    } else if (each.kind == 6) {
        fail_some_call(each.data);
    } else {
        server_says(hex(each.kind == 4 ? "350102 3604c0000201" : "350105 3304 00000e10"));
    }
}
