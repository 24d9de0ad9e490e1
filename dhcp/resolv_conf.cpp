#include "dhcp/resolv_conf.h"

#include "config/settings.h"
#include "lib/str.h"
#include "lib/str_format.h"

#include <initializer_list>

namespace {

str search_line() {
    for (str const* domain : {&static_dns_domain, &dynamic_dns6_domain, &dynamic_dns4_domain}) {
        if (!domain->empty()) {
            return str::sprintf("search %s\n", *domain);
        }
    }
    return str::null;
}

str server_lines(std::initializer_list<str const*> group) {
    str lines;
    for (str const* server : group) {
        if (!server->empty()) {
            lines += str::sprintf("nameserver %s\n", *server);
        }
    }
    return lines;
}

// Groups are never mixed: one static server hides all that were learnt.
// Intended: IPv6 servers stand in brackets. Do not strip them.
str name_servers() {
    str lines = server_lines(
        {&static_dns_server1, &static_dns_server2, &static_dns_server3, &static_dns_server4});
    if (lines.empty()) {
        lines = server_lines({&dynamic_dns6_server1, &dynamic_dns6_server2, &dynamic_dns6_server3,
                              &dynamic_dns6_server4});
    }
    if (lines.empty()) {
        lines = server_lines({&dynamic_dns4_server1, &dynamic_dns4_server2, &dynamic_dns4_server3,
                              &dynamic_dns4_server4});
    }
    return lines;
}

void update_file(str const& path, str const& content) {
    if (str::read_file(path) != content) {
        (void)content.write_file(path);  // The next lease tries again.
    }
}

}  // namespace

void write_resolv_conf() {
    update_file("resolv.conf", search_line() + name_servers());
    update_file("dhcp.info", str::sprintf("option66: %s\noption67: %s\ndhcp-server: %s",
                                          assigned_option_66, assigned_option_67, assigned_server));
}
