// Text to number.
#include "lib/str.h"

namespace {

bool is_blank(unsigned char byte) {
    return byte == ' ' || byte == '\t';
}

bool is_digit(unsigned char byte) {
    return byte >= '0' && byte <= '9';
}

int skip_blanks(str const& text, int i) {
    while (i < text.length() && is_blank(text[i])) {
        ++i;
    }
    return i;
}

unsigned int digits_at(str const& text, int i) {
    unsigned int sum = 0;
    for (; is_digit(text[i]); ++i) {
        sum = sum * 10 + (text[i] - unsigned('0'));
    }
    return sum;
}

}  // namespace

int str::value() const {
    int i = skip_blanks(*this, 0);
    i += (*this)[i] == '+';
    bool const negative = (*this)[i] == '-';
    unsigned int const sum = digits_at(*this, i + negative);
    return static_cast<int>(negative ? 0 - sum : sum);
}

unsigned int str::uvalue() const {
    int const i = skip_blanks(*this, 0);
    return digits_at(*this, i + ((*this)[i] == '+'));
}

bool str::is_number() const {
    int i = skip_blanks(*this, 0);
    i += (*this)[i] == '-';
    int const first_digit = i;
    while (is_digit((*this)[i])) {
        ++i;
    }
    return i > first_digit && skip_blanks(*this, i) == length();
}
