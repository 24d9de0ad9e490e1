// LLDP frames, and what an agent announces. Kinds of a step:
//   0 a frame   1 its TLVs   2 the value of a network policy   3 the link file
//   4 static addresses, parted by blanks   5 stop, start   6 management address   7 a call fails
#include "fuzz/fuzz.h"

#include "config/settings.h"
#include "lldp/lldp.h"

using namespace sim;

namespace {

bytes const ethernet_header = hex("0180c200000e 02deadbeef00 88cc");

lldp& agent() {
    return lldp::clients.find_or_insert("eth1");
}

void switch_says(bytes const& tlvs) {
    frame_arrives("eth1", 0x88CC, ethernet_header + tlvs);
}

void set_addresses(str const& text, unsigned int variant) {
    system_ipv4 = true;
    system_ipv6 = variant & 1;
    use_dhcp = str::f;
    ip_adr = text.get_field(0, ' ');
    netmask = text.get_field(1, ' ');
    gateway = text.get_field(2, ' ');
    vlan_id = text.get_field(3, ' ').value();
    vlan_prio = text.get_field(4, ' ').value();
}

}  // namespace

void fuzz::begin() {
    mac_addr = "0004AABBCCDD";
    ntp_server.clear();
    system_ipv4 = system_ipv6 = false;  // or their clients would have most of the time
    agent().start("eth1");
}

void fuzz::take(step const& each) {
    switch (each.kind) {
    case 0: frame_arrives("eth1", 0x88CC, patched(each.data, 0, ethernet_header)); break;
    case 1: switch_says(each.data); break;
    case 2: switch_says(hex("fe08 0012bb02") + (each.data + bytes(4, '\0')).substr(0, 4)); break;
    case 3: files["/proc/avalanche/cpmac_link"].content = each.data; break;
    case 4: set_addresses(to_str(each.data), each.variant); break;
    case 5:
        agent().stop();
        agent().start("eth1");
        break;
    case 6:
        lldp::set_management_address(to_str(each.data.substr(0, each.variant & 1 ? 4 : 16)));
        break;
    default: fail_some_call(each.data); break;
    }
}
