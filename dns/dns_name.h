// Encoded names (RFC 1035, 3.1 and 4.1.4): labels, each behind its length, up to an empty one or a
// pointer to the rest elsewhere in the message.
#pragma once

#include "lib/str.h"

// Reads the names of one message, which must outlive it. Never fails: bytes outside the message
// read as zero, which ends a name. A name ends with what it has so far once it is longer than 255
// bytes or has led through 127 pointers: no name has more bytes or labels (RFC 1035, 2.3.4).
class name_reader {
public:
    explicit name_reader(str const& m) : message(m) {}

    // The name at `offset`, in lower case; `offset` moves behind it.
    str read(int& offset) const;
    // Moves `offset` behind the name.
    void skip(int& offset) const;

private:
    str const& message;
};
