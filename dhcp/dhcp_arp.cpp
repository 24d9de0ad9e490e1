// The ARP conflict check (RFC 5227): three probes a second apart beside the REQUEST, then three
// announcements. Frames as in RFC 826, without the Ethernet header:
//   offset  size  field
//        0     2  hardware type: 1, Ethernet
//        2     2  protocol: 0x0800, IPv4
//        4     1  hardware address length: 6
//        5     1  protocol address length: 4
//        6     2  operation: 1 request, 2 reply
//        8     6  sender hardware address
//       14     4  sender address
//       18     6  target hardware address
//       24     4  target address
#include "dhcp/dhcp.h"

#include "config/settings.h"
#include "core/log.h"
#include "lib/descriptors.h"
#include "lib/packet_socket.h"
#include "lib/utils.h"

#include <net/ethernet.h>
#include <sys/socket.h>

namespace {

constexpr int frames_per_round = 3;  // RFC 5227, 1.1 has 3 probes (PROBE_NUM), 2 announcements
constexpr int round_pace = 1;        // seconds between frames, there 1 to 2 between probes
constexpr int arp_length = 28;
constexpr unsigned char request_header[] = {0, 1, 8, 0, 6, 4, 0, 1};
constexpr unsigned char reply_header[] = {0, 1, 8, 0, 6, 4, 0, 2};

}  // namespace

void dhcp::start_arp_probe() {
    arp_count = 0;
    arp_done = false;
    arp_conflict = false;
    arp_tick();
}

void dhcp::send_arp(str const& interface_name) {
    if (dhcp* const client = clients.find(interface_name)) {
        client->arp_tick();
    }
}

void dhcp::arp_tick() {
    if (offered_address.length() != 4) {
        return;
    }
    if (arp_count >= frames_per_round) {
        arp_result(false);
        return;
    }
    send_arp_frame();
    ++arp_count;
    arp_timer.callback(rtimestamp::s2ticks(round_pace), callback_argument(send_arp, interface));
}

void dhcp::send_arp_frame() {
    if (arp_fd == -1) {
        arp_fd = packet_socket::open(SOCK_DGRAM, ETHERTYPE_ARP, lookup_interface_index());
    }
    if (arp_fd == -1) {
        return;
    }
    str const sender_address = arp_done ? offered_address : c_0_0_0_0;
    str const frame = str(request_header, sizeof request_header) + utils::hex2bin(mac_addr) +
                      sender_address + str('\0', 6) + offered_address;
    packet_socket::send(arp_fd, ETHERTYPE_ARP, interface_index, packet_socket::broadcast_address(),
                        frame);
}

// Intended: only replies count. Do not look at requests of other hosts.
void dhcp::process_arp(str const& frame) {
    if (arp_done || frame.length() < arp_length) {
        return;
    }
    bool const is_reply = frame.leftstr(8).compare_sensitiv(reply_header, sizeof reply_header);
    bool const about_offer = frame.substr(14, 4) == offered_address;
    bool const from_us = frame.substr(8, 6) == utils::hex2bin(mac_addr);
    if (is_reply && about_offer && !from_us) {
        arp_result(true);
    }
}

void dhcp::arp_result(bool conflict) {
    bool const round_was_probe = !arp_done;
    arp_done = true;
    arp_count = 0;
    if (conflict) {
        stop_arp();
        arp_conflict = true;
        log_text(1, "DHCPv4: IP address conflict detected");
        new_xid();
        create_raw_socket();
        send_dhcp_decline();
        goto_state(state_init);
    } else if (round_was_probe) {
        arp_conflict = false;
        arp_tick();
    } else {
        stop_arp();
    }
}

void dhcp::stop_arp() {
    descriptors::close(arp_fd);
    arp_timer.clear();
}
