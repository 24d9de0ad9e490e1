// A lease into timers, shared state and the interface.
#include "dhcp/dhcp.h"

#include "config/settings.h"
#include "core/log.h"
#include "dhcp/resolv_conf.h"
#include "lib/descriptors.h"
#include "lib/utils.h"
#include "lldp/lldp.h"
#include "ntp/ntp_client.h"

#include <net/ethernet.h>
#include <net/if.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

void dhcp::set_timers(dhcp_packet const& ack) {
    int const lease = utils::str2int(ack.get_option(dhcp_packet::option_lease_time));
    if (lease <= 0) {
        t1_timer.clear();
        t2_timer.clear();
        return;
    }
    str const renewal = ack.get_option(dhcp_packet::option_renewal_time);
    str const rebinding = ack.get_option(dhcp_packet::option_rebinding_time);
    int const t1 = renewal.empty() ? lease / 8 * 4 : utils::str2int(renewal);
    int const t2 = rebinding.empty() ? lease / 8 * 7 : utils::str2int(rebinding);
    if (log_level >= 7) {
        log_add_message(
            7,
            str::sprintf("DHCPv4: Lease duration is %d sec, renewing lease in %d sec", lease, t1),
            str::null);
    }
    long long const one_second = rtimestamp::s2ticks(1);
    t1_timer.callback(rtimestamp::s2ticks(t1) + one_second,
                      callback_argument(t1_callback, interface));
    t2_timer.callback(rtimestamp::s2ticks(t2) + one_second,
                      callback_argument(t2_callback, interface));
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
    str const server = utils::readable_ip(utils::padding(option, 4, 0), false);
    ntp_client& client = ntp[ntp_from_dhcp4];
    if (client.server == server) {
        return;
    }
    client.server = server;
    client.start_client();
    if (log_level >= 7) {
        log_add_message(7, str::sprintf("DHCPv4: Set NTP server to %s", server), str::null);
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
    if (log_level >= 5) {
        log_add_message(
            5, str::sprintf("DHCPv4: Use IP address %s", utils::readable_ip(own_address, false)),
            str::null);
    }
    if (log_level < 7 || assigned_option_66.empty()) {
        return;
    }
    log_add_message(7, str::sprintf("DHCPv4: Set TFTP server to %s", assigned_option_66),
                    str::null);
    if (!assigned_option_67.empty()) {
        log_add_message(7, str::sprintf("DHCPv4: Set Bootfile name to %s", assigned_option_67),
                        str::null);
    }
}

namespace {

sockaddr ipv4_address(str const& adr) {
    ip_port endpoint;
    endpoint.adr = adr;
    sockaddr_in address;
    utils::conv4(endpoint, address);
    sockaddr generic;
    memcpy(&generic, &address, sizeof generic);
    return generic;
}

// (ip AND mask) OR (NOT mask)
str computed_broadcast(str const& ip, str const& mask) {
    return ip.l_and(mask).l_or(mask.l_xor(str('\xFF', 4)));
}

// The requests that configure one interface. Their results are not looked at.
class interface_requests {
public:
    explicit interface_requests(str const& interface)
        : fd(descriptors::open_socket(AF_PACKET, SOCK_DGRAM, htons(ETHERTYPE_IP))),
          name(interface) {}
    ~interface_requests() {
        if (fd >= 0) {
            close(fd);
        }
    }
    interface_requests(interface_requests const&) = delete;
    interface_requests& operator=(interface_requests const&) = delete;

    void set_address(unsigned long code, str const& adr) {
        ifreq request = {};
        utils::copy_interface_name(request.ifr_name, name);
        request.ifr_addr = ipv4_address(adr);
        (void)ioctl(fd, code, &request);
    }
    void change_default_route(unsigned long code, str const& router, unsigned short flags) {
        rtentry route = {};
        route.rt_dst = ipv4_address(str::null);
        route.rt_genmask = ipv4_address(str::null);
        route.rt_gateway = ipv4_address(router);
        route.rt_flags = flags;
        char device[IFNAMSIZ] = {};
        utils::copy_interface_name(device, name);
        route.rt_dev = device;
        (void)ioctl(fd, code, &route);
    }

private:
    int fd;
    str name;
};

}  // namespace

void dhcp::set(str const& ip, str const& mask, str const& broadcast, str const& router) {
    if (ip == applied_ip && mask == applied_netmask && broadcast == applied_broadcast &&
        router == applied_gateway) {
        return;
    }
    lldp::set_management_address(ip);
    if (!(ip == c_0_0_0_0)) {
        assigned_ip_adr = utils::readable_ip(ip, false);
    }
    interface_requests requests(interface);
    requests.set_address(SIOCSIFADDR, ip);
    requests.set_address(SIOCSIFNETMASK, mask);
    requests.set_address(SIOCSIFBRDADDR,
                         broadcast.empty() ? computed_broadcast(ip, mask) : broadcast);
    requests.change_default_route(SIOCDELRT, applied_gateway, RTF_GATEWAY);
    requests.change_default_route(SIOCADDRT, router, RTF_UP | RTF_GATEWAY);
    applied_ip = ip;
    applied_netmask = mask;
    applied_broadcast = broadcast;
    applied_gateway = router;
    start_manual_ntp_server();
}

void dhcp::set() {
    set(c_0_0_0_0, c_0_0_0_0, c_0_0_0_0, c_0_0_0_0);
}
