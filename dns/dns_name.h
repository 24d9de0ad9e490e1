// Encoded names (RFC 1035, 3.1 and 4.1.4): labels, each behind its length, up to an empty one or a
// pointer to the rest elsewhere in the message.
#pragma once

#include "lib/str.h"

// The name at `offset`, in lower case; `offset` moves behind it. Never fails: bytes past the end
// of the message read as zero and end the name, and so does a pointer that leads in a circle.
str read_name(str const& message, int& offset);
// Moves `offset` behind the name.
void skip_name(str const& message, int& offset);
