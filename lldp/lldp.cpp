#include "lldp/lldp.h"

#include "config/settings.h"
#include "core/log.h"
#include "lib/packet_socket.h"
#include "lib/utils.h"

#include <initializer_list>
#include <sys/socket.h>
#include <unistd.h>

constinit smap<str, lldp> lldp::clients;

namespace {

constexpr int fast_frames = 3;     // frames a second apart after the start
constexpr int fast_interval = 1;   // seconds
constexpr int slow_interval = 30;  // seconds
// ANSI/TIA-1057, 10.2.2.2: types below this one are endpoints, not switches.
constexpr int device_type_connectivity = 4;

}  // namespace

lldp::~lldp() {
    for (int fd : {eapol_fd, lldp_fd}) {
        if (fd != -1) {
            close(fd);
        }
    }
}

void lldp::start(str const& ifname) {
    name = ifname;
    interface_index = get_interface_index(name);
    bool const is_guarded = !ieee_802_1x_username.empty();
    if (log_level >= 9) {
        log_add_message(9, is_guarded ? "Starting 802.1X" : "Starting LLDP", str::null);
    }
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
    default:
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
    if (log_level >= 9) {
        log_add_message(9, "Send LLDP", str::null);
    }
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
    unsigned int const word = unsigned(utils::str2int(policy.substr(1, 3)));
    if (!(word & lldp_packet::policy_tagged)) {
        return;
    }
    int const vlan = int(word >> lldp_packet::policy_vlan_shift & 0xFFF);
    int const priority = int(word >> lldp_packet::policy_priority_shift & 7);
    int const dscp = int(word & 0x3F);
    if (vlan == learnt_vlan_id && priority == learnt_priority && dscp == learnt_dscp) {
        return;
    }
    learnt_vlan_id = vlan;
    learnt_priority = priority;
    learnt_dscp = dscp;
    if (log_level >= 8) {
        log_add_message(8,
                        str::sprintf("LLDP: VLAN=%d, Priority=%d, DSCP=%d", vlan, priority, dscp),
                        str::null);
    }
    start_dhcp();
}

void lldp::set_management_address(str const& address) {
    for (auto* each = clients.first(); each; each = clients.next(each)) {
        each->value.management_address = address;
    }
}
