#include "lib/str.h"

#include "core/log.h"

#include <climits>
#include <cstdlib>

str const str::null;
str const str::lws(" \t\r\n");
str const str::crlf("\r\n");
str const str::space(" ");
str const str::newline("\n");
str const str::t("true");
str const str::f("false");
str const str::x_00('\x00', 1);
str const str::x_01('\x01', 1);
str const str::x_FF('\xFF', 1);
str const str::c_file("file");
str const str::c_dir("dir");

str::str(char const* text) : str() {
    if (text) {
        fill(reinterpret_cast<unsigned char const*>(text), int(strlen(text)));
    }
}

str::str(unsigned char const* bytes, int count) : str() {
    fill(bytes, count);
}

str::str(unsigned char byte, int count) : str() {
    if (count > 0) {
        writable(count);
        memset(data(), byte, size_t(count));
    }
}

str::str(char byte, int count) : str(static_cast<unsigned char>(byte), count) {}

str::str(unsigned char a, unsigned char b) : str() {
    unsigned char const bytes[] = {a, b};
    fill(bytes, sizeof bytes);
}

str::str(unsigned char a, unsigned char b, unsigned char c) : str() {
    unsigned char const bytes[] = {a, b, c};
    fill(bytes, sizeof bytes);
}

str::str(unsigned char a, unsigned char b, unsigned char c, unsigned char d) : str() {
    unsigned char const bytes[] = {a, b, c, d};
    fill(bytes, sizeof bytes);
}

void str::fill(unsigned char const* bytes, int count) {
    if (count < 1) {
        return;
    }
    writable(count);
    if (bytes) {
        memcpy(data(), bytes, size_t(count));
    }
}

void str::relocate(int count) {
    int const old_length = length();
    if (count > INT_MAX - old_length) {
        abort();  // memory is exhausted
    }
    reference* const block = get_cstring(old_length + count);
    if (ref) {
        memcpy(block->data(), data(), size_t(old_length));
        cleanup();
    }
    ref = block;
    end = old_length + count;
}

// Makes room for `count` more bytes without changing the value.
void str::reserve(int count) {
    writable(count);
    end -= count;
}

void str::move_to_smaller_block(int smaller) {
    constexpr int examined_max = 16;
    int lowest = start;
    int highest = end;
    int examined = 0;
    for (str* member = next; member != this; member = member->next) {
        lowest = member->start < lowest ? member->start : lowest;
        highest = member->end > highest ? member->end : highest;
        if (++examined > examined_max || highest - lowest > smaller) {
            return;
        }
    }
    reference* const old_block = ref;
    reference* const block = get_cstring(highest - lowest);
    memcpy(block->data(), old_block->data() + lowest, size_t(highest - lowest));
    release_cstring(old_block);
    str* member = this;
    do {
        member->ref = block;
        member->start -= lowest;
        member->end -= lowest;
        member = member->next;
    } while (member != this);
}

int str::three_way(str const& other) const {
    int const common = length() < other.length() ? length() : other.length();
    int const order = common ? memcmp(data(), other.data(), size_t(common)) : 0;
    return order ? order : length() - other.length();
}

void str::append(unsigned char const* bytes, int count) {
    if (count > 0) {
        writable(count);
        memcpy(data() + length() - count, bytes, size_t(count));
    }
}

str& str::operator+=(str const& other) {
    if (other.empty()) {
        return *this;
    }
    if (ref == other.ref) {
        return *this = *this + other;  // Both lie in one block, which is about to be left.
    }
    append(other.data(), other.length());
    return *this;
}

str& str::operator+=(char const* text) {
    append(reinterpret_cast<unsigned char const*>(text), int(strlen(text)));
    return *this;
}

str str::operator+(str const& other) const {
    str sum;
    int const total = length() + other.length();
    if (total > 0) {
        sum.reserve(total);
        sum.append(data(), length());
        sum.append(other.data(), other.length());
    }
    return sum;
}

str str::substr(int pos, int count) const {
    if (pos < 0) {
        count = count > 0 ? count + pos : 0;
        pos = 0;
    }
    int const available = length() > pos ? length() - pos : 0;
    int const taken = count < available ? count : available;
    str part;
    if (taken > 0) {
        part.linkto(*this);
        part.start = start + pos;
        part.end = part.start + taken;
    }
    return part;
}

str str::substr(int pos) const {
    return substr(pos < 0 ? 0 : pos, INT_MAX);
}

str str::rightstr(int count) const {
    return length() > count ? substr(length() - count) : *this;
}

// The byte behind the value may belong to no value.
#if defined(__SANITIZE_ADDRESS__)
__attribute__((no_sanitize("address")))
#endif
bool str::byte_behind_is_zero() const {
    return end < ref->capacity && ref->data()[end] == 0;
}

char const* str::c_str() {
    if (empty()) {
        return "";
    }
    if (!byte_behind_is_zero()) {
        *this += '\0';
        --end;
    }
    unpoison(ref->data(), end + 1);
    ref->flags |= flag_pinned;
    return reinterpret_cast<char const*>(data());
}

unsigned char const* str::buffer() const {
    static unsigned char const nothing[1] = {};
    if (!ref) {
        return nothing;
    }
    ref->flags |= flag_pinned;
    return data();
}

unsigned char const* str::cbuffer() const {
    return buffer();
}

unsigned char* str::buffer() {
    writable(0);
    ref->flags |= flag_pinned;
    return data();
}

void str::set_length(int count) {
    if (ref && next == this && count >= 0 && count <= ref->capacity - start) {
        end = start;
        extend(count);
    } else {
        log_text(1, "Cannot set length %d", count);
    }
}
