// The daemon's globals, as they are when the program begins.
#include "sim/sim.h"

#include "config/setting_container.h"
#include "config/settings.h"
#include "core/link_monitor.h"
#include "core/log.h"
#include "core/start_up.h"
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

// The first case finds and keeps the initial values.
template<class value>
void restore(value& global) {
    static std::map<value*, value> initial;
    global = initial.emplace(&global, global).first->second;
}

// One line for each variable that a header of the daemon declares: see ../CMakeLists.txt.
void restore_globals() {
    using ::descriptors::spare;
#include "globals.inc"
}

}  // namespace

void reset_daemon() {
    dhcp::clients.clear();
    dhcp6::clients.clear();
    lldp::clients.clear();
    link_timer.clear();
    for (ntp_client& client : ntp) {
        descriptors::close(client.socket);
        client.~ntp_client();
        new (&client) ntp_client;
    }
    init_ntp();
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        close(each->key);
    }
    tftp_ports.clear();
    dns_services.clear();
    dns_services.requests.clear();
    dns_services.pending.clear();
    dns_services.next_id = 1;
    dns_resolver::best_server.clear();
    settings.registered.clear();
    for (; descriptors::abandoned.head; descriptors::abandoned.remove_first()) {
        close(descriptors::abandoned.head->value);
    }
    for (int* fd :
         {&dns_socket4, &dns_socket6, &fd_tftp4, &fd_tftp6, &log_fd, &descriptors::spare}) {
        descriptors::close(*fd);
    }
    restore_globals();
}

void test::SetUp() {
    reset_daemon();
    reset_world();
}

void test::TearDown() {
    reset_daemon();
    EXPECT_EQ(open_descriptors(), 0) << "a socket outlives its owner";
    EXPECT_EQ(timeout_queue::global_queue.count, 0) << "a timer outlives its owner";
}

}  // namespace sim
