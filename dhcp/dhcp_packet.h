// One DHCPv4 message (RFC 2131, 2), options as in RFC 2132. Knows neither sockets nor states.
//   offset  size  field
//        0     1  op: 1 request, 2 reply
//        1     1  htype: 1 Ethernet
//        2     1  hlen: 6
//        3     1  hops
//        4     4  xid
//        8     2  secs
//       10     2  flags
//       12     4  ciaddr, client address
//       16     4  yiaddr, offered address
//       20     4  siaddr, next server
//       24     4  giaddr, relay agent
//       28    16  chaddr, client hardware address
//       44    64  sname, server name
//      108   128  file, boot file
//      236     4  magic cookie 63 82 53 63
//      240     -  options: code, length, value; 0 pads, 255 ends
#pragma once

#include "lib/option_list.h"

class dhcp_packet {
public:
    enum op_type { op_request = 1, op_reply = 2 };

    enum option_code {
        option_pad = 0,                 // RFC 2132, 3.1
        option_subnet_mask = 1,         // 3.3
        option_router = 3,              // 3.5
        option_dns_server = 6,          // 3.8
        option_host_name = 12,          // 3.14
        option_domain_name = 15,        // 3.17
        option_broadcast = 28,          // 5.3
        option_ntp_server = 42,         // 8.3
        option_vendor_info = 43,        // 8.4
        option_requested_address = 50,  // 9.1
        option_lease_time = 51,         // 9.2: seconds
        option_overload = 52,           // 9.3: 1 file, 2 sname, 3 both hold options
        option_message_type = 53,       // 9.6
        option_server_id = 54,          // 9.7
        option_request_list = 55,       // 9.8
        option_renewal_time = 58,       // 9.11: T1, seconds
        option_rebinding_time = 59,     // 9.12: T2, seconds
        option_vendor_class = 60,       // 9.13
        option_client_id = 61,          // 9.14
        option_tftp_server = 66,        // 9.4
        option_boot_file = 67,          // 9.5
        option_sip_servers = 120,       // RFC 3361
        option_vivso = 125,             // RFC 3925: vendor-identifying options
        option_vlan_id = 132,           // RFC 4578 sets 128 to 135 aside; phones read their
        option_vlan_priority = 133,     // VLAN from these two
        option_end = 255,               // RFC 2132, 3.2
    };

    enum message_type {  // RFC 2132, 9.6
        type_discover = 1,
        type_offer = 2,
        type_request = 3,
        type_decline = 4,
        type_ack = 5,
        type_nak = 6,
    };

    static constexpr int server_port = 67;  // RFC 2131, 4.1
    static constexpr int client_port = 68;

    static constexpr int op_offset = 0;
    static constexpr int xid_offset = 4;
    static constexpr int cookie_offset = 236;
    static constexpr int options_offset = 240;
    static constexpr int parsed_max = 4096;  // bytes: what is behind holds no options
    static str const magic_cookie;

    dhcp_packet() = default;
    explicit dhcp_packet(str const& wire) { parse(wire); }

    // The wire form, padded to an even length. The flags are always sent as 0.
    str serialize() const;
    // Fills the fields; a message without the cookie leaves the packet cleared. Short messages
    // give shorter fields and options.
    void parse(str const& wire);
    // Appends the options. With `overload_allowed` the first option 52 adds those of the other
    // two fields in its place; without, each is skipped.
    void parse_options(str const& bytes, bool overload_allowed);
    // Whether a received message replies to a request with that transaction id.
    static bool is_reply_to(str const& xid, str const& wire);

    // The value of the `index`-th option of a code; empty when there are fewer.
    str get_option(int code, int index = 0) const { return options.get(code, index); }
    // The same for an option that holds one address: exactly 4 bytes, zero-filled, when present.
    str get_address_option(int code) const;
    void add_option(int code, str const& value) { options.append(code, value); }
    void clear();  // back to the defaults

    int op = op_request;
    int htype = 1;
    int hlen = 6;
    int hops = 0;
    str xid;
    str secs;
    str flags;
    str ciaddr;
    str yiaddr;
    str siaddr;
    str giaddr;
    str chaddr;
    str sname;
    str file;

    option_list options;

private:
    void parse_overloaded(int overload);
};
