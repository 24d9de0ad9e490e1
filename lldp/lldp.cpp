#include "lldp/lldp.h"

#include "config/settings.h"
#include "core/log.h"
#include "lib/descriptors.h"
#include "lib/packet_socket.h"
#include "lib/utils.h"

#include <sys/socket.h>

constinit smap<str, lldp> lldp::clients;

namespace {

constexpr int fast_frames = 3;     // a second apart after the start; ANSI/TIA-1057 has 4
constexpr int fast_interval = 1;   // seconds
constexpr int slow_interval = 30;  // seconds: msgTxInterval of IEEE 802.1AB-2009, 9.2.5.7
// ANSI/TIA-1057, 10.2.2.2: types below this one are endpoints, not switches.
constexpr int device_type_connectivity = 4;

}  // namespace

lldp::~lldp() {
    descriptors::close(eapol_fd);
    descriptors::close(lldp_fd);
}

void lldp::start(str const& ifname) {
    name = ifname;
    interface_index = get_interface_index(name);
    bool const is_guarded = !ieee_802_1x_username.empty();
    log_text(9, is_guarded ? "Starting 802.1X" : "Starting LLDP");
    if (is_guarded) {
        start_eapol();
    } else {
        start_lldp();
    }
}

void lldp::start_lldp() {
    counter = 0;
    if (lldp_fd == -1) {
        lldp_fd = packet_socket::open(SOCK_RAW, lldp_packet::ether_type, interface_index);
        (void)multicast(lldp_fd, lldp_packet::group_address, true);
    }
    state = state_lldp;
    resend_proc(name);
}

int lldp::multicast(int socket, unsigned char const* mac, bool add) {
    return packet_socket::membership(socket, interface_index, mac, add);
}

void lldp::resend_proc(str const& ifname) {
    if (lldp* const agent = clients.find(ifname)) {
        agent->tick();
    }
}

void lldp::tick() {
    switch (state) {
    case state_eapol_start:
        eapol_tick();
        break;
    case state_lldp:
        lldp_tick();
        break;
    case state_idle:
    case state_eapol_authenticating:
        break;
    }
}

void lldp::lldp_tick() {
    int const old = counter;
    counter = old + 1;
    if (old == fast_frames) {
        start_dhcp();
    } else if (lldp_fd != -1) {
        send_frame();
    }
    timer.callback(rtimestamp::s2ticks(old < fast_frames ? fast_interval : slow_interval),
                   callback_argument(resend_proc, name));
}

void lldp::send_frame() {
    log_text(9, "Send LLDP");
    setup_packet();
    str const frame = packet.serialize();
    packet_socket::send(lldp_fd, lldp_packet::ether_type, interface_index, frame.leftstr(6), frame);
}

void lldp::process_lldp(str const& frame) {
    lldp_packet const received(frame.substr(lldp_packet::ethernet_header_length));
    str const capabilities = received.get_tia_option(lldp_packet::tia_capabilities);
    if (capabilities.length() >= 3 && capabilities[2] < device_type_connectivity) {
        return;
    }
    str const policy = received.get_tia_option(lldp_packet::tia_network_policy);
    int const application = policy[0];
    if (application != lldp_packet::application_voice &&
        application != lldp_packet::application_guest_voice &&
        application != lldp_packet::application_softphone_voice) {
        return;
    }
    unsigned int const word = utils::number_at(policy, 1, 3);
    if (!(word & lldp_packet::policy_tagged)) {
        return;
    }
    int const vlan = int(word >> lldp_packet::policy_vlan_shift & 0xFFF);
    int const priority = int(word >> lldp_packet::policy_priority_shift & 7);
    int const dscp = int(word & 0x3F);
    if (vlan == voice_vlan && priority == voice_priority && dscp == voice_dscp) {
        return;
    }
    voice_vlan = vlan;
    voice_priority = priority;
    voice_dscp = dscp;
    log_text(8, "LLDP: VLAN=%d, Priority=%d, DSCP=%d", vlan, priority, dscp);
    start_dhcp();
}

void lldp::set_management_address(str const& address) {
    for (auto* each = clients.first(); each; each = clients.next(each)) {
        each->value.management_address = address;
    }
}
