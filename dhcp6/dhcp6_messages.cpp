// What the DHCPv6 client sends, and when it sends a copy.
#include "dhcp6/dhcp6.h"

#include "config/settings.h"
#include "lib/utils.h"

namespace {

constexpr int xid_length = 3;       // RFC 3315, 6
constexpr int iaid_length = 4;      // 22.4
constexpr int resend_interval = 1;  // seconds, as the first of 5.5, but never doubled here

constexpr unsigned int wanted_t1 = 3600;  // seconds
constexpr unsigned int wanted_t2 = 5400;

constexpr unsigned char requested_options[] = {
    0, dhcp6_packet::option_sip_domains,       0, dhcp6_packet::option_sip_servers,
    0, dhcp6_packet::option_dns_servers,       0, dhcp6_packet::option_domain_list,
    0, dhcp6_packet::option_sntp_servers,      0, dhcp6_packet::option_posix_timezone,
    0, dhcp6_packet::option_timezone_database,
};

void add_option_request(dhcp6_packet& message) {
    message.add_option(dhcp6_packet::option_request,
                       str(requested_options, sizeof requested_options));
}

}  // namespace

void dhcp6::new_exchange() {
    retry_count = 0;
    xid = utils::generate_randstr(xid_length);
}

void dhcp6::make_duid() {
    constexpr unsigned int link_layer_ethernet = 0x00030001;  // RFC 3315, 9.4
    client_duid = utils::int2str(link_layer_ethernet, 4) + utils::hex2bin(mac_addr);
}

void dhcp6::make_iaid() {
    iaid = utils::generate_randstr(iaid_length);
}

// Intended: milliseconds that wrap. Do not count hundredths of a second up to a limit as RFC 3315,
// 22.9 says.
void dhcp6::add_elapsed_time() {
    long long const elapsed = (rtimestamp::now() - start_time) / rtimestamp::ms2ticks(1);
    message.add_option(dhcp6_packet::option_elapsed_time,
                       utils::int2str(static_cast<unsigned int>(elapsed), 2));
}

void dhcp6::build_solicit() {
    make_duid();
    if (iaid.empty()) {
        make_iaid();  // The client has been stateless so far.
    }
    message.set_type_id(dhcp6_packet::type_solicit, xid);
    message.add_option(dhcp6_packet::option_client_id, client_duid);
    add_option_request(message);
    add_elapsed_time();
    message.add_option(dhcp6_packet::option_ia_na,
                       iaid + utils::int2str(wanted_t1, 4) + utils::int2str(wanted_t2, 4));
}

// Intended: REBIND names the server, too. Do not leave it out as RFC 3315, 18.1.4 says.
void dhcp6::build_for_server(int type) {
    message.set_type_id(type, xid);
    message.add_option(dhcp6_packet::option_client_id, client_duid);
    message.add_option(dhcp6_packet::option_server_id, server_id);
    add_elapsed_time();
    message.add_option(dhcp6_packet::option_ia_na, ia_na);
    add_option_request(message);
}

void dhcp6::build_information_request() {
    if (client_duid.empty()) {
        make_duid();
    }
    message.set_type_id(dhcp6_packet::type_information_request, xid);
    add_elapsed_time();
    message.add_option(dhcp6_packet::option_client_id, client_duid);
    add_option_request(message);
}

// Bound to its device: multicast leaves by it, and of several sockets with one port each gets its
// own replies.
bool dhcp6::open_socket() {
    if (fd == -1) {
        fd = utils::open_udp_socket(dhcp6_packet::client_port, true);
        if (fd != -1) {
            utils::bind_to_device(fd, interface);
        }
    }
    return fd != -1;
}

// Sends the message of the state.
void dhcp6::send_message() {
    switch (state) {
    case state_initial:
    case state_stateless:
        build_information_request();
        break;
    case state_solicit:
        build_solicit();
        break;
    case state_request:
        build_for_server(dhcp6_packet::type_request);
        break;
    case state_renew:
        build_for_server(dhcp6_packet::type_renew);
        break;
    case state_rebind:
        build_for_server(dhcp6_packet::type_rebind);
        break;
    case state_bound:
    case state_failed:
        return;  // Nothing is asked in these.
    }
    if (!open_socket()) {
        resend_timer.clear();
        return;
    }
    (void)utils::send_udp_packet(fd, server, message.serialize());  // A copy follows.
    resend_timer.callback(rtimestamp::s2ticks(resend_interval),
                          callback_argument(resend_callback, interface));
}
