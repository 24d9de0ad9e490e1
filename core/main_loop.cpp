#include "core/main_loop.h"

#include "core/timeout.h"
#include "dhcp/dhcp.h"
#include "dhcp6/dhcp6.h"
#include "dns/dns_resolver.h"
#include "lib/utils.h"
#include "lldp/lldp.h"
#include "ntp/ntp_client.h"
#include "tftp/tftp.h"

#include <sys/select.h>
#include <unistd.h>

namespace {

// The descriptors to wait for; afterwards those that are readable.
class descriptor_set {
public:
    descriptor_set() { FD_ZERO(&set); }

    void add(int fd) {
        if (fd != -1) {
            FD_SET(fd, &set);
            largest = fd > largest ? fd : largest;
        }
    }
    int last() const { return largest; }
    bool contains(int fd) const { return fd != -1 && FD_ISSET(fd, &set); }

    // Waits until one is readable, without limit or so many milliseconds at most. The count of
    // those that are, negative on error.
    int select_readable() { return select(largest + 1, &set, nullptr, nullptr, nullptr); }
    int select_readable(int milliseconds) {
        timeval limit = {};
        limit.tv_sec = milliseconds / 1000;
        limit.tv_usec = milliseconds % 1000 * 1000;
        return select(largest + 1, &set, nullptr, nullptr, &limit);
    }

private:
    fd_set set;
    int largest = 0;
};

void sleep_for(int milliseconds) {
    constexpr int longest = 1000000;  // usleep() takes 32 bits of microseconds
    for (; milliseconds > longest; milliseconds -= longest) {
        usleep(longest * 1000U);
    }
    usleep(static_cast<useconds_t>(milliseconds) * 1000);
}

// Until a descriptor is readable or `delay` milliseconds have passed, if that is not negative. The
// count of readable descriptors, negative on error.
int wait_for(descriptor_set& watched, int delay) {
    if (delay < 0) {
        return watched.select_readable();
    }
    if (delay == 0) {
        return 0;
    }
    if (watched.last() > 0) {
        return watched.select_readable(delay);
    }
    sleep_for(delay);
    return 0;
}

void watch_all(descriptor_set& watched) {
    watched.add(dns_socket4);
    watched.add(dns_socket6);
    for (ntp_client const& client : ntp) {
        watched.add(client.socket);
    }
    for (auto* each = dhcp::clients.first(); each; each = dhcp::clients.next(each)) {
        watched.add(each->value.fd);
        watched.add(each->value.arp_fd);
    }
    for (auto* each = dhcp6::clients.first(); each; each = dhcp6::clients.next(each)) {
        watched.add(each->value.fd);
    }
    for (auto* each = lldp::clients.first(); each; each = lldp::clients.next(each)) {
        watched.add(each->value.lldp_fd);
        watched.add(each->value.eapol_fd);
    }
    watched.add(fd_tftp4);
    watched.add(fd_tftp6);
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        watched.add(each->key);
    }
}

// Hands one packet, if there is one, from a readable descriptor of the map's entry `key` to its
// handler. Handlers may remove entries, so each is looked up anew.
template<class client>
void serve(descriptor_set const& readable, smap<str, client> const& clients, str const& key,
           int client::*fd, void (client::*handler)(str const&)) {
    client* const entry = clients.find(key);
    if (!entry || !readable.contains(entry->*fd)) {
        return;
    }
    str const packet = utils::recv_raw_packet(entry->*fd);
    if (!packet.empty()) {
        (entry->*handler)(packet);
    }
}

// Hands one datagram, if there is one, from a readable UDP socket to its handler.
template<class function>
void serve_udp(descriptor_set const& readable, int fd, bool ipv6, function handle) {
    if (!readable.contains(fd)) {
        return;
    }
    ip_port sender;
    str const packet =
        ipv6 ? utils::recv_udp_packet6(fd, sender) : utils::recv_udp_packet4(fd, sender);
    if (!packet.empty()) {
        handle(packet, sender);
    }
}

void serve_dns(descriptor_set const& readable, int fd, bool ipv6) {
    serve_udp(readable, fd, ipv6, [](str const& packet, ip_port const& sender) {
        dns_services.on_pdu_available(packet, sender);
    });
}

void serve_ntp(descriptor_set const& readable, ntp_client& client) {
    serve_udp(readable, client.socket, client.ipv6,
              [&](str const& packet, ip_port const&) { client.process_packet(packet); });
}

// There may be hundreds: only those that are readable are looked up.
void serve_transfers(descriptor_set const& readable) {
    for (int fd = 0; fd <= readable.last(); ++fd) {
        if (tftp_result* const transfer = readable.contains(fd) ? tftp_ports.find(fd) : nullptr) {
            str const packet = utils::recv_raw_packet(fd);
            if (!packet.empty()) {
                on_tftp_packet(*transfer, packet);
            }
        }
    }
}

void serve_tftp(descriptor_set const& readable, int fd, bool ipv6) {
    serve_udp(readable, fd, ipv6, [&](str const& packet, ip_port const& sender) {
        on_tftp_packet(fd, packet, sender);
    });
}

void serve_all(descriptor_set const& readable) {
    serve_dns(readable, dns_socket4, false);
    serve_dns(readable, dns_socket6, true);
    for (ntp_client& client : ntp) {
        serve_ntp(readable, client);
    }
    str key;
    for (auto* each = dhcp::clients.first(); each; each = dhcp::clients.after(key)) {
        key = each->key;
        serve(readable, dhcp::clients, key, &dhcp::fd, &dhcp::process_data);
        serve(readable, dhcp::clients, key, &dhcp::arp_fd, &dhcp::process_arp);
    }
    for (auto* each = dhcp6::clients.first(); each; each = dhcp6::clients.after(key)) {
        key = each->key;
        if (readable.contains(each->value.fd)) {
            each->value.process_data();
        }
    }
    for (auto* each = lldp::clients.first(); each; each = lldp::clients.after(key)) {
        key = each->key;
        serve(readable, lldp::clients, key, &lldp::lldp_fd, &lldp::process_lldp);
        serve(readable, lldp::clients, key, &lldp::eapol_fd, &lldp::process_eap);
    }
    serve_transfers(readable);
    serve_tftp(readable, fd_tftp4, false);
    serve_tftp(readable, fd_tftp6, true);
}

}  // namespace

void main_loop_pass() {
    descriptor_set descriptors;
    watch_all(descriptors);
    int const ready = wait_for(descriptors, timeout_queue::global_queue.delay(true));
    (void)rtimestamp::now();  // counts a wrap of the kernel's clock, also while no timer is armed
    if (ready == 0) {
        timeout_queue::global_queue.next();
    } else if (ready > 0) {
        serve_all(descriptors);
    }
}
