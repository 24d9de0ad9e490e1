// The states of the DHCPv4 client.
//
//   state                     event                        action                      next
//   SELECTING                 offer                        take it, REQUEST, probe     REQUESTING
//   REQUESTING                offer of the same server     one more copy of REQUEST    REQUESTING
//   REQUESTING                ACK                          apply the lease             BOUND
//   RENEWING, REBINDING       ACK                          timers only                 BOUND
//   INIT after a conflict     ACK                          stop copies, end conflict   INIT
//   RENEWING                  NACK                         remove the address          INIT
//   SELECTING, REBINDING      NACK                         -                           INIT
//   BOUND                     T1                           REQUEST to the server       RENEWING
//   RENEWING                  T2                           remove the address,
//                                                          broadcast REQUEST           REBINDING
//   INIT after a conflict     T2                           end conflict                INIT
//   any                       ARP conflict while probing   DECLINE                     INIT, held
//
// Entering INIT sends DISCOVER and goes on to SELECTING, unless a conflict holds it there.
// Every other combination changes nothing.
#include "dhcp/dhcp.h"

#include "config/settings.h"
#include "core/log.h"
#include "dhcp/udp_frame.h"
#include "lib/descriptors.h"
#include "lib/utils.h"

#include <initializer_list>

constinit smap<str, dhcp> dhcp::clients;
char const* const dhcp::state_names[] = {"INIT",      "SELECTING", "REQUESTING",
                                         "REBINDING", "BOUND",     "RENEWING"};

namespace {

char const default_vendor_class[] = "vorn q7";

ip_port broadcast_server() {
    ip_port endpoint;
    endpoint.adr = str(255, 255, 255, 255);
    endpoint.port = dhcp_packet::server_port;
    return endpoint;
}

// A message that is not is dropped with one record.
bool is_whole(str const& message) {
    if (message.length() < dhcp_packet::options_offset) {
        if (log_level >= 9) {
            log_add_message(9, str::sprintf("DHCPv4: Packet to short (%d bytes)", message.length()),
                            utils::bin2hex(message, false));
        }
        return false;
    }
    if (message.substr(dhcp_packet::cookie_offset, 4) != dhcp_packet::magic_cookie) {
        log_text(7, "DHCPv4: recv packet has no magic cookie");
        return false;
    }
    return true;
}

}  // namespace

dhcp::dhcp() : vendor_class(default_vendor_class) {}

dhcp::~dhcp() {
    clear();
    descriptors::close(arp_fd);
}

void dhcp::start(str const& interface_name) {
    if (interface == interface_name && state == state_bound) {
        return;
    }
    interface = interface_name;
    server = broadcast_server();
    arp_conflict = false;  // A start sends DISCOVER, whatever came before.
    set();
    create_raw_socket();
    goto_state(state_init);
}

void dhcp::stop() {
    if (state != state_init) {
        change_state(state_init);
    }
    clear();
}

void dhcp::clear() {
    server = ip_port();
    t1_timer.clear();
    t2_timer.clear();
    resend_timer.clear();
    request_time = rtimestamp();
    resend_interval = 0;
    for (str* each :
         {&xid, &own_address, &offered_address, &server_id, &vendor_options, &applied_ip}) {
        each->clear();
    }
    vendor_class = default_vendor_class;
    request.clear();
    descriptors::close(fd);
}

void dhcp::change_state(state_type next) {
    state = next;
    log_text(7, "DHCPv4 on %s goes to %S", interface, state_names[state]);
}

void dhcp::goto_state(state_type next) {
    change_state(next);
    switch (next) {
    case state_init:
        if (!raw_mode) {
            create_raw_socket();  // The interface has lost its address.
        }
        server = broadcast_server();
        if (!arp_conflict) {
            new_xid();
            send_dhcp_discover();
            goto_state(state_selecting);
        }
        break;
    case state_selecting:
        server_id.clear();
        break;
    case state_requesting:
    case state_rebinding:
    case state_bound:
    case state_renewing:
        break;
    }
}

void dhcp::process_data(str const& data) {
    if (raw_mode && !udp_frame::is_for_client(data)) {
        return;
    }
    str const message = raw_mode ? udp_frame::message_of(data) : data;
    if (!is_whole(message) || !dhcp_packet::is_reply_to(xid, message)) {
        return;
    }
    // Intended: any reply to us ends the copies, whatever it says. Do not look at its type first.
    repeat_request(false);
    dhcp_packet const reply(message);
    str const type = reply.get_option(dhcp_packet::option_message_type);
    if (!type.empty()) {
        recv_reply(utils::str2int(type), reply);
    }
}

void dhcp::recv_reply(int type, dhcp_packet const& reply) {
    switch (type) {
    case dhcp_packet::type_offer:
        recv_dhcp_offer(reply);
        break;
    case dhcp_packet::type_ack:
        recv_dhcp_ack(reply);
        break;
    case dhcp_packet::type_nak:
        recv_dhcp_nack();
        break;
    default:
        log_text(1, "DHCPv4: receive type %d", type);
        break;
    }
}

void dhcp::recv_dhcp_offer(dhcp_packet const& packet) {
    log_text(9, "DHCPv4: recv dhcp offer in state %S", state_names[state]);
    str const offering_server = packet.get_address_option(dhcp_packet::option_server_id);
    bool const same_server = offering_server == server_id;
    switch (state) {
    case state_selecting:
        if (same_server || server_id.empty()) {
            offered_address = packet.yiaddr;
            server_id = offering_server;
            server.adr = offering_server;
            send_dhcp_request();
            start_arp_probe();
            goto_state(state_requesting);
        }
        break;
    case state_requesting:
        if (same_server) {
            send_dhcp_packet();
        }
        break;
    case state_init:
    case state_rebinding:
    case state_bound:
    case state_renewing:
        break;
    }
}

void dhcp::recv_dhcp_ack(dhcp_packet const& packet) {
    log_text(9, "DHCPv4: Receive DHCP ACK in state %S", state_names[state]);
    switch (state) {
    case state_init:
        if (arp_conflict) {
            repeat_request(false);
            arp_conflict = false;
            goto_state(state_init);
        }
        break;
    case state_requesting:
        apply_lease(packet);
        break;
    case state_renewing:
    case state_rebinding:
        // Intended: only the timers are set. Do not put the address back after rebinding.
        set_timers(packet);
        goto_state(state_bound);
        break;
    case state_selecting:
    case state_bound:
        break;
    }
}

void dhcp::recv_dhcp_nack() {
    log_text(9, "DHCPv4: Receive DHCP NACK in state %S", state_names[state]);
    switch (state) {
    case state_renewing:
        set();
        goto_state(state_init);
        break;
    case state_selecting:
    case state_rebinding:
        goto_state(state_init);
        break;
    case state_init:
    case state_requesting:
    case state_bound:
        break;  // Intended: a NACK changes nothing here. Do not restart the client.
    }
}

void dhcp::t1_expires() {
    if (state == state_bound) {
        new_xid();
        send_dhcp_request();
        goto_state(state_renewing);
    }
}

void dhcp::t2_expires() {
    switch (state) {
    case state_renewing:
        // Intended: the request leaves by the UDP socket, which hears no unicast answer without an
        // address. Do not go back to the packet socket.
        server = broadcast_server();
        set();
        new_xid();
        send_dhcp_request();
        goto_state(state_rebinding);
        break;
    case state_init:
        if (arp_conflict) {
            arp_conflict = false;
            goto_state(state_init);
        }
        break;
    case state_selecting:
    case state_requesting:
    case state_rebinding:
    case state_bound:
        break;
    }
}

void dhcp::t1_callback(str const& interface_name) {
    if (dhcp* const client = clients.find(interface_name)) {
        client->t1_expires();
    }
}

void dhcp::t2_callback(str const& interface_name) {
    if (dhcp* const client = clients.find(interface_name)) {
        client->t2_expires();
    }
}
