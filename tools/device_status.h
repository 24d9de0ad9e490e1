// What the log records say of the device: the newest of each thing that an installer asks for.
#pragma once

#include "tools/log_stream.h"

class device_status {
public:
    // Takes a record that arrived at that time of day ("05:28:36", any text). Whether it changed
    // anything.
    bool take(log_record const& record, str const& time);
    // One screen, a line a row, each ended by a newline.
    str text() const;

    enum row_type {
        row_hardware_address,
        row_link,
        row_port,
        row_policy,
        row_vlan,
        row_ipv4,
        row_ipv4_address,
        row_ipv4_lease,
        row_ipv6,
        row_ipv6_address,
        row_domain,
        row_name_server,
        row_dhcp_time_server,
        row_dhcp6_time_server,
        row_clock,
        row_upload_access,
        row_transfer,
        row_failure,
        row_count,
    };

private:
    struct entry {
        str text;  // empty: nothing known
        str since;
    };

    void forget(row_type first, row_type last);

    entry rows[row_count];
    entry earlier_failures[2];  // the newer one first
};
