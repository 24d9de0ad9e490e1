// One DHCPv6 message (RFC 3315, 6). Knows neither sockets nor states.
//   offset  size  field
//        0     1  message type
//        1     3  transaction id
//        4     -  options: code (2 bytes), length (2 bytes), value; no padding, no end mark
#pragma once

#include "lib/str.h"

class dhcp6_packet {
public:
    enum message_type {  // RFC 3315, 5.3
        type_solicit = 1,
        type_advertise = 2,
        type_request = 3,
        type_renew = 5,
        type_rebind = 6,
        type_reply = 7,
        type_information_request = 11,
    };

    enum option_code {
        option_client_id = 1,           // RFC 3315, 22.2
        option_server_id = 2,           // 22.3
        option_ia_na = 3,               // 22.4: IAID, T1, T2 (4 bytes each, seconds), options
        option_ia_address = 5,          // 22.6: address (16 bytes), two lifetimes, options
        option_request = 6,             // 22.7: codes of 2 bytes
        option_elapsed_time = 8,        // 22.9
        option_status_code = 13,        // 22.13: code (2 bytes), text
        option_sip_domains = 21,        // RFC 3319
        option_sip_servers = 22,        // RFC 3319
        option_dns_servers = 23,        // RFC 3646, 3
        option_domain_list = 24,        // RFC 3646, 4
        option_sntp_servers = 31,       // RFC 4075
        option_posix_timezone = 41,     // RFC 4833
        option_timezone_database = 42,  // RFC 4833
    };

    static constexpr int server_port = 547;  // RFC 3315, 5.2
    static constexpr int client_port = 546;
    static char const server_address[];  // All_DHCP_Relay_Agents_and_Servers (5.1)

    // Reads options one by one, those inside an option's value included. An option that runs
    // past the end has the bytes that are there; less than a whole header ends the walk.
    class option_reader {
    public:
        explicit option_reader(str const& area) : options(area) {}
        bool next();

        int code = 0;  // of the option that `next` found
        str value;

    private:
        str options;
        int offset = 0;
    };

    dhcp6_packet() = default;
    explicit dhcp6_packet(str const& wire) { parse(wire); }

    str serialize() const { return header + options; }
    // A message shorter than the header leaves the packet empty.
    void parse(str const& wire);

    int type() const { return header[0]; }
    str transaction_id() const { return header.substr(1); }
    // The value of the `index`-th option of a code; empty when there are fewer.
    str get_option(int code, int index = 0) const;

    // Begins a message without options; three bytes of the id count.
    void set_type_id(int type, str const& id);
    void add_option(int code, str const& value);

    str header;   // 4 bytes, or empty
    str options;  // as on the wire
};
