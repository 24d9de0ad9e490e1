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

    // Waits `delay` milliseconds at most, without limit if negative. The count of readable
    // descriptors, negative on error.
    int wait(int delay) {
        if (delay == 0) {
            return 0;
        }
        if (delay > 0 && largest == 0) {
            usleep(static_cast<useconds_t>(delay) * 1000);
            return 0;
        }
        timeval limit = {};
        limit.tv_sec = delay / 1000;
        limit.tv_usec = delay % 1000 * 1000;
        int const ready = select(largest + 1, &set, nullptr, nullptr, delay < 0 ? nullptr : &limit);
        // Linux leaves in the limit what was not waited, but not every C library hands it on.
        long long const waited = rtimestamp::ms2ticks(delay) -
                                 rtimestamp::s2ticks(int(limit.tv_sec)) - limit.tv_usec * 1000LL;
        if (ready > 0 && delay > 0 && waited > 0) {
            rtimestamp::waited(waited);
        } else {
            rtimestamp::look_again();
        }
        return ready;
    }

private:
    fd_set set;
    int largest = 0;
};

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

// There may be a thousand: only those that are readable are looked up.
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
    int const delay = timeout_queue::global_queue.delay(true);
    if (delay < 0) {
        (void)rtimestamp::now();  // keeps count of the clock's wraps, as `delay` does with a timer
    }
    int const ready = descriptors.wait(delay);
    if (ready == 0) {
        timeout_queue::global_queue.next();
    } else if (ready > 0) {
        serve_all(descriptors);
    }
    if (ready <= 0) {
        rtimestamp::look_again();  // Only a burst of packets shares one look at the clock.
    }
}
