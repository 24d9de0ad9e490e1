#include "world/checker.h"

#include "config/settings.h"
#include "core/link_monitor.h"
#include "core/log.h"
#include "dhcp/dhcp.h"
#include "dhcp6/dhcp6.h"
#include "dns/dns_resolver.h"
#include "lib/descriptors.h"
#include "lib/utils.h"
#include "lldp/lldp.h"
#include "ntp/ntp_client.h"
#include "tftp/tftp.h"

#include <algorithm>
#include <initializer_list>
#include <iostream>
#include <iterator>

namespace life {

using namespace sim;

namespace {

constexpr int memory_limit = 24 << 20;  // bytes; two limits of 4 MiB each, and copies
constexpr int packets_a_minute = 3000;
constexpr int passes_at_once = 20000;
constexpr double a_while = 60;  // seconds: every packet has arrived

constexpr char bound_without_address[] = "bound without an address after rebinding";
constexpr char bound_by_damaged_answer[] = "bound by a damaged answer";
constexpr char not_configured[] = "a system call failed while the address was set";
constexpr char no_socket[] = "a socket or an interface could not be made";
constexpr char unanswered_name[] = "a named time server whose one answer was lost";
constexpr char no_time_server[] = "no time server known";
constexpr char parked_request[] = "a DNS request parked by an odd RCODE";

template<class client>
client* client_in_use(smap<str, client>& clients) {
    for (auto* each = clients.first(); each; each = clients.next(each)) {
        auto const found = interfaces.find(of(each->key));
        if (found != interfaces.end() && found->second == default_interface_index) {
            return &each->value;
        }
    }
    return nullptr;
}

std::string configured_address(dhcp const& client) {
    auto const found = configured.find("SIOCSIFADDR " + of(client.interface));
    return found == configured.end() ? "" : found->second;
}

// Bytes of all blocks of the pool's classes.
int pool_size() {
    int bytes = 0;
    for (str::block_class const& each : str::block_size) {
        bytes += each.carved * each.size;
    }
    return bytes;
}

// Bytes of those that are handed out.
int memory_in_use() {
    int bytes = 0;
    for (str::block_class const& each : str::block_size) {
        int blocks = each.carved;
        for (str::reference* block = each.free_list; block; block = block->next_free) {
            blocks -= 1 + int(block->flags);  // and those behind it that were never needed
        }
        bytes += blocks * each.size;
    }
    return bytes;
}

// The armed timers, found by their owners.
int count_timers() {
    int count = link_timer.active;
    auto const add = [&](std::initializer_list<timeout const*> timers) {
        for (timeout const* each : timers) {
            count += each->active;
        }
    };
    for (auto* each = dhcp::clients.first(); each; each = dhcp::clients.next(each)) {
        dhcp const& client = each->value;
        add({&client.t1_timer, &client.t2_timer, &client.resend_timer, &client.arp_timer});
    }
    for (auto* each = dhcp6::clients.first(); each; each = dhcp6::clients.next(each)) {
        add({&each->value.resend_timer, &each->value.renew_timer, &each->value.rebind_timer});
    }
    for (auto* each = lldp::clients.first(); each; each = lldp::clients.next(each)) {
        add({&each->value.timer});
    }
    auto const& requests = dns_services.requests;
    for (auto* each = requests.first(); each; each = requests.next(each)) {
        add({&each->value.timer});
    }
    auto const& cache = dns_services.cache;
    for (auto* each = cache.first(); each; each = cache.next(each)) {
        add({&each->value.timer});
    }
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        add({&each->value.idle_timer, &each->value.retransmit_timer});
    }
    add({&ntp[0].timer, &ntp[1].timer, &ntp[2].timer});
    return count;
}

int count_descriptors() {
    int count = descriptors::abandoned.count;
    auto const add = [&](std::initializer_list<int> all) {
        for (int const fd : all) {
            count += fd != -1;
        }
    };
    add({log_fd, descriptors::spare, dns_socket4, dns_socket6, fd_tftp4, fd_tftp6});
    add({ntp[0].socket, ntp[1].socket, ntp[2].socket});
    for (auto* each = dhcp::clients.first(); each; each = dhcp::clients.next(each)) {
        add({each->value.fd, each->value.arp_fd});
    }
    for (auto* each = dhcp6::clients.first(); each; each = dhcp6::clients.next(each)) {
        add({each->value.fd});
    }
    for (auto* each = lldp::clients.first(); each; each = lldp::clients.next(each)) {
        add({each->value.lldp_fd, each->value.eapol_fd});
    }
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        add({each->value.socket, each->value.temp_fd, each->value.file_fd});
    }
    return count;
}

}  // namespace

void checker::look() {
    ++passes;
    idle_passes = now() > last_moment ? 0 : idle_passes + 1;
    last_moment = now();
    EXPECT_LT(idle_passes, passes_at_once) << "no time passes";
    if (!log_records.empty()) {
        read_log();
    }
    for (packet const& each : take_sent()) {
        check_packet(each);
        world.react(each);
    }
    check_journal();
}

void checker::read_log() {
    for (std::string const& line : take_log()) {
        last_lines.push_back(std::to_string(now()) + " " + line);
        if (prints_log) {
            std::cout << last_lines.back() << "\n";
        }
        size_t const goes_to = line.find(" goes to ");
        if (line.starts_with("7 DHCPv") && goes_to != std::string::npos) {
            logged_states[line.substr(2, goes_to - 2)] = line.substr(goes_to + 9);
        }
    }
    if (last_lines.size() > 200) {
        last_lines.erase(last_lines.begin(), last_lines.end() - 60);
    }
    if (world.calls_fail) {
        forget_log();  // Records may have been lost.
    }
    for (auto const& [client, logged] : logged_states) {
        str const interface = to_str(client.substr(10));
        bool const is_ipv4 = client[5] == '4';
        std::string const is = is_ipv4 ? dhcp::state_names[dhcp::clients.find(interface)->state]
                                       : dhcp6::state_names[dhcp6::clients.find(interface)->state];
        EXPECT_EQ(logged, is) << client;
    }
}

// A message belongs to the state that its client is in, and has its transaction id.
void checker::check_packet(packet const& each) {
    if (now() > minute + 60) {
        minute = now();
        sent_in_minute = 0;
    }
    EXPECT_LT(++sent_in_minute, packets_a_minute);
    dhcp const* const client = dhcp::clients.find(to_str(each.interface));
    bool const is_raw = each.protocol == 0x0800;
    if (!client || !(is_raw || each.to.ends_with(":67"))) {
        return;
    }
    dhcp_packet const message(to_str(is_raw ? each.data.substr(28) : each.data));
    int const type = utils::str2int(message.get_option(dhcp_packet::option_message_type));
    if (!(message.xid == client->xid)) {
        return;  // What came in the same pass has led on.
    }
    bool const fits = type == dhcp_packet::type_discover  ? client->state == dhcp::state_selecting
                      : type == dhcp_packet::type_decline ? client->state == dhcp::state_init
                                                          : client->state >= dhcp::state_requesting;
    EXPECT_TRUE(fits) << "message " << type << " in " << dhcp::state_names[client->state];
}

void checker::check_journal() {
    for (std::string const& each : take_journal()) {
        if (each.starts_with("settimeofday")) {
            clock_set_at = now();
        }
        EXPECT_FALSE(each.starts_with("reboot"));
    }
}

void checker::count_everything() {
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        EXPECT_TRUE(each->value.idle_timer.active) << "a transfer without an end";
    }
    for (auto* each = dns_services.cache.first(); each; each = dns_services.cache.next(each)) {
        EXPECT_TRUE(each->value.timer.active) << "a cache entry without an end";
    }
    for (auto* each = dhcp6::clients.first(); each; each = dhcp6::clients.next(each)) {
        EXPECT_TRUE(each->value.state != dhcp6::state_bound || each->value.renew_timer.active);
    }
    EXPECT_LE(dns_services.requests.count, dns_services.pending.count) << "answered, but kept";
    int entries = 0;
    smultimap<rtimestamp, timeout*> const& queue = timeout_queue::global_queue;
    for (auto* each = queue.first(); each; each = queue.next(each)) {
        EXPECT_TRUE(each->value->active && each->value->node == each) << "a stale queue entry";
        ++entries;
    }
    EXPECT_EQ(entries, count_timers());
    EXPECT_EQ(open_descriptors(), count_descriptors()) << "of the world; by owners";
    int const memory = pool_size();
    EXPECT_LT(memory, memory_limit);
    EXPECT_LT(str::allocated_size, unsigned(memory_limit)) << "large blocks";
    memory_max = std::max(memory_max, memory);
    descriptors_max = std::max(descriptors_max, open_descriptors());
}

void checker::expect_memory_given_back() {
    healthy_last = memory_in_use();
    healthy_first = healthy_first ? healthy_first : healthy_last;
    EXPECT_LT(healthy_last, 20000 + 5500 * dhcp::clients.count + 64 * descriptors::abandoned.count +
                                600 * dns_services.cache.count);
}

std::string checker::why_no_lease() {
    lldp const& agent = *lldp::clients.find("eth1");
    if (!agent.dhcp_started) {
        EXPECT_TRUE(agent.state == lldp::state_eapol_authenticating && !agent.timer.active);
        return "an authenticator that fell silent half-way";
    }
    dhcp const* const client = client_in_use(dhcp::clients);
    if (!client || client->interface_index == 0) {
        return no_socket;
    }
    if (use_dhcp == str::f) {
        return configured_address(*client) == of(ip_adr) ? "" : not_configured;
    }
    if (client->fd == -1 || describe(client->fd).find(" 0 ") != std::string::npos) {
        return no_socket;
    }
    bool const repeats = client->resend_timer.active;
    switch (client->state) {
    case dhcp::state_bound: {
        bool const is_applied = client->applied_ip == client->own_address;
        if (!is_applied) {
            return bound_without_address;
        }
        grant const& known = world.granted[of(client->interface)];
        if (of(client->own_address) != known.address) {
            return bound_by_damaged_answer;
        }
        if (known.moment > world.disturbed_at + a_while) {
            EXPECT_EQ(client->t1_timer.active, known.seconds > 0) << "the lease's timer";
        }
        return configured_address(*client) == of(utils::readable_ip(client->own_address, false))
                   ? ""
                   : not_configured;
    }
    case dhcp::state_init:
        EXPECT_TRUE(client->arp_conflict);
        return "declined, until the old lease's T2";
    case dhcp::state_selecting:
        EXPECT_FALSE(repeats);
        return "an answer stopped the copies of DISCOVER";
    case dhcp::state_requesting:
        return repeats ? "a REQUEST to a server that is gone"
                       : "an answer stopped the copies of REQUEST";
    case dhcp::state_renewing:
        EXPECT_TRUE(client->t2_timer.active);
        return "";  // The old lease still holds.
    case dhcp::state_rebinding:
        return repeats ? "rebinding with a server that is gone"
                       : "an answer stopped the copies while rebinding";
    }
    return "";
}

std::string checker::why_no_clock() {
    if (clock_set_at >= 0 && now() - clock_set_at < time_to_a_clock) {
        return "";
    }
    auto const& requests = dns_services.requests;
    for (auto* each = requests.first(); each; each = requests.next(each)) {
        if (!each->value.timer.active) {
            return parked_request;
        }
    }
    for (ntp_client const& each : ntp) {
        bool const is_named =
            !each.server.empty() && utils::need_dns(utils::get_via_adr(each.server));
        if (is_named && !each.timer.active) {
            return unanswered_name;
        }
    }
    if (std::none_of(std::begin(ntp), std::end(ntp), [](ntp_client const& each) {
            return network::is_time_server(of(utils::get_via_adr(each.server)));
        })) {
        return no_time_server;
    }
    ADD_FAILURE() << "no clock, and no end that explains it";
    return "unexplained";
}

// A client that is bound on a VLAN stays as it is, with what it has learnt, an interface is made
// once, and time servers with a name, like questions about it, wait for an answer without an end.
bool checker::outlives_flap(std::string const& end) {
    bool const on_vlan = default_interface_index != interfaces["eth1"];
    return end.empty() || end == no_socket || end == unanswered_name || end == parked_request ||
           (on_vlan && (end == bound_without_address || end == bound_by_damaged_answer ||
                        end == not_configured || end == no_time_server));
}

std::string checker::story() const {
    std::string text;
    size_t const first = last_lines.size() > 40 ? last_lines.size() - 40 : 0;
    for (size_t i = first; i < last_lines.size(); ++i) {
        text += "    " + last_lines[i] + "\n";
    }
    return text;
}

}  // namespace life
