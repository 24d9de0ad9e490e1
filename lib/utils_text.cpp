#include "lib/utils.h"

#include "core/device_paths.h"
#include "lib/str_format.h"

#include <cstdlib>

int utils::rand() {
    return ::rand();
}

str utils::generate_randstr(int count) {
    str bytes;
    for (int i = 0; i < count; ++i) {
        bytes += static_cast<unsigned char>(rand());
    }
    return bytes;
}

namespace {

// -1 for any other byte.
int hex_digit_value(unsigned char byte) {
    if (byte >= '0' && byte <= '9') {
        return byte - '0';
    }
    unsigned char const lower = byte | 0x20;
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

bool matches(unsigned char byte, char separator) {
    return byte == static_cast<signed char>(separator);
}

}  // namespace

unsigned int utils::hex2dec(str const& digits) {
    unsigned int sum = 0;
    for (int i = 0; i < digits.length(); ++i) {
        int const digit = hex_digit_value(digits[i]);
        if (digit < 0) {
            return 0;
        }
        sum = sum << 4 | unsigned(digit);
    }
    return sum;
}

str utils::hex2bin(str const& digits) {
    str bytes;
    for (int i = 0; i + 1 < digits.length(); i += 2) {
        int const high = hex_digit_value(digits[i]);
        int const low = hex_digit_value(digits[i + 1]);
        if (high < 0 || low < 0) {
            return str::null;
        }
        bytes += static_cast<unsigned char>(high << 4 | low);
    }
    return bytes;
}

str utils::bin2hex(str const& bytes, bool upper) {
    return str::sprintf(upper ? "%H" : "%h", bytes);
}

str utils::binbignum(unsigned long long value, int digits) {
    str bytes;
    for (int left = digits / 2; left > 0; --left) {
        int const shift = 8 * (left - 1);
        bytes += static_cast<unsigned char>(shift < 64 ? value >> shift : 0);
    }
    return bytes;
}

str utils::padding(str const& s, int count, unsigned char byte) {
    return s.length() >= count ? s.leftstr(count) : s + str(byte, count - s.length());
}

int utils::get_leading_whitespace(str const& s) {
    int i = 0;
    while (i < s.length() && (s[i] == 0 || str::lws.contains_char(s[i]))) {
        ++i;
    }
    return i;
}

int utils::get_body_pos(str const& message) {
    for (int i = get_leading_whitespace(message); i < message.length(); ++i) {
        if (message.substr(i, 4) == "\r\n\r\n") {
            return i + 4;
        }
        bool const bare_pair = message[i] == '\r' || message[i] == '\n';
        if (bare_pair && i + 1 < message.length() && message[i] == message[i + 1]) {
            return i + 2;
        }
    }
    return 0;
}

str utils::get_via_port(str const& hostport) {
    bool inside_brackets = false;
    for (int i = 0; i < hostport.length(); ++i) {
        if (hostport[i] == '[') {
            inside_brackets = true;
        } else if (hostport[i] == ']') {
            inside_brackets = false;
        } else if (hostport[i] == ':' && !inside_brackets) {
            return hostport.substr(i + 1).strip(str::lws);
        }
    }
    return str::null;
}

str utils::get_via_adr(str const& hostport) {
    int start = 0;
    bool bracket_seen = false;
    int end = 0;
    for (; end < hostport.length(); ++end) {
        if (hostport[end] == '[') {
            bracket_seen = true;
            start = end + 1;
        } else if (hostport[end] == ']' || (hostport[end] == ':' && !bracket_seen)) {
            return hostport.substr(start, end - start).strip(str::lws);
        }
    }
    return hostport.strip(str::lws);
}

str_list utils::split_list(str const& text, char separator) {
    str_list pieces;
    int start = 0;
    for (int i = 0; i <= text.length(); ++i) {
        if (i == text.length() || matches(text[i], separator)) {
            if (i > start) {
                pieces.append(text.substr(start, i - start));
            }
            start = i + 1;
        }
    }
    return pieces;
}

sset<str> split_set(str const& text, char separator) {
    sset<str> pieces;
    str_list const list = utils::split_list(text, separator);
    for (str_list::node const* each = list.head; each; each = each->next) {
        pieces.insert(each->value);
    }
    return pieces;
}

str uptime_text() {
    str const content = str::read_file(path_uptime, false);
    if (content.empty()) {
        return str::null;
    }
    unsigned int const seconds = content.get_field(0, ' ').uvalue();
    return str::sprintf("%u days, %u hours, %u minutes", seconds / 86400, seconds / 3600 % 24,
                        seconds / 60 % 60);
}
