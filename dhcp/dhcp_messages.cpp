// What the DHCPv4 client sends, and when it sends a copy.
#include "dhcp/dhcp.h"

#include "config/settings.h"
#include "lib/utils.h"

namespace {

constexpr int xid_length = 4;     // RFC 2131, 2
constexpr int interval_mean = 4;  // seconds between copies, plus or minus 1: RFC 2131, 4.1, where
constexpr int interval_max = 64;  // it doubles up to this; here it never does, see resend_request

constexpr unsigned char requested_options[] = {
    dhcp_packet::option_subnet_mask,   dhcp_packet::option_router,
    dhcp_packet::option_dns_server,    dhcp_packet::option_host_name,
    dhcp_packet::option_domain_name,   dhcp_packet::option_ntp_server,
    dhcp_packet::option_vendor_info,   dhcp_packet::option_tftp_server,
    dhcp_packet::option_boot_file,     dhcp_packet::option_sip_servers,
    dhcp_packet::option_vivso,         dhcp_packet::option_vlan_id,
    dhcp_packet::option_vlan_priority,
};

str hardware_address() {
    return utils::hex2bin(mac_addr);
}

int plus_or_minus_one() {
    return utils::rand() & 1 ? 1 : -1;
}

}  // namespace

void dhcp::new_xid() {
    xid = utils::generate_randstr(xid_length);
}

void dhcp::begin_request(int message_type) {
    request.clear();
    request.chaddr = hardware_address();
    request.xid = xid;
    request.add_option(dhcp_packet::option_message_type, utils::int2str(unsigned(message_type), 1));
    request.add_option(dhcp_packet::option_client_id, str::x_01 + hardware_address());
}

void dhcp::add_common_options() {
    if (!base_name.empty()) {
        request.add_option(dhcp_packet::option_host_name, base_name);
    }
    request.add_option(dhcp_packet::option_request_list,
                       str(requested_options, sizeof requested_options));
    if (!vendor_class.empty()) {
        request.add_option(dhcp_packet::option_vendor_class, vendor_class);
    }
    if (!vendor_options.empty()) {
        request.add_option(dhcp_packet::option_vivso, vendor_options);
    }
}

void dhcp::send_dhcp_discover() {
    begin_request(dhcp_packet::type_discover);
    request.ciaddr = own_address;
    add_common_options();
    repeat_request(true);
    send_dhcp_packet();
}

// Intended: options 50 and 54 stand in every REQUEST, renewals included. Do not leave them out as
// RFC 2131, 4.3.2 says.
void dhcp::send_dhcp_request() {
    begin_request(dhcp_packet::type_request);
    request.ciaddr = own_address;
    request.add_option(dhcp_packet::option_requested_address,
                       utils::padding(offered_address, 4, 0));
    request.add_option(dhcp_packet::option_server_id, utils::padding(server_id, 4, 0));
    add_common_options();
    repeat_request(true);
    send_dhcp_packet();
}

void dhcp::send_dhcp_decline() {
    begin_request(dhcp_packet::type_decline);
    request.add_option(dhcp_packet::option_requested_address, offered_address);
    request.add_option(dhcp_packet::option_server_id, server_id);
    repeat_request(true);
    send_dhcp_packet();
}

void dhcp::repeat_request(bool on) {
    if (!on) {
        resend_timer.clear();
        return;
    }
    request_time = rtimestamp::now();
    resend_interval = interval_mean + plus_or_minus_one();
    resend_timer.callback(rtimestamp::s2ticks(resend_interval),
                          callback_argument(resend_proc, interface));
}

void dhcp::resend_request() {
    long long const waited = rtimestamp::now() - request_time;
    request.secs = utils::int2str(unsigned(waited / rtimestamp::s2ticks(1)), 2);
    send_dhcp_packet();
    repeat_request(true);
    // Intended: the next copy's repeat_request overwrites this, so copies leave every 3 or 5
    // seconds, for ever. Do not make this an exponential back-off.
    resend_interval = 2 * resend_interval < interval_max ? 2 * resend_interval : interval_max;
    resend_interval += plus_or_minus_one();
}

void dhcp::resend_proc(str const& interface_name) {
    if (dhcp* const client = clients.find(interface_name)) {
        client->resend_request();
    }
}
