#include "dns/dns_name.h"

namespace {

bool is_pointer(unsigned char length) {
    return (length & 0xC0) == 0xC0;
}

// Intended: the low byte counts as signed, so that one of 0x80 or more leads 256 bytes lower. Do
// not make it unsigned.
int pointer_target(str const& message, int offset) {
    return (message[offset] & 0x3F) * 256 + static_cast<signed char>(message[offset + 1]);
}

// Which pointer targets one name has led through.
class visited_targets {
public:
    // Whether this is the target's first visit.
    bool enter(int target) {
        // Most names have one pointer at most: the table is set up for the second.
        if (count++ == 0) {
            first = target;
            return true;
        }
        if (count == 2) {
            memset(seen, 0, sizeof seen);
            mark(first);
        }
        bool const is_new = !(seen[index(target) / 8] >> index(target) % 8 & 1);
        mark(target);
        return is_new;
    }

private:
    static constexpr int lowest_target = -128;
    static constexpr int highest_target = 0x3F * 256 + 127;

    static unsigned int index(int target) { return unsigned(target - lowest_target); }
    void mark(int target) {
        seen[index(target) / 8] |= static_cast<unsigned char>(1U << index(target) % 8);
    }

    int count = 0;
    int first = 0;
    unsigned char seen[(highest_target - lowest_target) / 8 + 1];
};

unsigned char lower(unsigned char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

// Collects a name: short ones on the stack, so that the result takes one block of just its size.
class name_builder {
public:
    void append_dot() { append_label(reinterpret_cast<unsigned char const*>("."), 1); }
    void append_label(unsigned char const* bytes, int count) {
        if (count > int(sizeof buffer) - used) {
            rest.append(buffer, used);
            used = 0;
        }
        for (int i = 0; i < count; ++i) {
            buffer[used + i] = lower(bytes[i]);
        }
        used += count;
    }
    int length() const { return rest.length() + used; }
    str result() {
        if (rest.empty()) {
            return str(buffer, used);
        }
        rest.append(buffer, used);
        return rest;
    }

private:
    unsigned char buffer[256];  // more than the longest label
    int used = 0;
    str rest;
};

}  // namespace

str name_reader::read(int& offset) {
    bool const is_only_pointer = is_pointer(message[offset]);
    int const start = is_only_pointer ? pointer_target(message, offset) : offset;
    for (known_name const& each : known) {
        if (is_only_pointer && each.offset == start) {
            offset += 2;
            return each.name;
        }
    }
    known_name& fresh = known[next_known];
    next_known = (next_known + 1) % known_max;
    fresh.name = decode(offset);
    fresh.offset = start;
    return fresh.name;
}

str name_reader::decode(int& offset) const {
    unsigned char const* const bytes = message.buffer();
    name_builder name;
    visited_targets visited;
    int i = offset;
    int part_start = 0;  // where in the name the part behind the last pointer begins
    bool jumped = false;
    for (;;) {
        int const length = message[i];
        bool const ends = length == 0;
        if (!ends && name.length() > part_start) {
            name.append_dot();
        }
        if (ends || is_pointer(message[i])) {
            if (!jumped) {
                offset = i + (ends ? 1 : 2);
                jumped = true;
            }
            if (ends || !visited.enter(pointer_target(message, i))) {
                return name.result();
            }
            i = pointer_target(message, i);
            part_start = name.length();
        } else {
            int const available = message.length() - (i + 1);
            name.append_label(bytes + i + 1, length < available ? length : available);
            i += 1 + length;
        }
    }
}

void name_reader::skip(int& offset) const {
    while (message[offset] != 0) {
        if (is_pointer(message[offset])) {
            offset += 2;
            return;
        }
        offset += 1 + message[offset];
    }
    ++offset;
}
