// Interfaces, sockets and the wire.
#include "sim/calls.h"

#include <arpa/inet.h>
#include <cstdarg>
#include <linux/if_packet.h>
#include <linux/if_vlan.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace sim {

std::map<std::string, int> interfaces;
std::map<std::string, std::string> configured;
std::vector<packet> sent;
bool is_broadcast;

namespace {

constexpr size_t frame_max = 1514;  // bytes, with the Ethernet header
constexpr size_t datagram_max = 65507;

std::string interface_name(int index) {
    for (auto const& [name, number] : interfaces) {
        if (number == index) {
            return name;
        }
    }
    return "no interface";
}

// Without the port of IPv4; "[fe80::1%2]", with the scope if there is one.
std::string host(void const* address) {
    char text[INET6_ADDRSTRLEN] = "";
    auto const v4 = read_as<sockaddr_in>(address);
    if (v4.sin_family == AF_INET) {
        return inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
    }
    auto const v6 = read_as<sockaddr_in6>(address);
    inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
    return "[" + (text + (v6.sin6_scope_id ? "%" + std::to_string(v6.sin6_scope_id) : "")) + "]";
}

std::string endpoint(void const* address) {  // The port is where it is in both families.
    return host(address) + ":" + std::to_string(ntohs(read_as<sockaddr_in>(address).sin_port));
}

bytes socket_address(std::string const& from, int port) {
    sockaddr_in v4 = {AF_INET, htons(static_cast<uint16_t>(port)), {}, {}};
    sockaddr_in6 v6 = {AF_INET6, v4.sin_port, 0, {}, 0};
    bool const is_v4 = inet_pton(AF_INET, from.c_str(), &v4.sin_addr) == 1;
    inet_pton(AF_INET6, from.c_str(), &v6.sin6_addr);
    return is_v4 ? raw(&v4, sizeof v4) : raw(&v6, sizeof v6);
}

void queue(descriptor& socket, bytes const& data, std::string const& from, int port) {
    EXPECT_LE(data.size(), datagram_max);
    if (!socket.has("deaf")) {
        socket.incoming.push_back({data, socket_address(from, port)});
    }
}

ssize_t transmit(descriptor const& socket, bytes const& data, void const* to) {
    packet out = {now(), IPPROTO_UDP, socket.device, "", data, socket.number};
    bool const is_frame = socket.domain == AF_PACKET;
    if (data.size() > (is_frame ? frame_max : datagram_max)) {
        return refuse(EMSGSIZE);
    }
    if (is_frame) {
        auto const address = read_as<sockaddr_ll>(to);
        out.protocol = ntohs(address.sll_protocol);
        out.interface = interface_name(address.sll_ifindex);
        out.to = to_hex(raw(address.sll_addr, address.sll_halen));
    } else {
        out.to = endpoint(to);
        out.interface += out.to.starts_with("[ff") ? socket.multicast_interface : "";
        if (out.to.starts_with("255.255.255.255") && !socket.has("broadcast")) {
            return refuse(EACCES);
        }
    }
    sent.push_back(out);
    return ssize_t(data.size());
}

int configure(std::string const& request, std::string const& value) {
    journal.push_back(request + " " + value);
    configured[request] = value;
    return 0;
}

int interface_request(unsigned long code, ifreq& request) {
    std::string const name = request.ifr_name;
    if (!interfaces.count(name)) {
        return refuse(ENODEV);
    }
    switch (code) {
    case SIOCGIFINDEX:
        request.ifr_ifindex = interfaces[name];
        return 0;
    case SIOCGIFFLAGS:
        request.ifr_flags = IFF_BROADCAST;
        return 0;
    case SIOCSIFFLAGS:
        return configure("SIOCSIFFLAGS " + name, std::to_string(request.ifr_flags));
    case SIOCSIFMTU:
        return configure("SIOCSIFMTU " + name, std::to_string(request.ifr_mtu));
    default:
        return configure((code == SIOCSIFADDR      ? "SIOCSIFADDR "
                          : code == SIOCSIFNETMASK ? "SIOCSIFNETMASK "
                                                   : "SIOCSIFBRDADDR ") +
                             name,
                         host(&request.ifr_addr));
    }
}

// An IPv6 address, its prefix length and the interface index.
int ipv6_address_request(unsigned char const* request) {
    char text[INET6_ADDRSTRLEN];
    inet_ntop(AF_INET6, request, text, sizeof text);
    journal.push_back("SIOCSIFADDR " + interface_name(read_as<int>(request + 20)) + " " + text +
                      "/" + std::to_string(read_as<int>(request + 16)));
    return 0;
}

int route_request(std::string const& name, rtentry const& request) {
    return configure(name + request.rt_dev,
                     host(&request.rt_gateway) + " to " + host(&request.rt_dst) + "/" +
                         host(&request.rt_genmask) + " flags " + std::to_string(request.rt_flags));
}

int vlan_request(vlan_ioctl_args const& request) {
    std::string const device = request.device1;
    if (request.cmd == ADD_VLAN_CMD) {
        std::string const vlan = std::to_string(request.u.VID);
        interfaces[device + "." + vlan] = 10 + request.u.VID;
        return configure("add VLAN " + device, vlan);
    }
    bool const is_egress = request.cmd == SET_VLAN_EGRESS_PRIORITY_CMD;
    return configure((is_egress ? "egress " : "ingress ") + device,
                     std::to_string(request.u.skb_priority) + " to " +
                         std::to_string(request.vlan_qos));
}

}  // namespace

std::vector<packet> take_sent() {
    return std::exchange(sent, {});
}

bool anything_to_read() {
    return std::any_of(descriptors.begin(), descriptors.end(),
                       [](auto const& each) { return !each.second.incoming.empty(); });
}

void frame_arrives(std::string const& interface, int ether_type, bytes const& data) {
    for (auto& [fd, each] : descriptors) {
        bool const hears_it = each.domain == AF_PACKET && each.port == ether_type &&
                              each.interface_index == interfaces[interface];
        bool const to_group = each.type == SOCK_RAW && (data[0] & 1);
        if (hears_it && (!to_group || each.has(to_hex(data.substr(0, 6))))) {
            each.incoming.push_back({data, ""});
        }
    }
}

void datagram_arrives(int port, bytes const& data, std::string const& from,
                      std::string const& device) {
    for (auto& [fd, each] : descriptors) {
        bool const hears_it = each.type == SOCK_DGRAM && each.domain != AF_PACKET &&
                              each.port == port &&
                              (device.empty() || each.device.empty() || each.device == device);
        std::string const bound = device.empty() ? each.device : device;
        std::string const& address = configured["SIOCSIFADDR " + (bound.empty() ? "eth1" : bound)];
        bool const reaches_it = from.find(':') != std::string::npos || is_broadcast ||
                                (!address.empty() && address != "0.0.0.0");
        if (hears_it && reaches_it) {
            queue(each, data, from, port);
        }
    }
}

void datagram_arrives_at(int fd, bytes const& data, std::string const& from) {
    EXPECT_TRUE(find(fd) || power_is_out) << "not open";
    if (find(fd)) {
        queue(*find(fd), data, from, 53);
    }
}

void answer_arrives(unsigned int socket, bytes const& data, std::string const& from) {
    for (auto& [fd, each] : descriptors) {
        if (each.number == socket) {
            queue(each, data, from, 53);
        }
    }
}

std::string describe(int fd) {
    if (!find(fd)) {
        return "closed";
    }
    descriptor const& found = *find(fd);
    bool const is_packet = found.domain == AF_PACKET;
    std::string text = is_packet ? "packet " : found.domain == AF_INET ? "udp *:" : "udp [*]:";
    text +=
        std::to_string(found.port) + (is_packet ? " " + interface_name(found.interface_index) : "");
    text += (found.device.empty() ? "" : " ") + found.device;
    text += found.peer.empty() ? "" : " to " + endpoint(found.peer.data());
    for (std::string const& flag : found.flags) {
        text += " " + flag;
    }
    return text;
}

void reset_network() {
    sent.clear();
    is_broadcast = false;
    interfaces = {{"eth1", 2}};
    configured = {{"SIOCSIFADDR eth1", "192.0.2.50"}};
}

}  // namespace sim

using namespace sim;

extern "C" {

int __wrap_socket(int domain, int type, int) {
    descriptor fresh;
    fresh.domain = domain;
    fresh.type = type;
    return fails("socket") ? -1 : add(fresh);
}

int __wrap_bind(int fd, struct sockaddr const* address, socklen_t) {
    descriptor* const socket = usable(fd, "bind");
    if (socket) {
        bool const is_packet = socket->domain == AF_PACKET;
        socket->port = ntohs(read_as<sockaddr_in>(address).sin_port);  // or the EtherType
        socket->interface_index = is_packet ? read_as<sockaddr_ll>(address).sll_ifindex : 0;
    }
    return socket ? 0 : -1;
}

int __wrap_connect(int fd, struct sockaddr const* address, socklen_t size) {
    descriptor* const socket = usable(fd, "connect");
    if (socket) {
        socket->peer = raw(address, size);
    }
    return socket ? 0 : -1;
}

int __wrap_getsockname(int fd, struct sockaddr* address, socklen_t* size) {
    descriptor const* const socket = usable(fd, "getsockname");
    if (socket) {
        bool const is_v4 = socket->domain == AF_INET;
        bytes const local = socket_address(is_v4 ? "0.0.0.0" : "::", socket->port);
        *size = socklen_t(local.copy(reinterpret_cast<char*>(address), *size));
    }
    return socket ? 0 : -1;
}

int __wrap_setsockopt(int fd, int level, int option, void const* value, socklen_t size) {
    descriptor* const socket = usable(fd, "setsockopt");
    if (!socket) {
        return -1;
    }
    auto const* const text = static_cast<char const*>(value);
    if (level == SOL_PACKET) {
        auto const request = read_as<packet_mreq>(value);
        // One whose bind() failed hears every interface.
        EXPECT_TRUE(request.mr_ifindex == socket->interface_index || socket->interface_index == 0);
        EXPECT_EQ(request.mr_type * 10 + option, PACKET_MR_MULTICAST * 10 + PACKET_ADD_MEMBERSHIP);
        socket->flags.push_back(to_hex(raw(request.mr_address, request.mr_alen)));
    } else if (level == IPPROTO_IPV6) {
        socket->multicast_interface = interface_name(read_as<int>(value));
    } else if (option == SO_BINDTODEVICE) {
        socket->device.assign(text, strnlen(text, size - 1));
    } else {
        socket->flags.emplace_back(option == SO_ATTACH_FILTER ? "deaf"
                                   : option == SO_REUSEADDR   ? "reuse"
                                                              : "broadcast");
    }
    return 0;
}

ssize_t __wrap_sendto(int fd, void const* data, size_t size, int, struct sockaddr const* to,
                      socklen_t) {
    descriptor const* const socket = usable(fd, "sendto");
    return socket ? transmit(*socket, raw(data, size), to) : -1;
}

ssize_t __wrap_send(int fd, void const* data, size_t size, int) {
    descriptor const* const socket = usable(fd, "send");
    return socket ? transmit(*socket, raw(data, size), socket->peer.data()) : -1;
}

ssize_t __wrap_recvfrom(int fd, void* data, size_t size, int flags, struct sockaddr* from,
                        socklen_t* from_size) {
    descriptor* const socket = find(fd);
    if (!socket || socket->incoming.empty()) {
        return refuse(socket ? EAGAIN : EBADF);
    }
    message const taken = socket->incoming.front();
    socket->incoming.pop_front();
    clock_ms += handler_ms;
    if (fails("recvfrom")) {
        return -1;
    }
    EXPECT_TRUE(flags & MSG_DONTWAIT);
    if (from) {
        *from_size = socklen_t(taken.from.copy(reinterpret_cast<char*>(from), *from_size));
    }
    return ssize_t(taken.data.copy(static_cast<char*>(data), size));
}

int __wrap_ioctl(int fd, unsigned long code, ...) {
    va_list arguments;
    va_start(arguments, code);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    descriptor* const socket = usable(fd, "ioctl");
    if (!socket) {
        return -1;
    }
    if (code == FIONBIO) {
        socket->flags.emplace_back("nonblocking");
        return 0;
    }
    return code == SIOCADDRT     ? route_request("SIOCADDRT ", *static_cast<rtentry*>(argument))
           : code == SIOCDELRT   ? route_request("SIOCDELRT ", *static_cast<rtentry*>(argument))
           : code == SIOCSIFVLAN ? vlan_request(*static_cast<vlan_ioctl_args*>(argument))
           : code == SIOCSIFADDR && socket->domain == AF_INET6
               ? ipv6_address_request(static_cast<unsigned char*>(argument))
               : interface_request(code, *static_cast<ifreq*>(argument));
}

}  // extern "C"
