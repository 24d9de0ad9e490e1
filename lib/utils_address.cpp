#include "lib/utils.h"

#include "core/device_paths.h"
#include "core/log.h"

#include <arpa/inet.h>

str const transport_type::c_udp("udp");
str const transport_type::c_tcp("tcp");
str const transport_type::c_tls("tls");

namespace {

str const dot(".");

bool in_brackets(str const& text) {
    return text.length() >= 3 && text[0] == '[' && text[text.length() - 1] == ']';
}

str compact_ipv4(str const& text) {
    str adr;
    for (int n = 0; n < 4; ++n) {
        adr += static_cast<unsigned char>(text.get_field(n, dot).value());
    }
    return adr;
}

unsigned int hex_digit(unsigned char byte) {
    return utils::hex2dec(str(byte, 1));
}

// Only the last four digits of a group count; a byte that is no hex digit counts as 0.
str compact_ipv6(str const& text) {
    str adr;
    unsigned int group = 0;
    int colons = 0;
    int gap = 0;
    for (int i = 0; i < text.length(); ++i) {
        if (text[i] != ':') {
            group = (group << 4 | hex_digit(text[i])) & 0xFFFF;
            continue;
        }
        adr += utils::int2str(group, 2);
        group = 0;
        if (text[i - 1] == ':') {
            gap = colons;
        }
        ++colons;
    }
    adr += utils::int2str(group, 2);
    int const missing = ip_port::ipv6_length - adr.length();
    if (missing <= 0) {
        return adr;
    }
    // Intended: without "::" the zeros go in behind the first group. Do not refuse such a text.
    int const zeros_at = 2 * gap + 2;
    return adr.leftstr(zeros_at) + str('\0', missing) + adr.substr(zeros_at);
}

}  // namespace

str utils::compact_ip(str const& text) {
    str inner = text;
    while (in_brackets(inner)) {
        inner = inner.substr(1, inner.length() - 2);
    }
    for (int i = 0; i < inner.length() && inner[i] != '.'; ++i) {
        if (inner[i] == ':') {
            return compact_ipv6(inner);
        }
    }
    return compact_ipv4(inner);
}

namespace {

constexpr int group_count = 8;

unsigned int group_at(str const& adr, int n) {
    return utils::number_at(adr, 2 * n, 2);
}

struct zero_run {
    int first = 0;
    int count = 0;
};

// Intended: a later run of zero groups replaces an earlier one only when it is more than twice as
// long. Do not take the longest (RFC 5952).
zero_run find_zero_run(str const& adr) {
    zero_run best;
    zero_run current;
    for (int n = 0; n < group_count; ++n) {
        if (group_at(adr, n) != 0) {
            current.count = 0;
            continue;
        }
        current.first = current.count ? current.first : n;
        ++current.count;
        bool const run_ends = n + 1 == group_count || group_at(adr, n + 1) != 0;
        if (run_ends && (best.count == 0 || current.count > 2 * best.count)) {
            best = current;
        }
    }
    return best;
}

void append_hex(str& text, unsigned int group) {
    for (int shift = 12; shift >= 0; shift -= 4) {
        if (group >> shift || shift == 0) {
            text += "0123456789abcdef"[group >> shift & 15];
        }
    }
}

void append_groups(str& text, str const& adr, int first, int end) {
    for (int n = first; n < end; ++n) {
        if (n > first) {
            text += ':';
        }
        append_hex(text, group_at(adr, n));
    }
}

str readable_ipv6(str const& adr) {
    zero_run const run = find_zero_run(adr);
    str text;
    if (run.count == 0) {
        append_groups(text, adr, 0, group_count);
        return text;
    }
    append_groups(text, adr, 0, run.first);
    text += "::";
    append_groups(text, adr, run.first + run.count, group_count);
    return text;
}

}  // namespace

str utils::readable_ip(str const& adr, bool brackets) {
    if (adr.length() == ip_port::ipv6_length) {
        return brackets ? str::sprintf("[%s]", readable_ipv6(adr)) : readable_ipv6(adr);
    }
    str const four = adr.length() == 4 ? adr : str::null;  // which reads as zeros
    return str::sprintf("%d.%d.%d.%d", four[0], four[1], four[2], four[3]);
}

str utils::readable_ip(ip_port const& endpoint) {
    return str::sprintf("%s:%d", readable_ip(endpoint.adr, true), endpoint.port);
}

str utils::readable_ip(int transport, ip_port const& endpoint) {
    str const& name = transport == transport_type::udp   ? transport_type::c_udp
                      : transport == transport_type::tcp ? transport_type::c_tcp
                      : transport == transport_type::tls ? transport_type::c_tls
                                                         : str::null;
    return str::sprintf("%s:%s", name, readable_ip(endpoint));
}

bool utils::need_dns(str const& text) {
    if (in_brackets(text)) {
        return false;
    }
    int colons = 0;
    bool ipv6_characters = true;
    for (int i = 0; i < text.length(); ++i) {
        unsigned char const c = text[i];
        colons += c == ':';
        ipv6_characters &=
            c == ':' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    }
    if (ipv6_characters && colons >= 2) {
        return false;
    }
    for (int n = 0; n < 4; ++n) {
        str const field = text.get_field(n, dot);
        if (!field.is_number() || field.value() > 255) {
            return true;
        }
    }
    return !text.get_field(4, dot).empty();
}

bool utils::conv4(ip_port const& endpoint, sockaddr_in& address) {
    address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(endpoint.port));
    address.sin_addr.s_addr = htonl(number_at(endpoint.adr, 0, 4));
    return true;
}

bool utils::conv6(ip_port const& endpoint, sockaddr_in6& address) {
    address = {};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(static_cast<uint16_t>(endpoint.port));
    if (endpoint.is_ipv6()) {
        memcpy(&address.sin6_addr, endpoint.adr.buffer(), ip_port::ipv6_length);
    }
    return true;
}

str utils::int2str(unsigned int value, int count) {
    str bytes;
    for (int shift = 8 * (count - 1); shift >= 0; shift -= 8) {
        bytes += static_cast<unsigned char>(shift < 32 ? value >> shift : 0);
    }
    return bytes;
}

unsigned int utils::number_at(str const& bytes, int offset, int size) {
    unsigned int number = 0;
    for (int i = offset; i < offset + size; ++i) {
        number = number << 8 | bytes[i];
    }
    return number;
}

int utils::str2int(str const& bytes) {
    return static_cast<int>(number_at(bytes, 0, bytes.length()));
}

unsigned int utils::str2ulong(str const& bytes, int offset) {
    return offset >= 0 && offset + 4 <= bytes.length() ? number_at(bytes, offset, 4) : 0;
}

str utils::get_mac_addr() {
    str const content = str::read_file(path_mac);
    str mac;
    for (int n = 0; n < 6; ++n) {
        mac += content.get_field(n, ':');
    }
    log_text(5, "Read MAC address %s", mac);
    bool const usable = !mac.empty() && mac.leftstr(6) != "000000";
    return usable ? mac.toupper() : str(default_mac);
}
