// The VLAN interface, and the start and stop of the address clients.
#include "config/settings.h"
#include "core/log.h"
#include "dhcp/dhcp.h"
#include "dhcp6/dhcp6.h"
#include "lib/descriptors.h"
#include "lib/utils.h"
#include "lldp/lldp.h"

#include <initializer_list>
#include <linux/if_vlan.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

constexpr int vlan_mtu = 1496;  // leaves room for the tag in 1500 bytes

// Never emptied: an interface is created once in the life of the process.
constinit sset<int> created_vlans;

void create_vlan(str const& base, str const& vlan_interface, int vlan, int priority) {
    int fd = descriptors::open_socket(AF_INET, SOCK_STREAM, 0);
    vlan_ioctl_args request = {};
    request.cmd = ADD_VLAN_CMD;
    utils::copy_interface_name(request.device1, base);
    request.u.VID = vlan;
    (void)ioctl(fd, SIOCSIFVLAN, &request);
    for (int command : {SET_VLAN_EGRESS_PRIORITY_CMD, SET_VLAN_INGRESS_PRIORITY_CMD}) {
        vlan_ioctl_args mapping = {};
        mapping.cmd = command;
        utils::copy_interface_name(mapping.device1, vlan_interface);
        mapping.u.skb_priority = 0;
        mapping.vlan_qos = static_cast<short>(priority);
        (void)ioctl(fd, SIOCSIFVLAN, &mapping);
    }
    descriptors::close(fd);
}

void bring_up(str const& vlan_interface) {
    int fd = descriptors::open_socket(AF_INET, SOCK_DGRAM, 0);
    ifreq request = {};
    utils::copy_interface_name(request.ifr_name, vlan_interface);
    if (ioctl(fd, SIOCGIFFLAGS, &request) == 0) {
        request.ifr_flags |= IFF_UP;
        (void)ioctl(fd, SIOCSIFFLAGS, &request);
    }
    request.ifr_mtu = vlan_mtu;
    (void)ioctl(fd, SIOCSIFMTU, &request);
    descriptors::close(fd);
}

bool is_host_address(str const& ip) {
    return ip.length() == 4 && ip != c_0_0_0_0 && ip[0] != 0 && ip[3] != 0;
}

// Ones, then at least one zero; neither 0.0.0.0 nor 255.255.255.255.
bool is_contiguous_mask(str const& mask) {
    if (mask.length() != 4) {
        return false;
    }
    unsigned int const zeros = ~utils::number_at(mask, 0, 4);
    return zeros != 0 && zeros != ~0U && (zeros & (zeros + 1)) == 0;
}

}  // namespace

str lldp::setup_vlan_interface() const {
    log_text(5, "Using VLAN %d", voice_vlan);
    str const vlan_interface = str::sprintf("%s.%d", name, voice_vlan);
    if (!created_vlans.contains(voice_vlan)) {
        created_vlans.insert(voice_vlan);
        create_vlan(name, vlan_interface, voice_vlan, voice_priority);
        bring_up(vlan_interface);
    }
    return vlan_interface;
}

void lldp::start_dhcp() {
    if (dhcp_started) {
        return;
    }
    dhcp_started = true;
    if (voice_vlan == 0 && lldp_packet::is_valid_vlan(vlan_id, vlan_prio)) {
        voice_vlan = vlan_id;
        voice_priority = vlan_prio;
    }
    str const interface_name = voice_vlan > 0 ? setup_vlan_interface() : name;
    default_interface_index = get_interface_index(interface_name);
    if (system_ipv4) {
        start_ipv4(interface_name);
    }
    if (system_ipv6) {
        dhcp6::clients.find_or_insert(interface_name).start(interface_name);
    }
}

bool lldp::has_static_address() {
    return use_dhcp == str::f && is_host_address(utils::compact_ip(ip_adr)) &&
           is_contiguous_mask(utils::compact_ip(netmask));
}

void lldp::start_ipv4(str const& interface_name) {
    dhcp& client = dhcp::clients.find_or_insert(interface_name);
    if (!has_static_address()) {
        client.start(interface_name);
        return;
    }
    client.stop();
    client.interface = interface_name;
    client.set(utils::compact_ip(ip_adr), utils::compact_ip(netmask), str::null,
               utils::compact_ip(gateway));
}

// Intended: the clients of the base interface are stopped, also when a VLAN interface is in use,
// whose clients go on. Do not look for the VLAN's clients.
void lldp::stop() {
    dhcp_started = false;
    timer.clear();
    counter = 0;
    voice_vlan = 0;
    voice_priority = 0;
    voice_dscp = 0;
    if (system_ipv4) {
        dhcp::clients.find_or_insert(name).stop();
    }
    if (system_ipv6) {
        dhcp6::clients.find_or_insert(name).stop();
    }
}
