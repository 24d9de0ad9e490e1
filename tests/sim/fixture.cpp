// The daemon's globals, as they are when the program begins.
#include "sim/sim.h"

#include "config/setting_container.h"
#include "config/settings.h"
#include "core/link_monitor.h"
#include "core/log.h"
#include "core/start_up.h"
#include "core/timeout.h"
#include "dhcp/dhcp.h"
#include "dhcp6/dhcp6.h"
#include "dns/dns_resolver.h"
#include "lib/descriptors.h"
#include "lldp/lldp.h"
#include "ntp/ntp_client.h"
#include "tftp/tftp.h"

#include <unistd.h>

namespace sim {

namespace {

// What the daemon may change. The first case finds and keeps the initial values.
str* const texts[] = {&base_name,
                      &asset_id,
                      &ieee_802_1x_username,
                      &ieee_802_1x_password,
                      &use_dhcp,
                      &ip_adr,
                      &netmask,
                      &gateway,
                      &static_dns_server1,
                      &static_dns_server2,
                      &static_dns_server3,
                      &static_dns_server4,
                      &static_dns_domain,
                      &ntp_server,
                      &http_username1,
                      &http_password1,
                      &mac_addr,
                      &assigned_ip_adr,
                      &assigned_server,
                      &assigned_option_66,
                      &assigned_option_67,
                      &dynamic_dns4_server1,
                      &dynamic_dns4_server2,
                      &dynamic_dns4_server3,
                      &dynamic_dns4_server4,
                      &dynamic_dns4_domain,
                      &dynamic_dns6_server1,
                      &dynamic_dns6_server2,
                      &dynamic_dns6_server3,
                      &dynamic_dns6_server4,
                      &dynamic_dns6_domain,
                      &log_pipe_path,
                      &link_status_text};
int* const numbers[] = {&vlan_id, &vlan_prio, &default_interface_index, &log_level,
                        &link_poll_seconds};
bool* const switches[] = {&tftp_enabled, &system_ipv4, &system_ipv6, &daemon_mode};

template<class value, size_t count>
void restore(value* const (&globals)[count]) {
    static std::vector<value> initial;
    bool const first_case = initial.empty();
    for (size_t i = 0; i < count; ++i) {
        if (first_case) {
            initial.push_back(*globals[i]);
        }
        *globals[i] = initial[i];
    }
}

void close_socket(int& fd) {
    if (fd != -1) {
        close(fd);
        fd = -1;
    }
}

void reset_dns() {
    dns_services.clear();
    dns_services.requests.clear();
    dns_services.pending.clear();
    dns_services.next_id = 1;
    dns_resolver::best_server.clear();
    close_socket(dns_socket4);
    close_socket(dns_socket6);
}

void reset_ntp() {
    for (ntp_client& client : ntp) {
        close_socket(client.socket);
        client.server.clear();
        client.ipv6 = false;
        client.attempts = 0;
        client.questions = 0;
        client.timer.clear();
    }
    init_ntp();
    ntp_server_selected = false;
    manual_ntp_started = false;
}

}  // namespace

void reset_daemon() {
    dhcp::clients.clear();
    dhcp6::clients.clear();
    lldp::clients.clear();
    link_timer.clear();
    reset_dns();
    reset_ntp();
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        close(each->key);
    }
    tftp_ports.clear();
    close_tftp();
    tftp_next_temp_number = 1;
    settings.registered.clear();
    while (descriptors::abandoned.head) {
        close(descriptors::abandoned.head->value);
        descriptors::abandoned.remove_first();
    }
    close_socket(descriptors::spare);
    log_fd = -1;
    restore(texts);
    restore(numbers);
    restore(switches);
}

void test::SetUp() {
    reset_daemon();
    reset_world();
}

void test::TearDown() {
    int const log_pipe = log_fd == -1 ? 0 : 1;
    reset_daemon();
    EXPECT_EQ(open_descriptors(), log_pipe) << "a socket outlives its owner";
    EXPECT_EQ(timeout_queue::global_queue.count, 0) << "a timer outlives its owner";
}

}  // namespace sim
