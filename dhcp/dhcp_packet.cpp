#include "dhcp/dhcp_packet.h"

#include "lib/utils.h"

#include <initializer_list>

str const dhcp_packet::magic_cookie(99, 130, 83, 99);

namespace {

void append_field(str& wire, str const& field, int size) {
    wire += utils::padding(field, size, 0);
}

}  // namespace

str dhcp_packet::serialize() const {
    str wire;
    wire += utils::int2str(unsigned(op), 1);
    wire += utils::int2str(unsigned(htype), 1);
    wire += utils::int2str(unsigned(hlen), 1);
    wire += utils::int2str(unsigned(hops), 1);
    append_field(wire, xid, 4);
    append_field(wire, secs, 2);
    // Intended: the flags are sent as zero. Do not ask for broadcast replies.
    append_field(wire, str::null, 2);
    append_field(wire, ciaddr, 4);
    append_field(wire, yiaddr, 4);
    append_field(wire, siaddr, 4);
    append_field(wire, giaddr, 4);
    append_field(wire, chaddr, 16);
    append_field(wire, sname, 64);
    append_field(wire, file, 128);
    wire += magic_cookie;
    for (option_list::node const* each = options.head; each; each = each->next) {
        wire += utils::int2str(unsigned(each->code), 1);
        wire += utils::int2str(unsigned(each->value.length()), 1);
        wire += each->value;
    }
    wire += utils::int2str(option_end, 1);
    if (wire.length() % 2) {
        wire += '\0';
    }
    return wire;
}

bool dhcp_packet::is_reply_to(str const& xid, str const& wire) {
    return wire[op_offset] == op_reply && wire.substr(xid_offset, 4) == xid;
}

void dhcp_packet::parse(str const& wire) {
    clear();
    if (wire.substr(cookie_offset, 4) != magic_cookie) {
        return;
    }
    op = wire[0];
    htype = wire[1];
    hlen = wire[2];
    hops = wire[3];
    xid = wire.substr(4, 4);
    secs = wire.substr(8, 2);
    flags = wire.substr(10, 2);
    ciaddr = wire.substr(12, 4);
    yiaddr = wire.substr(16, 4);
    siaddr = wire.substr(20, 4);
    giaddr = wire.substr(24, 4);
    chaddr = wire.substr(28, 16);
    sname = wire.substr(44, 64);
    file = wire.substr(108, 128);
    parse_options(wire.leftstr(parsed_max).substr(options_offset), true);
}

void dhcp_packet::parse_options(str const& bytes, bool overload_allowed) {
    bool is_overloaded = false;
    int i = 0;
    while (i < bytes.length() && bytes[i] != option_end) {
        int const code = bytes[i];
        if (code == option_pad) {
            i += 1;
        } else if (code == option_overload && !is_overloaded) {
            // Intended: the length byte is taken for 1. Do not skip by it.
            if (overload_allowed) {
                is_overloaded = true;  // A second one is an option like any other.
                parse_overloaded(bytes[i + 2]);
            }
            i += 3;
        } else {
            int const length = bytes[i + 1];
            add_option(code, bytes.substr(i + 2, length));
            i += 2 + length;
        }
    }
}

void dhcp_packet::parse_overloaded(int overload) {
    switch (overload) {
    case 1:
        parse_options(file, false);
        break;
    case 2:
        parse_options(sname, false);
        break;
    case 3:
        parse_options(sname + file, false);
        break;
    default:
        break;
    }
}

str dhcp_packet::get_address_option(int code) const {
    str const value = get_option(code);
    return value.empty() ? value : utils::padding(value, 4, 0);
}

void dhcp_packet::clear() {
    options.clear();
    op = op_request;
    htype = 1;
    hlen = 6;
    hops = 0;
    for (str* each :
         {&xid, &secs, &flags, &ciaddr, &yiaddr, &siaddr, &giaddr, &chaddr, &sname, &file}) {
        each->clear();
    }
}
