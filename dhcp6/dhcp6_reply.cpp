// A REPLY into timers, shared state and the interface.
#include "dhcp6/dhcp6.h"

#include "config/settings.h"
#include "core/log.h"
#include "dhcp/resolv_conf.h"
#include "dns/dns_resolver.h"
#include "lib/descriptors.h"
#include "lib/utils.h"
#include "ntp/ntp_client.h"

#include <cstring>
#include <initializer_list>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

constexpr int address_length = ip_port::ipv6_length;

// The argument of SIOCSIFADDR on an IPv6 socket. The kernel's own header declares it, but not
// every C library lets that header stand beside <netinet/in.h>.
struct in6_ifreq {
    in6_addr ifr6_addr;
    uint32_t ifr6_prefixlen;
    int ifr6_ifindex;
};

bool add_address(int fd, str const& address, int interface_index) {
    in6_ifreq request = {};
    memcpy(&request.ifr6_addr, address.cbuffer(), sizeof request.ifr6_addr);
    request.ifr6_prefixlen = 64;
    request.ifr6_ifindex = interface_index;
    return ioctl(fd, SIOCSIFADDR, &request) == 0;
}

// Stores a new value; false when it is the old one.
bool change(str& variable, str const& value) {
    if (variable == value) {
        return false;
    }
    variable = value;
    return true;
}

void publish_domain(str const& domain_list) {
    if (!domain_list.empty() &&
        change(dynamic_dns6_domain, dns_resolver::convert_address(domain_list))) {
        log_text(7, "DHCPv6: Set DNS domain to %s", dynamic_dns6_domain);
    }
}

void publish_sntp_server(str const& addresses) {
    str const server = utils::readable_ip(addresses.leftstr(address_length), true);
    if (!addresses.empty() && ntp[ntp_from_dhcp6].server != server) {
        ntp[ntp_from_dhcp6].use_server(server);
        log_text(7, "DHCPv6: Set NTP server to %s", server);
    }
}

}  // namespace

void dhcp6::recv_reply(dhcp6_packet const& reply) {
    str const granted = reply.get_option(dhcp6_packet::option_ia_na);
    if (!granted.empty() && granted.leftstr(4) == iaid) {
        process_ia_na(granted);
    }
    if (state != state_bound && state != state_stateless) {
        return;
    }
    publish_domain(reply.get_option(dhcp6_packet::option_domain_list));
    publish_dns_servers(reply.get_option(dhcp6_packet::option_dns_servers));
    publish_sntp_server(reply.get_option(dhcp6_packet::option_sntp_servers));
}

void dhcp6::process_ia_na(str const& granted) {
    unsigned int const t1 = utils::str2ulong(granted, 4);
    unsigned int const t2 = utils::str2ulong(granted, 8);
    dhcp6_packet::option_reader options(granted.substr(12));
    while (options.next()) {
        if (options.code != dhcp6_packet::option_ia_address) {
            continue;
        }
        if (state == state_request && change(address, options.value.leftstr(address_length))) {
            set_address();
        }
        goto_state(state_bound);
        register_renew(t1, t2);
    }
}

// Intended: the address stays for good. Do not remove it when its lifetime is over.
void dhcp6::set_address() {
    if (address.length() != address_length) {
        return;
    }
    int socket = descriptors::open_socket(AF_INET6, SOCK_DGRAM, 0);
    if (socket == -1) {
        log_text(2, "Could not set IPv6 address");
    } else {
        int const index = get_interface_index(interface);
        str const text = utils::readable_ip(address, false);
        if (add_address(socket, address, index)) {
            log_text(5, "Set up IPv6 address %s", text);
        } else {
            log_text(2, "Set up IPv6 address %s on interface %d failed", text, index);
        }
        descriptors::close(socket);
    }
    start_manual_ntp_server();
}

void dhcp6::publish_dns_servers(str const& addresses) {
    if (addresses.empty()) {
        return;
    }
    int offset = 0;
    for (str* server : {&dynamic_dns6_server1, &dynamic_dns6_server2, &dynamic_dns6_server3,
                        &dynamic_dns6_server4}) {
        str const adr = addresses.substr(offset, address_length);
        str const text = adr.empty() ? str::null : utils::readable_ip(adr, true);
        if (change(*server, text) && !text.empty()) {
            log_text(7, "DHCPv6: Add DNS server %s", text);
        }
        offset += address_length;
    }
    write_resolv_conf();
}
