// DHCPv6 messages, from SOLICIT to REBIND. Kinds of a step:
//   0 a message   1 with our transaction id   2 and with our IAID in its IA_NA
//   3 options of an ADVERTISE or REPLY that grants an address   4 the file of IPv6 addresses
//   5 the owner or a timer acts   6 a call fails
#include "fuzz/fuzz.h"

#include "config/settings.h"
#include "dhcp6/dhcp6.h"

using namespace sim;

namespace {

dhcp6& client() {
    return dhcp6::clients.find_or_insert("eth1");
}

bytes with_our_iaid(bytes const& message) {
    for (size_t i = 4; i + 4 < message.size();) {
        unsigned int const code = fuzz::number(message, i) << 8 | fuzz::number(message, i + 1);
        if (code == 3) {
            return fuzz::patched(message, i + 4, of(client().iaid));
        }
        i += 4 + (fuzz::number(message, i + 2) << 8 | fuzz::number(message, i + 3));
    }
    return message;
}

bytes granting(char type, unsigned int t1) {
    bytes const address = hex("0005 0018 20010db8000000000000000000000050") + bytes(8, '\1');
    return type + of(client().message.transaction_id()) + hex("0002 0002 5356 0003 0028") +
           of(client().iaid) + big_endian(t1, 4) + big_endian(t1 * 2, 4) + address;
}

void act(unsigned int event) {
    static void (*const acts[])() = {
        [] { client().start("eth1"); },           [] { client().stop(); },
        [] { dhcp6::renew_callback("eth1"); },    [] { dhcp6::resend_callback("eth1"); },
        [] { dhcp6::renew_callback("another"); }, [] { dhcp6::resend_callback("another"); },
    };
    acts[event % std::size(acts)]();
}

}  // namespace

void fuzz::begin() {
    mac_addr = "0004AABBCCDD";
    client().start("eth1");
}

void fuzz::take(step const& each) {
    bytes message = each.data;
    message = each.kind >= 1 ? patched(message, 1, of(client().message.transaction_id())) : message;
    message = each.kind >= 2 ? with_our_iaid(message) : message;
    if (each.kind == 3) {
        message = granting(each.variant & 1 ? '\7' : '\2', each.variant & 2 ? 5 : 0) + each.data;
    }
    if (each.kind <= 3) {
        datagram_arrives(546, message, "fe80::1");
    } else if (each.kind == 4) {
        files["/proc/net/if_inet6"].content = each.data;
    } else if (each.kind == 5) {
        act(number(each.data, 0));
    } else {
        fail_some_call(each.data);
    }
}
