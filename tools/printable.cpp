#include "tools/printable.h"

#include "lib/str_format.h"

str printable(str const& text) {
    str out;
    for (int i = 0; i < text.length(); ++i) {
        if (text[i] >= ' ' && text[i] < 0x7F) {
            out += text[i];
        } else {
            out += str::sprintf("\\x%h", text.substr(i, 1));
        }
    }
    return out;
}
