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

using ::descriptors::abandoned;
using ::descriptors::spare;

// The first case finds and keeps the initial values.
template<class value>
void restore(value& global) {
    static std::map<value*, value> initial;
    global = initial.emplace(&global, global).first->second;
}

template<class... object>
void renew(object&... old) {
    (..., (old.~object(), new (&old) object));
}

// One line for each variable that a header of the daemon declares: see ../CMakeLists.txt.
void restore_globals() {
#include "globals.inc"
}

}  // namespace

void reset_daemon() {
    for (int const fd : {dns_socket4, dns_socket6, fd_tftp4, fd_tftp6, log_fd, spare, ntp[0].socket,
                         ntp[1].socket, ntp[2].socket}) {
        close(fd);
    }
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        close(each->key);
    }
    for (auto* each = abandoned.head; each; each = each->next) {
        close(each->value);
    }
    renew(dhcp::clients, dhcp6::clients, lldp::clients, link_timer, ntp[0], ntp[1], ntp[2],
          tftp_ports, dns_services, dns_resolver::best_server, settings, abandoned);
    init_ntp();
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
