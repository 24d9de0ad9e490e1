#include "lib/utils.h"

#include "core/log.h"
#include "lib/descriptors.h"

#include <cerrno>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int receive_size = 65536;
constexpr int tcp_backlog = 10;
constexpr int device_name_size = 32;  // bytes of the SO_BINDTODEVICE argument
unsigned char receive_buffer[receive_size];

bool switch_to_nonblocking(int fd) {
    int on = 1;
    return ioctl(fd, FIONBIO, &on) == 0;
}

// A socket address of either family and the size that goes with it.
struct socket_address {
    union {
        sockaddr generic;
        sockaddr_in ipv4;
        sockaddr_in6 ipv6;
    };
    socklen_t size;
    bool is_set;

    explicit socket_address(ip_port const& endpoint)
        : socket_address(endpoint, endpoint.is_ipv6()) {}
    socket_address(ip_port const& endpoint, bool is_ipv6)
        : size(is_ipv6 ? sizeof ipv6 : sizeof ipv4),
          is_set(is_ipv6 ? utils::conv6(endpoint, ipv6) : utils::conv4(endpoint, ipv4)) {}
};

ip_port wildcard(int port) {
    ip_port endpoint;
    endpoint.port = port;
    return endpoint;
}

ip_port endpoint_of(sockaddr_in const& address) {
    ip_port endpoint;
    endpoint.adr = str(reinterpret_cast<unsigned char const*>(&address.sin_addr), 4);
    endpoint.port = ntohs(address.sin_port);
    return endpoint;
}

ip_port endpoint_of(sockaddr_in6 const& address) {
    ip_port endpoint;
    endpoint.adr =
        str(reinterpret_cast<unsigned char const*>(&address.sin6_addr), ip_port::ipv6_length);
    endpoint.port = ntohs(address.sin6_port);
    return endpoint;
}

bool is_link_local(str const& adr) {
    static unsigned char const prefix[] = {0xFE, 0x80, 0, 0, 0, 0, 0, 0};
    return adr.leftstr(sizeof prefix).compare_sensitiv(prefix, sizeof prefix);
}

// A link-local address is good on one interface only.
socket_address reached_by(ip_port const& peer, int interface_index) {
    socket_address remote(peer);
    if (peer.is_ipv6() && is_link_local(peer.adr)) {
        remote.ipv6.sin6_scope_id = static_cast<uint32_t>(interface_index);
    }
    return remote;
}

// One datagram whose sender has an address of just this type.
template<class address_type>
str recv_udp_packet(int fd, ip_port& peer) {
    union {
        sockaddr generic;
        sockaddr_storage storage;
        address_type address;
    } sender;
    socklen_t size = sizeof sender.storage;
    ssize_t const count =
        recvfrom(fd, receive_buffer, receive_size, MSG_DONTWAIT, &sender.generic, &size);
    if (count < 1 || size != sizeof sender.address) {
        return str::null;
    }
    peer = endpoint_of(sender.address);
    return str(receive_buffer, int(count));
}

}  // namespace

void utils::copy_interface_name(char* destination, str const& name) {
    str const clamped = name.leftstr(IFNAMSIZ - 1);
    memcpy(destination, clamped.cbuffer(), size_t(clamped.length()));
}

int utils::open_udp_socket(int port, bool ipv6) {
    int fd = descriptors::open_socket(ipv6 ? AF_INET6 : AF_INET, SOCK_DGRAM, 0);
    if (fd == -1) {
        return -1;
    }
    int const on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    socket_address const local(wildcard(port), ipv6);
    if (bind(fd, &local.generic, local.size) != 0) {
        log_text(1, ipv6 ? "UDPv6: binding to port %d failed" : "UDP: binding to port %d failed",
                 port);
        descriptors::close(fd);
        return -1;
    }
    set_nonblocking(fd);
    return fd;
}

void utils::close_udp_socket(int fd) {
    (void)close(fd);
}

int utils::open_udp_client(int port, ip_port const& peer, int interface_index) {
    int const fd = open_udp_socket(port, peer.is_ipv6());
    if (fd == -1) {
        return -1;
    }
    socket_address const remote = reached_by(peer, interface_index);
    (void)connect(fd, &remote.generic, remote.size);  // Without a route, sending fails later.
    return fd;
}

void utils::set_nonblocking(int fd) {
    if (fd >= 0 && !switch_to_nonblocking(fd)) {
        log_text(1, "Could not set non blocking IO");
    }
}

void utils::bind_to_device(int fd, str const& interface) {
    char device[device_name_size] = {};
    copy_interface_name(device, interface);
    setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, device, sizeof device);
}

void utils::set_multicast_interface(int fd, int interface_index) {
    setsockopt(fd, IPPROTO_IPV6, IPV6_MULTICAST_IF, &interface_index, sizeof interface_index);
}

int utils::send_udp_packet(int fd, ip_port const& peer, str const& data, int interface_index) {
    if (data.empty()) {
        return 0;
    }
    socket_address const remote = reached_by(peer, interface_index);
    return int(sendto(fd, data.cbuffer(), size_t(data.length()), 0, &remote.generic, remote.size));
}

int utils::send_udp_packet(int fd, str const& data) {
    return data.empty() ? 0 : int(send(fd, data.cbuffer(), size_t(data.length()), 0));
}

str utils::recv_raw_packet(int fd) {
    ssize_t const count =
        recvfrom(fd, receive_buffer, receive_size, MSG_DONTWAIT, nullptr, nullptr);
    return str(receive_buffer, int(count));
}

str utils::recv_udp_packet4(int fd, ip_port& peer) {
    return recv_udp_packet<sockaddr_in>(fd, peer);
}

str utils::recv_udp_packet6(int fd, ip_port& peer) {
    return recv_udp_packet<sockaddr_in6>(fd, peer);
}

ip_port utils::local_endpoint(int fd, bool ipv6) {
    socket_address local(ip_port(), ipv6);
    if (getsockname(fd, &local.generic, &local.size) != 0) {
        return ip_port();
    }
    return ipv6 ? endpoint_of(local.ipv6) : endpoint_of(local.ipv4);
}

int utils::open_tcp_listener(int port, bool ipv6) {
    int fd = descriptors::open_socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0);
    socket_address const local(wildcard(port), ipv6);
    if (fd != -1 && bind(fd, &local.generic, local.size) == 0 && switch_to_nonblocking(fd) &&
        listen(fd, tcp_backlog) == 0) {
        return fd;
    }
    descriptors::close(fd);
    log_text(3, ipv6 ? "Could not open TCP socket [::]:%d" : "Could not open TCP socket 0.0.0.0:%d",
             port);
    return -1;
}

int utils::connect_tcp(ip_port const& peer) {
    socket_address const remote(peer);
    if (!remote.is_set) {
        log_text(1, "Could not set destination %s", readable_ip(peer));
        return -1;
    }
    int fd = descriptors::open_socket(remote.generic.sa_family, SOCK_STREAM, 0);
    if (fd == -1) {
        log_text(1, "Could not open a socket for %s", readable_ip(peer));
        return -1;
    }
    if (!switch_to_nonblocking(fd)) {
        descriptors::close(fd);
        log_text(1, "Could not set socket for non blocking IO");
        return -1;
    }
    if (connect(fd, &remote.generic, remote.size) != 0 && errno != EINPROGRESS) {
        descriptors::close(fd);
        log_text(3, "Could not connect to %s", readable_ip(peer));
        return -1;
    }
    return fd;
}

int utils::accept_tcp4(int fd) {
    sockaddr_in peer;
    socklen_t size = sizeof peer;
    return accept(fd, reinterpret_cast<sockaddr*>(&peer), &size);
}

int utils::accept_tcp6(int fd) {
    sockaddr_in6 peer;
    socklen_t size = sizeof peer;
    return accept(fd, reinterpret_cast<sockaddr*>(&peer), &size);
}

int utils::recv_tcp(int fd, unsigned char* bytes, int size) {
    ssize_t const count = recv(fd, bytes, size_t(size), MSG_DONTWAIT);
    return count < 0 ? -errno : int(count);
}

str utils::recv_tcp(int fd) {
    return str(receive_buffer, int(recv(fd, receive_buffer, receive_size, 0)));
}

int utils::send_tcp(int fd, str& data) {
    int const sent =
        int(send(fd, data.cbuffer(), size_t(data.length()), MSG_DONTWAIT | MSG_NOSIGNAL));
    if (sent >= 0) {
        data = data.substr(sent);
    }
    return sent;
}

int get_interface_index(str const& name) {
    int fd = descriptors::open_socket(AF_INET, SOCK_DGRAM, 0);
    if (fd == -1) {
        return 0;
    }
    ifreq request = {};
    utils::copy_interface_name(request.ifr_name, name);
    bool const is_known = ioctl(fd, SIOCGIFINDEX, &request) == 0;
    descriptors::close(fd);
    return is_known ? request.ifr_ifindex : 0;
}
