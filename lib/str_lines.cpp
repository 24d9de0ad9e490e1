// Cutting text into fields, lines and records.
#include "lib/str.h"

#include <climits>

namespace {

bool is_line_end(int byte) {
    return byte == '\r' || byte == '\n';
}

// Position of the first byte of field n, the length of the text when there are fewer fields.
template<class is_separator>
int field_start(str const& text, int n, is_separator separates) {
    int i = 0;
    for (;;) {
        while (i < text.length() && separates(text[i])) {
            ++i;
        }
        if (n-- <= 0) {
            return i;
        }
        while (i < text.length() && !separates(text[i])) {
            ++i;
        }
        if (i == text.length()) {
            return i;
        }
    }
}

template<class ends_field>
str field_at(str const& text, int start, ends_field ends) {
    int end = start;
    while (end < text.length() && !ends(text[end])) {
        ++end;
    }
    return text.substr(start, end - start);
}

}  // namespace

str str::get_field(int n, str const& separators) const {
    auto const separates = [&](unsigned char byte) { return separators.contains_char(byte); };
    return field_at(*this, field_start(*this, n, separates), separates);
}

str str::get_rest(int n, str const& separators) const {
    auto const separates = [&](unsigned char byte) { return separators.contains_char(byte); };
    return substr(field_start(*this, n, separates));
}

str str::get_field(int n, char separator) const {
    int const wanted = static_cast<signed char>(separator);
    auto const separates = [wanted](int byte) { return byte == wanted; };
    auto const ends = [wanted](int byte) { return byte == wanted || is_line_end(byte); };
    return field_at(*this, field_start(*this, n, separates), ends);
}

str str::get_rest(int n, char separator) const {
    int const wanted = static_cast<signed char>(separator);
    return substr(field_start(*this, n, [wanted](int byte) { return byte == wanted; }));
}

// A break is counted when the first byte of the next line is seen, so that a break at the end of
// the text leads to its length.
int str::first_letter_of_line(int n, bool fold) const {
    enum { in_line, after_cr, after_lf, after_crlf, after_lfcr } state = in_line;
    if (n < 1) {
        return 0;
    }
    for (int i = 0; i < length(); ++i) {
        unsigned char const byte = data()[i];
        bool line_ended = false;
        bool pair_complete = false;
        switch (state) {
        case in_line:
            break;
        case after_cr:
            pair_complete = byte == '\n';
            line_ended = !pair_complete;
            break;
        case after_lf:
            pair_complete = byte == '\r';
            line_ended = !pair_complete;
            break;
        case after_crlf:
            line_ended = !(fold && (byte == ' ' || byte == '\t'));
            break;
        case after_lfcr:
            line_ended = true;
            break;
        }
        if (line_ended && --n == 0) {
            return i;
        }
        if (pair_complete) {
            state = byte == '\n' ? after_crlf : after_lfcr;
        } else {
            state = byte == '\r' ? after_cr : byte == '\n' ? after_lf : in_line;
        }
    }
    return length();
}

int str::last_letter_of_line(int n, bool fold) const {
    int last = first_letter_of_line(n < INT_MAX ? n + 1 : n, fold);
    while (last > 0 && is_line_end(data()[last - 1])) {
        --last;
    }
    return last;
}

str str::get_line(int n) const {
    int const first = first_letter_of_line(n, true);
    return substr(first, last_letter_of_line(n, true) - first);
}

str str::get_first_line() {
    int const next_line = first_letter_of_line(1, true);
    bool const only_line = next_line == length();
    str const line = only_line ? rstrip(crlf) : get_line(0);
    *this = substr(next_line);
    return line;
}

// Intended: a line beyond the last removes the whole text. Do not return the text as it is.
str str::remove_line(int n, bool fold) const {
    int const first = first_letter_of_line(n, fold);
    str const rest = substr(first_letter_of_line(n < INT_MAX ? n + 1 : n, fold));
    return first > 0 && first < length() ? leftstr(first) + rest : rest;
}

str str::replace_line(int n, str const& text, bool fold) const {
    int const first = first_letter_of_line(n, fold);
    if (first == length()) {
        // Intended: a line beyond the last replaces the whole text. Do not keep what is before it.
        return text;
    }
    int const next_line = first_letter_of_line(n < INT_MAX ? n + 1 : n, fold);
    return leftstr(first) + text + substr(next_line);
}

namespace {

bool names_match(str const& field, str const& name, str const& alt_name) {
    return field.icmp(name) || (!alt_name.empty() && field.icmp(alt_name));
}

}  // namespace

str str::get_record(str const& name, str const& alt_name, char separator, str const& ws) const {
    str rest(*this);
    while (!rest.empty()) {
        str const line = rest.get_first_line();
        if (names_match(line.get_field(0, separator).strip(ws), name, alt_name)) {
            return line;
        }
    }
    return null;
}

str str::get_record(str const& name, char separator, str const& ws) const {
    return get_record(name, null, separator, ws);
}

str str::get_record_content(str const& name, str const& alt_name, char separator,
                            str const& ws) const {
    str const record = get_record(name, alt_name, separator, ws);
    int const wanted = static_cast<signed char>(separator);
    int const field = field_start(record, 0, [wanted](int byte) { return byte == wanted; });
    return record.substr(field + record.get_field(0, separator).length() + 1).strip(ws);
}

str str::get_record_content(str const& name, char separator, str const& ws) const {
    return get_record_content(name, null, separator, ws);
}

str str::set_record_content(str const& name, str const& alt_name, str const& content,
                            char separator, str const& spacer) const {
    str const tail = str(separator, 1) + spacer + content + crlf;
    str rest(*this);
    int pos = 0;
    while (!rest.empty()) {
        str const line = rest.get_first_line();
        if (line.empty()) {
            break;
        }
        str const field = line.get_field(0, separator);
        if (names_match(field, name, alt_name)) {
            return leftstr(pos) + field + tail + rest;
        }
        pos = length() - rest.length();
    }
    return leftstr(pos) + name + tail + substr(pos);
}

str str::set_record_content(str const& name, str const& content, char separator,
                            str const& spacer) const {
    return set_record_content(name, null, content, separator, spacer);
}
