// EAPOL frames at a guarded port. Kinds of a step:
//   0 a frame   1 an EAPOL packet   2 EAP packets   3 one EAP packet with the right length
//   4 the same of type MD5-Challenge   5 user name or password   6 stop, start   7 a call fails
#include "fuzz/fuzz.h"

#include "config/settings.h"
#include "lldp/lldp.h"

using namespace sim;

namespace {

lldp& agent() {
    return lldp::clients.find_or_insert("eth1");
}

void authenticator_says(bytes const& eapol) {
    frame_arrives("eth1", 0x888E, hex("0180c2000003 02deadbeef00 888e") + eapol);
}

bytes eapol(bytes const& body) {
    return hex("0100") + big_endian(unsigned(body.size()), 2) + body;
}

// `text` is code, identifier and the rest behind the length.
bytes eap(bytes const& text) {
    return (text + bytes(2, '\0')).substr(0, 2) + big_endian(unsigned(text.size()) + 2, 2) +
           text.substr(std::min<size_t>(text.size(), 2));
}

}  // namespace

void fuzz::begin() {
    mac_addr = "0004AABBCCDD";
    ieee_802_1x_username = "base7";
    ieee_802_1x_password = "secret";
    system_ipv4 = system_ipv6 = false;
    agent().start("eth1");
}

void fuzz::take(step const& each) {
    switch (each.kind) {
    case 0: frame_arrives("eth1", 0x888E, each.data); break;
    case 1: authenticator_says(each.data); break;
    case 2: authenticator_says(eapol(each.data)); break;
    case 3: authenticator_says(eapol(eap(each.data))); break;
    case 4: authenticator_says(eapol(eap(hex("0107 04") + each.data))); break;
    case 5:
        (each.variant & 1 ? ieee_802_1x_password : ieee_802_1x_username) = to_str(each.data);
        break;
    case 6:
        agent().stop();
        agent().start("eth1");
        break;
    default: fail_some_call(each.data); break;
    }
}
