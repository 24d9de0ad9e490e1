// Encoded names (RFC 1035, 3.1 and 4.1.4): labels, each behind its length, up to an empty one or a
// pointer to the rest elsewhere in the message.
#pragma once

#include "lib/str.h"

// Reads the names of one message, which must outlive it.
class name_reader {
public:
    explicit name_reader(str const& m) : message(m) {}

    // The name at `offset`, in lower case; `offset` moves behind it. Never fails: bytes past the
    // end of the message read as zero and end the name, and so does a pointer that leads in a
    // circle.
    str read(int& offset);
    // Moves `offset` behind the name.
    void skip(int& offset) const;

private:
    str decode(int& offset) const;

    // Most names of an answer are pointers to one that came before: the last ones read.
    struct known_name {
        int offset = -1;  // where it starts
        str name;
    };
    static constexpr int known_max = 3;

    str const& message;
    known_name known[known_max];
    int next_known = 0;
};
