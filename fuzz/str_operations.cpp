// Four str values beside four std::string that are treated alike. In a step's data the first byte
// chooses two values, the next two are numbers, the rest is a text. Kind and variant choose the
// operation.
#include "fuzz/fuzz.h"

#include "lib/str_format.h"

#include <algorithm>
#include <strings.h>

using namespace sim;

namespace {

struct twins {
    str value;
    bytes model;
};
twins all[4];

void set(twins& to, str const& value, bytes const& model) {
    to.value = value;
    to.model = bytes(model);
}

bytes repeated(int count, int byte) {
    return bytes(size_t(std::max(count, 0)), char(byte));
}

bytes piece(bytes const& text, int pos, int count) {
    int const size = std::max(pos < 0 ? count + pos : count, 0);
    return size_t(std::max(pos, 0)) < text.size()
               ? text.substr(size_t(std::max(pos, 0)), size_t(size))
               : "";
}

bytes stripped(bytes const& text, bytes const& set, bool left, bool right) {
    size_t const end = right ? text.find_last_not_of(set) + 1 : text.size();
    size_t const begin = left ? text.find_first_not_of(set) : 0;
    return begin < end ? text.substr(begin, end - begin) : "";
}

size_t field_start(bytes const& text, int n, bytes const& separators) {
    size_t i = text.find_first_not_of(separators);
    for (; n > 0 && i != bytes::npos; --n) {
        i = text.find_first_not_of(separators,
                                   std::min(text.find_first_of(separators, i), text.size()));
    }
    return std::min(i, text.size());
}

bytes field(bytes const& text, int n, bytes const& separators, bytes const& ends) {
    size_t const start = field_start(text, n, separators);
    return text.substr(start, text.find_first_of(ends, start) - start);
}

size_t line_start(bytes const& text, int n, bool fold) {
    size_t i = 0;
    while (n > 0 && i < text.size()) {
        bytes const two = text.substr(i, 2);
        bool const is_break = text[i] == '\r' || text[i] == '\n';
        i += is_break && (two == "\r\n" || two == "\n\r") ? 2 : 1;
        bool const is_folded = fold && two == "\r\n" && (text[i] == ' ' || text[i] == '\t');
        n -= is_break && !is_folded;
    }
    return i;
}

int sign(int value) {
    return (value > 0) - (value < 0);
}

// The results of operations that change nothing.
void look_at(twins const& a, twins const& b, int i, int j, bytes const& text) {
    EXPECT_EQ(a.value == b.value, a.model == b.model);
    EXPECT_EQ(a.value < b.value, a.model < b.model);
    EXPECT_EQ(sign(a.value.three_way(b.value)), sign(a.model.compare(b.model)));
    EXPECT_EQ(a.value == b.model.c_str(), a.model == b.model.c_str());
    EXPECT_EQ(a.value.icmp(b.value),
              a.model.size() == b.model.size() && !strcasecmp(a.model.c_str(), b.model.c_str()));
    EXPECT_EQ(a.value.find(b.value), a.model.empty() ? -1 : int(a.model.find(b.model)));
    EXPECT_EQ(a.value.contains_char(uint8_t(j)), a.model.find(char(j)) != bytes::npos);
    EXPECT_TRUE(a.value.toupper().tolower() == a.value.tolower());
    EXPECT_TRUE(a.value.strip(char(j)) == a.value.lstrip(char(j)).rstrip(char(j)));
    EXPECT_FALSE(a.value.slashes().contains_char('\\'));
    for (bool const fold : {false, true}) {
        size_t const next = line_start(a.model, std::max(i, 0) + 1, fold);
        EXPECT_EQ(a.value.first_letter_of_line(i, fold), int(line_start(a.model, i, fold)));
        EXPECT_EQ(i < 0 ? 0 : a.value.last_letter_of_line(i, fold),
                  i < 0 ? 0 : int(a.model.substr(0, next).find_last_not_of("\r\n") + 1));
    }
    str const record = a.value.set_record_content(to_str(text), b.value, ':', str::space);
    EXPECT_GE(record.length(), b.value.length());
    (void)record.get_record_content(to_str(text), ':', str::lws);
    int const wide = i << 20 | (j & 0xFF);
    EXPECT_EQ(str(wide, j).value(), wide);
    EXPECT_EQ(str(unsigned(wide), j).uvalue(), unsigned(wide));
    EXPECT_EQ(of(str::sprintf("<%s|%d|%S%%>", a.value, wide, "x")),
              "<" + a.model + "|" + std::to_string(wide) + "|x%>");
    EXPECT_EQ(of(str::sprintf("%c%u%x%q%12d|%H", 'c', 7U, 0xF0A1, 5, a.value)).substr(0, 19),
              "c7F0A1           5|");
    EXPECT_TRUE(str(wide, 0).is_number());
    (void)a.value.is_number();
}

void change_byte(twins& to, int i, int j) {
    to.value.set_character(i, uint8_t(j));
    if (i >= 0) {
        to.model.resize(std::max(to.model.size(), size_t(i) + 1));
        to.model[size_t(i)] = char(j);
    }
}

void xor_bytes(twins& to, int count, int j) {
    to.value.xor_bytes(uint8_t(j), count);
    to.model += repeated(count - int(to.model.size()), 0);
    for (int k = 0; k < count; ++k) {
        to.model[size_t(k)] = char(to.model[size_t(k)] ^ j);
    }
}

bytes lower(bytes text) {
    for (char& each : text) {
        each = each >= 'A' && each <= 'Z' ? char(each + 32) : each;
    }
    return text;
}

template<class function>
void bytewise(twins& to, str const& result, bytes const& other, function combine) {
    bytes model(std::max(to.model.size(), other.size()), '\0');
    for (size_t k = 0; k < std::min(to.model.size(), other.size()); ++k) {
        model[k] = char(combine(to.model[k], other[k]));
    }
    set(to, result, model);
}

void take_line(twins& to, int i) {
    size_t const next = line_start(to.model, 1, true);
    bytes const line = to.model.substr(0, to.model.substr(0, next).find_last_not_of("\r\n") + 1);
    EXPECT_EQ(of(i & 1 ? to.value.get_line(0) : to.value.get_first_line()), line);
    to.model = i & 1 ? to.model : to.model.substr(next);
}

// `text` takes the place of line n, if there is a text.
bytes without_line(bytes const& from, int n, bool fold, bytes const* text) {
    size_t const first = line_start(from, n, fold);
    bytes const before = first < from.size() ? from.substr(0, first) : "";
    return before + (text ? *text : "") + from.substr(line_start(from, n + 1, fold));
}

void operate(unsigned int operation, twins& to, twins const& from, int i, int j,
             bytes const& text) {
    str const operand = to_str(text);
    bytes const model = from.model;  // `from` may be `to`
    bytes const separator = j < 0 ? "" : bytes(1, char(j));
    switch (operation) {
    case 0: return set(to, operand, text);
    case 1: return set(to, from.value, model);
    case 2: return set(to, from.value.substr(i, j), piece(model, i, j));
    case 3:
        return set(to, str(uint8_t(j), i * (i > 120 ? 4096 : 8)),
                   repeated(i * (i > 120 ? 4096 : 8), j));
    case 4: return to.model += model, void(to.value += from.value);
    case 5: return to.model += text, to.value.append(operand.cbuffer(), operand.length());
    case 6: return to.model += char(i), void(to.value += char(i));
    case 7: return set(to, from.value + to.value, model + to.model);
    case 8:
        return set(to, from.value.rightstr(i),
                   i < 0 ? "" : piece(model, std::max(0, int(model.size()) - i), i));
    case 9: return set(to, from.value.lstrip(operand), stripped(model, text, true, false));
    case 10: return set(to, from.value.rstrip(operand), stripped(model, text, false, true));
    case 11: return set(to, from.value.strip(operand), stripped(model, text, true, true));
    case 12: return set(to, from.value.get_field(i, operand), field(model, i, text, text));
    case 13:
        return set(to, from.value.get_rest(i, operand), model.substr(field_start(model, i, text)));
    case 14:
        return set(to, from.value.get_field(i, char(j)),
                   field(model, i, separator, separator + "\r\n"));
    case 15:
        return set(to, from.value.get_rest(i, char(j)),
                   model.substr(field_start(model, i, separator)));
    case 16: return change_byte(to, i, j);
    case 17: return xor_bytes(to, i, j);
    case 18: return set(to, from.value.tolower(), lower(model));
    case 19:
        return bytewise(to, from.value.l_and(to.value), model, [](int a, int b) { return a & b; });
    case 20:
        return bytewise(to, from.value.l_or(to.value), model, [](int a, int b) { return a | b; });
    case 21:
        return bytewise(to, from.value.l_xor(to.value), model, [](int a, int b) { return a ^ b; });
    case 22: return take_line(to, i);
    case 23: EXPECT_STREQ(to.value.c_str(), to.model.c_str()); return;
    case 24:
        return set(to, from.value.remove_line(i, j & 1), without_line(model, i, j & 1, nullptr));
    case 25:
        return set(to, from.value.replace_line(i, operand, j & 1),
                   without_line(model, i, j & 1, &text));
    default: return look_at(to, from, i, j, text);
    }
}

}  // namespace

void fuzz::begin() {
    for (twins& each : all) {
        set(each, str::null, "");
    }
}

void fuzz::take(step const& each) {
    constexpr size_t length_max = 5000;
    unsigned int const chosen = number(each.data, 0);
    twins& to = all[chosen & 3];
    operate(each.kind * 4 + each.variant, to, all[chosen >> 2 & 3],
            static_cast<signed char>(number(each.data, 1)),
            static_cast<signed char>(number(each.data, 2)),
            each.data.substr(std::min<size_t>(each.data.size(), 3)));
    if (to.model.size() > length_max) {
        set(to, str::null, "");
    }
    for (twins const& one : all) {
        EXPECT_TRUE(of(one.value) == one.model)
            << to_hex(of(one.value)) << " is not " << to_hex(one.model);
    }
}
