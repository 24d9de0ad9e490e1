#include "core/link_monitor.h"

#include "config/settings.h"
#include "core/device_paths.h"
#include "core/log.h"
#include "dns/dns_resolver.h"
#include "lldp/lldp.h"
#include "tftp/tftp.h"

constinit str link_status_text;
constinit int link_poll_seconds = 0;
constinit timeout link_timer;

namespace {

constexpr int poll_interval = 2;  // seconds
constexpr int tftp_window = 31;   // seconds after the start

bool link_is_up(str const& status) {
    str rest = status;
    while (!rest.empty()) {
        str const line = rest.get_first_line();
        if (line.get_field(2, ':').get_field(0, str::space).icmp("up")) {
            return true;
        }
    }
    return false;
}

template<class function>
void for_each_agent(function act) {
    str key;
    for (auto* each = lldp::clients.first(); each; each = lldp::clients.after(key)) {
        key = each->key;
        act(key, each->value);
    }
}

void link_went_up() {
    for_each_agent([](str const& name, lldp& agent) {
        log_text(2, "Ethernet link went up again, restarting network on %s", name);
        agent.start(name);
    });
}

void link_went_down() {
    for_each_agent([](str const& name, lldp& agent) {
        log_text(2, "Ethernet link went down on %s", name);
        agent.stop();
    });
    dns_services.clear();  // Another network may answer otherwise.
}

// The first reading is only stored. An empty one, as while the file is replaced, says nothing.
void compare_link_status(str const& status) {
    if (status.empty() || status == link_status_text) {
        return;
    }
    bool const first_reading = link_status_text.empty();
    link_status_text = status;
    if (first_reading) {
        return;
    }
    if (link_is_up(status)) {
        link_went_up();
    } else {
        link_went_down();
    }
}

}  // namespace

void link_monitor(str const& interface) {
    compare_link_status(str::read_file(path_link_status));
    // Intended: uploads that grant access are taken in this period alone. Do not reopen.
    if (link_poll_seconds >= tftp_window && !tftp_enabled) {
        close_tftp();
    }
    link_poll_seconds += poll_interval;
    link_timer.callback(rtimestamp::s2ticks(poll_interval),
                        callback_argument(link_monitor, interface));
}
