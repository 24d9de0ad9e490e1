// Requests: sending and copies, choice of the server, completion.
#include "dns/dns_resolver.h"

#include "config/settings.h"
#include "core/log.h"
#include "lib/utils.h"

constinit int dns_socket4 = -1;
constinit int dns_socket6 = -1;
constinit str dns_resolver::best_server;

namespace {

constexpr int id_max = 65535;
constexpr int dns_port = 53;
constexpr int multicast_port = 5355;  // RFC 4795, 2

constexpr int delays[] = {500, 1000, 2000, 4000, 4000, 4000, 4000};  // ms before the next copy
constexpr int delay_count = int(sizeof delays / sizeof *delays);  // after the last it is given up
constexpr int copies_to_best_server = 4;                          // then it is forgotten

ip_port endpoint(str const& adr, int port) {
    ip_port result;
    result.adr = adr;
    result.port = port;
    return result;
}

// Calls `use` with the text of each active server, in order, until it returns true.
template<class function>
bool any_server(function use) {
    str const* const fixed[] = {&static_dns_server1, &static_dns_server2, &static_dns_server3,
                                &static_dns_server4};
    str const* const learnt[] = {
        &dynamic_dns4_server1, &dynamic_dns4_server2, &dynamic_dns4_server3, &dynamic_dns4_server4,
        &dynamic_dns6_server1, &dynamic_dns6_server2, &dynamic_dns6_server3, &dynamic_dns6_server4};
    bool const is_static = use_dhcp == str::f;
    str const* const* const first = is_static ? fixed : learnt;
    str const* const* const end = is_static ? fixed + 4 : learnt + 8;
    for (str const* const* each = first; each != end; ++each) {
        if (!(*each)->empty() && use(**each)) {
            return true;
        }
    }
    return false;
}

}  // namespace

void dns_resolver::request_dns(str const& name, dns_type type, callback_argument const& callback) {
    if (name.empty()) {
        log_text(6, "DNS: Cannot resolve empty DNS address");
        return;
    }
    log_text(9, "DNS: Request %s %s", type_name(type), name);
    str const full_name = qualified(name);
    str const key = cache_key(type, full_name);
    if (int const* const id = pending.find(key)) {
        if (dns_request* const request = requests.find(*id)) {
            request->callbacks.append(callback);
        }
        return;
    }
    int const id = next_id;
    next_id = id < id_max ? id + 1 : 1;
    requests.erase_key(id);  // one that was parked for good
    dns_request& request = requests.find_or_insert(id);
    request.id = id;
    request.name = full_name;
    request.type = type;
    request.packet = build_query(id, full_name, type);
    request.callbacks.append(callback);
    request.timer.callback(rtimestamp::ms2ticks(delays[0]), callback_argument(resend_request, id));
    pending.insert(key, id);
    str const packet = request.packet;
    if (best_server.empty()) {
        broadcast_request(packet);
    } else {
        (void)dns_send_proc(endpoint(best_server, dns_port), packet);
    }
}

void dns_resolver::resend_request(int id) {
    dns_resolver& resolver = dns_services;
    dns_request* const request = resolver.requests.find(id);
    if (!request) {
        log_text(1, "DNS: Resending packet %d not found", id);
        return;
    }
    ++request->count;
    if (request->count >= delay_count) {
        resolver.call_and_delete(id);
        return;
    }
    if (!best_server.empty() && request->count <= copies_to_best_server) {
        (void)dns_send_proc(endpoint(best_server, dns_port), request->packet);
    } else {
        best_server.clear();
        resolver.broadcast_request(request->packet);
    }
    request->timer.callback(rtimestamp::ms2ticks(delays[request->count]),
                            callback_argument(resend_request, id));
}

void dns_resolver::broadcast_request(str const& packet) {
    bool sent = false;
    any_server([&](str const& server) {
        (void)dns_send_proc(endpoint(utils::compact_ip(server), dns_port), packet);
        sent = true;
        return false;
    });
    if (!sent) {
        (void)dns_send_proc(endpoint(utils::compact_ip("ff02::1:3"), multicast_port), packet);
        (void)dns_send_proc(endpoint(utils::compact_ip("224.0.0.252"), multicast_port), packet);
    }
}

int dns_send_proc(ip_port const& to, str const& packet) {
    int& socket = to.is_ipv6() ? dns_socket6 : dns_socket4;
    if (socket == -1) {
        socket = utils::open_udp_socket(0, to.is_ipv6());
    }
    if (socket == -1) {
        return -1;
    }
    bool const is_ipv6_multicast = to.is_ipv6() && to.adr[0] == 0xFF;
    if (is_ipv6_multicast) {
        utils::set_multicast_interface(socket, default_interface_index);
    }
    return utils::send_udp_packet(socket, to, packet, default_interface_index);
}

void dns_resolver::on_pdu_available(str const& packet, ip_port const& from) {
    if (!best_server.empty() && from.adr != best_server) {
        return;
    }
    int const id = utils::str2int(packet.leftstr(2));
    if (!process_answer(packet, id)) {
        return;
    }
    if (best_server.empty() &&
        any_server([&](str const& server) { return from.adr == utils::compact_ip(server); })) {
        best_server = from.adr;
    }
    call_and_delete(id);
}

void dns_resolver::call_and_delete(int id) {
    dns_request* const request = requests.find(id);
    if (!request) {
        return;
    }
    linked_list<callback_argument> const callbacks(
        static_cast<linked_list<callback_argument>&&>(request->callbacks));
    pending.erase_key(cache_key(request->type, request->name));
    requests.erase_key(id);
    for (auto const* each = callbacks.head; each; each = each->next) {
        each->value.call();
    }
}
