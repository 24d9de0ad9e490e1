// Formatted text: str::sprintf, with these conversions.
//
//   %d  int, zero-padded to the width            %s  str, every byte of it
//   %u  unsigned int, width ignored              %S  zero-terminated string
//   %x  exactly four upper-case hex digits       %h  str as lower-case hex digits
//   %c  one byte, width ignored                  %H  str as upper-case hex digits
//   %%  one '%'; any other conversion yields nothing
//
// A missing or mistyped argument yields 0 or nothing, never a wild read.
#pragma once

#include "lib/str.h"

// One argument in a typed slot.
struct format_argument {
    enum kind_type { none, number, bytes, text };
    kind_type kind;
    union {
        int word;
        str const* value;
        char const* characters;
    };

    format_argument() : kind(none), word(0) {}
    format_argument(int i) : kind(number), word(i) {}
    format_argument(unsigned int u) : kind(number), word(static_cast<int>(u)) {}
    format_argument(str const& s) : kind(bytes), value(&s) {}
    format_argument(char const* s) : kind(text), characters(s) {}
};

// The arguments still to be formatted. Taking one of another kind yields 0 or nothing.
struct format_arguments {
    format_argument const* next;
    format_argument const* end;

    int take_number();
    str const& take_bytes();
    char const* take_text();

private:
    format_argument take(format_argument::kind_type kind);
};

template<class... arguments>
str str::sprintf(char const* format, arguments const&... values) {
    format_argument const slots[] = {values..., format_argument()};
    return str::format(format, {slots, slots + sizeof...(values)});
}
