#include "tools/device_status.h"

#include "lib/utils.h"
#include "tools/printable.h"

namespace {

using status = device_status;

// Which record means which row. %s and %d are what the daemon filled in; {1}, {2} and {3} show it.
struct rule {
    char const* record;
    status::row_type row;
    char const* shown;
};

constexpr rule rules[] = {
    {"Read MAC address %s", status::row_hardware_address, "{1}"},
    {"Ethernet link went down on %s", status::row_link, "down on {1}"},
    {"Ethernet link went up again, restarting network on %s", status::row_link, "up again on {1}"},
    {"Starting 802.1X", status::row_port, "802.1X has begun"},
    {"Starting LLDP", status::row_port, "open, without 802.1X"},
    {"802.1X authentication done", status::row_port, "open, authenticated by 802.1X"},
    {"802.1X authentication failed", status::row_port, "refused by 802.1X"},
    {"LLDP: VLAN=%d, Priority=%d, DSCP=%d", status::row_policy, "VLAN {1}, priority {2}, DSCP {3}"},
    {"Using VLAN %d", status::row_vlan, "{1}"},
    {"DHCPv4 on %s goes to %s", status::row_ipv4, "{2} on {1}"},
    {"DHCPv4: IP address conflict detected", status::row_ipv4, "another host has the address"},
    {"DHCPv4: Use IP address %s", status::row_ipv4_address, "{1}"},
    {"DHCPv4: Lease duration is %d sec, renewing lease in %u sec", status::row_ipv4_lease,
     "{1} s, renewed after {2} s"},
    {"DHCPv6 on %s goes to %s", status::row_ipv6, "{2} on {1}"},
    {"Detected IPv6 address %s", status::row_ipv6_address, "{1}, was there already"},
    {"Set up IPv6 address %s", status::row_ipv6_address, "{1}, from DHCPv6"},
    {"DHCPv6: Set DNS domain to %s", status::row_domain, "{1}, from DHCPv6"},
    {"DHCPv6: Add DNS server %s", status::row_name_server, "{1}, from DHCPv6"},
    {"DHCPv4: Set NTP server to %s", status::row_dhcp_time_server, "{1}"},
    {"DHCPv6: Set NTP server to %s", status::row_dhcp6_time_server, "{1}"},
    {"NTP: Use server %s", status::row_clock, "set by {1}"},
    {"NTP: server %s timed out", status::row_clock, "{1} has fallen silent"},
    {"NTP: DNS resolution for %s failed", status::row_clock, "not set: no address of {1}"},
    {"TFTP: Authentication succeeded", status::row_upload_access, "opened by credentials"},
    {"TFTP: Authentication failed", status::row_upload_access, "refused: wrong credentials"},
    {"TFTP: Open port for writing", status::row_transfer, "an upload has begun"},
    {"TFTP: Receive %s (%d bytes)", status::row_transfer, "{1} received"},
    {"TFTP: Request for %s from %s", status::row_transfer, "{1} goes to {2}"},
    {"TFTP: Transfer finished successfully", status::row_transfer, "a download is complete"},
    {"TFTP: File %s not found", status::row_transfer, "{1} was asked for and not found"},
    {"TFTP: Retransmit timeout on %s", status::row_transfer, "{1} has fallen silent"},
};

constexpr char const* labels[status::row_count] = {
    "Hardware address", "Link",        "Port",  "Policy of switch", "VLAN in use", "IPv4",
    "  address",        "  lease",     "IPv6",  "  address",        "Domain",      "Name server",
    "DHCP time",        "DHCPv6 time", "Clock", "TFTP access",      "Transfer",    "Failure",
};

constexpr int failure_level = 2;
constexpr int values_max = 3;

// Names may hold what stands behind them in a record: its last occurrence counts.
int last_position(str const& text, str const& wanted) {
    int i = text.length() - wanted.length();
    while (i >= 0 && text.substr(i, wanted.length()) != wanted) {
        --i;
    }
    return i;
}

// Whether a record is that of a rule; `values` gets what stands for each %.
bool matches(str const& text, str const& record, str* values) {
    str rest = text;
    str pattern = record;
    for (int value = 0;; ++value) {
        int const percent = pattern.find("%");
        str const plain = percent < 0 ? pattern : pattern.leftstr(percent);
        if (rest.leftstr(plain.length()) != plain) {
            return false;
        }
        rest = rest.substr(plain.length());
        if (percent < 0 || value == values_max) {
            return rest.empty();
        }
        pattern = pattern.substr(percent + 2);
        int const next = pattern.find("%");
        int const end = last_position(rest, next < 0 ? pattern : pattern.leftstr(next));
        if (end < 0) {
            return false;
        }
        values[value] = rest.leftstr(end);
        rest = rest.substr(end);
    }
}

str filled_in(char const* shown, str const* values) {
    str text;
    for (char const* c = shown; *c; ++c) {
        if (*c == '{') {
            text += values[c[1] - '1'];
            c += 2;
        } else {
            text += *c;
        }
    }
    return text;
}

}  // namespace

void device_status::forget(row_type first, row_type last) {
    for (int i = first; i <= last; ++i) {
        rows[i] = entry();
    }
}

bool device_status::take(log_record const& record, str const& time) {
    bool changed = false;
    for (rule const& each : rules) {
        str values[values_max];
        if (!matches(record.text, each.record, values)) {
            continue;
        }
        if (each.row == row_hardware_address) {
            forget(row_hardware_address, row_transfer);  // The daemon has started.
        } else if (each.row == row_port) {
            forget(row_policy, row_vlan);  // as the agent does whenever it begins
        }
        rows[each.row] = {filled_in(each.shown, values), time};
        if (each.row == row_vlan) {
            rows[row_vlan].text += rows[row_policy].text.empty() ? ", no policy of a switch known"
                                                                 : ", as the switch says";
        }
        if (each.row == row_ipv4 && values[1] == "REBINDING") {
            rows[row_ipv4_address] = {"taken off", time};
        }
        changed = true;
    }
    if (record.level <= failure_level && record.text != rows[row_failure].text) {
        earlier_failures[1] = earlier_failures[0];
        earlier_failures[0] = rows[row_failure];
        rows[row_failure] = {record.text, time};
        changed = true;
    }
    return changed;
}

str device_status::text() const {
    str screen;
    auto const add = [&](char const* label, entry const& each) {
        screen += utils::padding(label, 18, ' ') + utils::padding(each.since, 10, ' ');
        screen += each.text.empty() ? str("-") : printable(each.text);
        screen += "\n";
    };
    for (int i = 0; i < row_count; ++i) {
        add(labels[i], rows[i]);
    }
    for (entry const& each : earlier_failures) {
        if (!each.text.empty()) {
            add("  before it", each);
        }
    }
    return screen;
}
