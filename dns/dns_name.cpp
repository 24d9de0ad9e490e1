#include "dns/dns_name.h"

namespace {

constexpr int name_max = 255;      // bytes
constexpr int pointers_max = 127;  // a label of one byte takes two

bool is_pointer(unsigned char length) {
    return (length & 0xC0) == 0xC0;
}

// Intended: the low byte counts as signed, so that one of 0x80 or more leads 256 bytes lower. Do
// not make it unsigned.
int pointer_target(str const& message, int offset) {
    return (message[offset] & 0x3F) * 256 + static_cast<signed char>(message[offset + 1]);
}

}  // namespace

str name_reader::read(int& offset) const {
    str name;
    int i = offset;
    int pointers = 0;
    int part_start = 0;  // where in the name the part behind the last pointer begins
    skip(offset);
    while (message[i] != 0 && name.length() <= name_max) {
        if (name.length() > part_start) {
            name += '.';
        }
        if (is_pointer(message[i])) {
            if (++pointers > pointers_max) {
                break;
            }
            i = pointer_target(message, i);
            part_start = name.length();
        } else {
            name += message.substr(i + 1, message[i]);
            i += 1 + message[i];
        }
    }
    return name.tolower();
}

void name_reader::skip(int& offset) const {
    int const end = offset + name_max + 1;  // where `read` gives up: a dot less than lengths
    while (message[offset] != 0 && offset <= end) {
        if (is_pointer(message[offset])) {
            offset += 2;
            return;
        }
        offset += 1 + message[offset];
    }
    offset += message[offset] == 0;
}
