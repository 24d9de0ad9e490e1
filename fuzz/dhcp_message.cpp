// DHCPv4 messages, from the first DISCOVER through renewal and rebinding. Kinds of a step:
//   0 an IPv4 packet   1 a DHCP message   2 options of a DHCP message with a good header
//   3 the owner or a timer acts   4 an ARP reply about the offered address   5 a call fails
#include "fuzz/fuzz.h"

#include "config/settings.h"
#include "dhcp/dhcp.h"

using namespace sim;

namespace {

bytes const headers = hex("4500000000000000 4011 0000 c0000201 ffffffff 0043 0044 0000 0000");
bytes const cookie = hex("63825363");

dhcp& client() {
    return dhcp::clients.find_or_insert("eth1");
}

// To whichever socket is open.
void deliver(bytes const& message) {
    frame_arrives("eth1", 0x0800, headers + message);
    datagram_arrives(68, message);
}

void act(unsigned int event) {
    static void (*const acts[])() = {
        [] { client().start("eth1"); },       [] { client().stop(); },
        [] { dhcp::t1_callback("eth1"); },    [] { dhcp::t2_callback("eth1"); },
        [] { dhcp::resend_proc("eth1"); },    [] { dhcp::send_arp("eth1"); },
        [] { dhcp::t1_callback("another"); }, [] { dhcp::t2_callback("another"); },
        [] { ntp_server = "192.0.2.9"; },
    };
    acts[event % std::size(acts)]();
}

}  // namespace

void fuzz::begin() {
    mac_addr = "0004AABBCCDD";
    ntp_server.clear();
    client().start("eth1");
}

void fuzz::take(step const& each) {
    switch (each.kind) {
    case 0: frame_arrives("eth1", 0x0800, each.data); break;
    case 1: {
        bytes const answered = patched(patched(each.data, 4, of(client().xid)), 236, cookie);
        deliver(each.variant == 0 ? answered : each.data);
        break;
    }
    case 2:
        deliver(hex("02010600") + of(client().xid) + bytes(8, '\0') + hex("c0000232") +
                bytes(216, '\0') + cookie + each.data);
        break;
    case 3: act(number(each.data, 0)); break;
    case 4:
        frame_arrives("eth1", 0x0806,
                      hex("0001080006040002 02a0b7999999") + of(client().offered_address) +
                          bytes(10, '\0'));
        break;
    case 5: fail_some_call(each.data); break;
    default: break;
    }
}
