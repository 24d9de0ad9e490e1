// Number to text, and the formatted text of str::sprintf.
#include "lib/str_format.h"

namespace {

constexpr int decimal_max = 10;  // digits of the largest 32-bit number

// Writes `value` with at least `digits` digits and returns the count of bytes written. A width
// above decimal_max pads nothing.
int write_decimal(unsigned char* out, unsigned int value, int digits) {
    unsigned char reversed[decimal_max];
    int count = 0;
    do {
        reversed[count++] = static_cast<unsigned char>('0' + value % 10);
        value /= 10;
    } while (value);
    while (count < digits && digits <= decimal_max) {
        reversed[count++] = '0';
    }
    for (int i = 0; i < count; ++i) {
        out[i] = reversed[count - 1 - i];
    }
    return count;
}

int write_signed(unsigned char* out, int value, int digits) {
    if (value >= 0) {
        return write_decimal(out, static_cast<unsigned int>(value), digits);
    }
    out[0] = '-';
    return 1 + write_decimal(out + 1, 0 - static_cast<unsigned int>(value), digits - 1);
}

constexpr char upper_digits[] = "0123456789ABCDEF";
constexpr char lower_digits[] = "0123456789abcdef";

void write_hex_dump(unsigned char* out, unsigned char const* bytes, int count, char const* digits) {
    for (int i = 0; i < count; ++i) {
        out[2 * i] = static_cast<unsigned char>(digits[bytes[i] >> 4]);
        out[2 * i + 1] = static_cast<unsigned char>(digits[bytes[i] & 15]);
    }
}

}  // namespace

str::str(int value, int digits) : str() {
    unsigned char text[decimal_max + 1];
    fill(text, write_signed(text, value, digits));
}

str::str(unsigned int value, int digits) : str() {
    unsigned char text[decimal_max];
    fill(text, write_decimal(text, value, digits));
}

str str::hex_text(unsigned int value, int digits) {
    str text;
    for (int shift = 28; shift >= 0; shift -= 4) {
        unsigned int const digit = value >> shift & 15;
        if (digit || !text.empty() || shift == 0) {
            text += upper_digits[digit];
        }
    }
    return digits ? (str("00000000") + text).rightstr(digits) : text;
}

str str::decimal(long long value) {
    constexpr int unit = 1000000000;  // nine digits at a time
    int const rest = int(value % unit);
    if (value == rest) {
        return str(rest, 0);
    }
    return decimal(value / unit) + str(rest < 0 ? -rest : rest, 9);
}

format_argument format_arguments::take(format_argument::kind_type kind) {
    format_argument const each = next == end ? format_argument() : *next++;
    return each.kind == kind ? each : format_argument();
}

int format_arguments::take_number() {
    return take(format_argument::number).word;
}

str const& format_arguments::take_bytes() {
    format_argument const each = take(format_argument::bytes);
    return each.kind == format_argument::bytes ? *each.value : str::null;
}

char const* format_arguments::take_text() {
    format_argument const each = take(format_argument::text);
    return each.kind == format_argument::text && each.characters ? each.characters : "";
}

str str::format(char const* format, format_arguments arguments) {
    str text;
    if (!format) {
        return text;
    }
    char const* plain = format;  // bytes not yet copied
    for (char const* c = format; *c; ++c) {
        if (*c != '%') {
            continue;
        }
        text.append(reinterpret_cast<unsigned char const*>(plain), int(c - plain));
        ++c;
        bool const zero_flag = *c == '0';
        int width = 0;
        for (; *c >= '0' && *c <= '9'; ++c) {
            width = width * 10 + (*c - '0');
        }
        if (!*c) {
            return text;
        }
        text.convert(*c, zero_flag, width, arguments);
        plain = c + 1;
    }
    text += plain;
    return text;
}

void str::convert(char conversion, bool zero_flag, int width, format_arguments& arguments) {
    switch (conversion) {
    case 'd':
        append_number(arguments.take_number(), zero_flag, width);
        break;
    case 'u':
        *this += str(unsigned(arguments.take_number()), 0);
        break;
    case 'c':
        *this += static_cast<unsigned char>(arguments.take_number());
        break;
    case 's':
        *this += arguments.take_bytes();
        break;
    case 'S':
        *this += arguments.take_text();
        break;
    case 'x':
        *this += hex_text(unsigned(arguments.take_number()), 4);
        break;
    case 'h':
        append_hex_dump(arguments.take_bytes(), lower_digits);
        break;
    case 'H':
        append_hex_dump(arguments.take_bytes(), upper_digits);
        break;
    case '%':
        *this += '%';
        break;
    default:
        break;
    }
}

// Intended: a width pads with zeros even without the zero flag. Do not pad with blanks up to 10.
void str::append_number(int value, bool zero_flag, int width) {
    unsigned char text[decimal_max + 1];
    int const count = write_signed(text, value, width);
    for (int blanks = zero_flag ? 0 : width - count; blanks > 0; --blanks) {
        *this += ' ';
    }
    append(text, count);
}

void str::append_hex_dump(str const& bytes, char const* digits) {
    if (bytes.empty()) {
        return;
    }
    int const count = bytes.length();
    writable(2 * count);
    write_hex_dump(data() + length() - 2 * count, bytes.data(), count, digits);
}
