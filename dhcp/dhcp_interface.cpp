// Address, netmask, broadcast address and default route of the client's interface.
#include "dhcp/dhcp.h"

#include "config/settings.h"
#include "lib/descriptors.h"
#include "lib/utils.h"
#include "lldp/lldp.h"
#include "ntp/ntp_client.h"

#include <net/ethernet.h>
#include <net/if.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

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
    ~interface_requests() { descriptors::close(fd); }
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
    if (ip != c_0_0_0_0) {
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
