// Text for a terminal.
#pragma once

#include "lib/str.h"

// The text, with each byte that is not printable ASCII as \x and two hex digits: texts carry bytes
// from the network, and none may reach the terminal as a control sequence.
str printable(str const& text);
