// The text inside XML elements; see also the static members of xml_tree.
#pragma once

#include "lib/str.h"

inline constexpr char cdata_start[] = "<![CDATA[";
inline constexpr char cdata_end[] = "]]>";

// Whether a CDATA section starts at the '<' at position `i`.
bool cdata_starts(str const& text, int i);
