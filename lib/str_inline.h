// Bodies of str that must be inline: copying, cutting and appending a byte cost a call otherwise,
// and they are what packets are read and built with. The end of lib/str.h.
#pragma once

inline void str::cleanup() {
    if (!ref) {
        return;
    }
    if (next == this) {
        release_cstring(ref);
    } else {
        remove_from_list();
    }
    allzero();
}

inline void str::linkto(str const& other) {
    ref = other.ref;
    start = other.start;
    end = other.end;
    if (ref) {
        add_to_list(other);
    }
}

inline void str::add_to_list(str const& other) {
    prev = const_cast<str*>(&other);
    next = other.next;
    next->prev = this;
    other.next = this;
}

inline void str::remove_from_list() {
    str* const follower = next;
    ref->anchor = follower;
    prev->next = follower;
    follower->prev = prev;
    next = prev = this;
    follower->compress();
}

// Run on a member when another has left the ring: when only short views of a large block remain,
// they move together into a smaller one. (Classes double, so the next lower one is half.)
inline void str::compress() {
    int const smaller = (ref->capacity - header_size) / 2;
    bool const lowest_class = smaller < smallest_block;
    bool const large = ref->capacity > largest_block;
    if (!(ref->flags & flag_pinned) && !lowest_class && !large && length() <= smaller) {
        move_to_smaller_block(smaller);
    }
}

inline str& str::operator=(str const& other) {
    if (ref && ref == other.ref) {
        start = other.start;
        end = other.end;
    } else if (this != &other) {
        cleanup();
        linkto(other);
    }
    return *this;
}

inline bool str::has_room(int count) const {
    return ref && next == this && count <= ref->capacity - end;
}

inline void str::extend(int count) {
    end += count;
    unpoison(ref->data() + end - count, count);
}

inline void str::writable(int count) {
    if (has_room(count)) {
        extend(count);
    } else {
        relocate(count);
    }
}

inline str& str::operator+=(unsigned char byte) {
    writable(1);
    ref->data()[end - 1] = byte;
    return *this;
}

inline bool str::compare_sensitiv(unsigned char const* bytes, int count) const {
    return length() == count && (count == 0 || memcmp(data(), bytes, size_t(count)) == 0);
}
