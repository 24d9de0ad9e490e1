// A lease into timers and shared state.
#include "dhcp/dhcp.h"

#include "config/settings.h"
#include "core/log.h"
#include "dhcp/resolv_conf.h"
#include "lib/utils.h"
#include "ntp/ntp_client.h"

void dhcp::set_timers(dhcp_packet const& ack) {
    int const lease = utils::str2int(ack.get_option(dhcp_packet::option_lease_time));
    if (lease <= 0) {
        t1_timer.clear();
        t2_timer.clear();
        return;
    }
    str const renewal = ack.get_option(dhcp_packet::option_renewal_time);
    str const rebinding = ack.get_option(dhcp_packet::option_rebinding_time);
    // Intended: halves and seven eighths of whole eighths. Do not round as RFC 2131, 4.4.5 would.
    unsigned int const t1 = unsigned(renewal.empty() ? lease / 8 * 4 : utils::str2int(renewal));
    unsigned int const t2 = unsigned(rebinding.empty() ? lease / 8 * 7 : utils::str2int(rebinding));
    log_text(7, "DHCPv4: Lease duration is %d sec, renewing lease in %u sec", lease, t1);
    // Intended: each runs a second late. Do not renew on the dot.
    constexpr long long second = rtimestamp::s2ticks(1);
    t1_timer.callback((t1 + 1LL) * second, callback_argument(t1_callback, interface));
    t2_timer.callback((t2 + 1LL) * second, callback_argument(t2_callback, interface));
}

namespace {

str readable_server(str const& addresses, int n) {
    str const adr = addresses.substr(4 * n, 4);
    return adr.empty() ? str::null : utils::readable_ip(adr, false);
}

void publish(dhcp_packet const& ack, str const& server) {
    dynamic_dns4_domain = ack.get_option(dhcp_packet::option_domain_name).rstrip('\0');
    str const dns_servers = ack.get_option(dhcp_packet::option_dns_server);
    dynamic_dns4_server1 = readable_server(dns_servers, 0);
    dynamic_dns4_server2 = readable_server(dns_servers, 1);
    dynamic_dns4_server3 = readable_server(dns_servers, 2);
    dynamic_dns4_server4 = readable_server(dns_servers, 3);
    assigned_option_66 = ack.get_option(dhcp_packet::option_tftp_server).rstrip('\0');
    assigned_option_67 = ack.get_option(dhcp_packet::option_boot_file).rstrip('\0');
    assigned_server = utils::readable_ip(server, false);
    write_resolv_conf();
}

// Intended: without option 42 the server is 0.0.0.0. Do not leave it unset.
void publish_ntp_server(dhcp_packet const& ack) {
    if (ntp_server.empty()) {
        return;
    }
    str const option = ack.get_option(dhcp_packet::option_ntp_server);
    str const server = utils::readable_ip(option.leftstr(4), false);
    if (ntp[ntp_from_dhcp4].server != server) {
        ntp[ntp_from_dhcp4].use_server(server);
        log_text(7, "DHCPv4: Set NTP server to %s", server);
    }
}

}  // namespace

void dhcp::apply_lease(dhcp_packet const& ack) {
    set_timers(ack);
    own_address = ack.yiaddr;
    subnet_mask = ack.get_address_option(dhcp_packet::option_subnet_mask);
    routers = ack.get_address_option(dhcp_packet::option_router);
    publish(ack, server.adr);
    set(own_address, subnet_mask, ack.get_address_option(dhcp_packet::option_broadcast), routers);
    create_udp_socket();
    goto_state(state_bound);
    log_lease();
    publish_ntp_server(ack);
}

void dhcp::log_lease() const {
    log_text(5, "DHCPv4: Use IP address %s", utils::readable_ip(own_address, false));
    if (assigned_option_66.empty()) {
        return;
    }
    log_text(7, "DHCPv4: Set TFTP server to %s", assigned_option_66);
    if (!assigned_option_67.empty()) {
        log_text(7, "DHCPv4: Set Bootfile name to %s", assigned_option_67);
    }
}
