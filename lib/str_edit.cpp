// Comparing, searching, stripping, case and bytewise logic.
#include "lib/str.h"

#include <strings.h>

bool str::compare_insensitiv(unsigned char const* bytes, int count) const {
    if (length() != count) {
        return false;
    }
    return count == 0 || strncasecmp(reinterpret_cast<char const*>(data()),
                                     reinterpret_cast<char const*>(bytes), size_t(count)) == 0;
}

bool str::cmp(char const* text) const {
    return compare_sensitiv(reinterpret_cast<unsigned char const*>(text), int(strlen(text)));
}

bool str::icmp(str const& other) const {
    return compare_insensitiv(other.data(), other.length());
}

bool str::icmp(char const* text) const {
    return compare_insensitiv(reinterpret_cast<unsigned char const*>(text), int(strlen(text)));
}

bool str::operator==(char const* text) const {
    return text ? cmp(text) : empty();
}

int str::find(str const& wanted) const {
    if (empty()) {
        return -1;
    }
    if (wanted.empty()) {
        return 0;
    }
    void const* const found =
        memmem(data(), size_t(length()), wanted.data(), size_t(wanted.length()));
    return found ? int(static_cast<unsigned char const*>(found) - data()) : -1;
}

bool str::contains_char(unsigned char byte) const {
    return !empty() && memchr(data(), byte, size_t(length()));
}

void str::set_character(int i, unsigned char byte) {
    if (i < 0) {
        return;
    }
    int const missing = i - length() + 1;
    if (missing > 0) {
        writable(missing);
        memset(data() + length() - missing, 0, size_t(missing));
    } else {
        writable(0);
    }
    data()[i] = byte;
}

str str::lstrip(str const& set) const {
    int first = 0;
    while (first < length() && set.contains_char(data()[first])) {
        ++first;
    }
    return substr(first);
}

str str::rstrip(str const& set) const {
    int last = length();
    while (last > 0 && set.contains_char(data()[last - 1])) {
        --last;
    }
    return leftstr(last);
}

str str::strip(str const& set) const {
    return lstrip(set).rstrip(set);
}

str str::strip(char byte) const {
    return strip(str(byte, 1));
}

str str::lstrip(char byte) const {
    return lstrip(str(byte, 1));
}

str str::rstrip(char byte) const {
    return rstrip(str(byte, 1));
}

str str::tolower() const {
    str lower(*this);
    for (int i = 0; i < length(); ++i) {
        unsigned char const byte = data()[i];
        if (byte >= 'A' && byte <= 'Z') {
            lower.set_character(i, static_cast<unsigned char>(byte + ('a' - 'A')));
        }
    }
    return lower;
}

str str::toupper() const {
    str upper(*this);
    for (int i = 0; i < length(); ++i) {
        unsigned char const byte = data()[i];
        if (byte >= 'a' && byte <= 'z') {
            upper.set_character(i, static_cast<unsigned char>(byte - ('a' - 'A')));
        }
    }
    return upper;
}

str str::slashes() const {
    str path(*this);
    for (int i = 0; i < length(); ++i) {
        if (data()[i] == '\\') {
            path.set_character(i, '/');
        }
    }
    return path;
}

template<class function>
str str::bytewise(str const& other, function combine) const {
    bool const longer = length() > other.length();
    int const common = longer ? other.length() : length();
    str result('\0', longer ? length() : other.length());
    for (int i = 0; i < common; ++i) {
        result.data()[i] = combine(data()[i], other.data()[i]);
    }
    return result;
}

str str::l_and(str const& other) const {
    return bytewise(other, [](unsigned char a, unsigned char b) { return uint8_t(a & b); });
}

str str::l_or(str const& other) const {
    return bytewise(other, [](unsigned char a, unsigned char b) { return uint8_t(a | b); });
}

str str::l_xor(str const& other) const {
    return bytewise(other, [](unsigned char a, unsigned char b) { return uint8_t(a ^ b); });
}

str str::l_not() const {
    return bytewise(*this, [](unsigned char a, unsigned char) { return uint8_t(a == 0); });
}

void str::xor_bytes(unsigned char byte, int count) {
    int const missing = count - length();
    if (missing > 0) {
        writable(missing);
        memset(data() + length() - missing, 0, size_t(missing));
    } else {
        writable(0);
    }
    for (int i = 0; i < count; ++i) {
        data()[i] ^= byte;
    }
}
