// Entities, character references (XML 1.0, 4.1) and CDATA sections.
#include "lib/xml_text.h"

#include "lib/utils.h"
#include "lib/xml_tree.h"

bool cdata_starts(str const& text, int i) {
    if (text[i] != '<' || text[i + 1] != '!') {
        return false;
    }
    i += 2;
    while (text[i] == '[') {
        ++i;
    }
    if (text.substr(i, 5) != "CDATA") {
        return false;
    }
    i += 5;
    return i >= text.length() || text[i] == '[' || text[i] == '\r' || text[i] == '\n';
}

namespace {

struct entity {
    char const* name;
    unsigned char byte;
};

// The first five are also written.
constexpr entity entities[] = {
    {"apos", '\''}, {"quot", '"'},  {"amp", '&'}, {"lt", '<'},
    {"gt", '>'},    {"aquot", '"'},  // Intended: a second spelling of the double quote. Do not drop
                                     // it.
};
constexpr int written_entities = 5;

void append_utf8(str& out, unsigned int code_point) {
    auto const continuation = [&](int shift) {
        out += static_cast<unsigned char>(0x80 | (code_point >> shift & 0x3F));
    };
    if (code_point < 0x80) {
        out += static_cast<unsigned char>(code_point);
    } else if (code_point < 0x800) {
        out += static_cast<unsigned char>(0xC0 | code_point >> 6);
        continuation(0);
    } else if (code_point < 0x10000) {
        out += static_cast<unsigned char>(0xE0 | code_point >> 12);
        continuation(6);
        continuation(0);
    } else if (code_point <= 0x10FFFF) {
        out += static_cast<unsigned char>(0xF0 | code_point >> 18);
        continuation(12);
        continuation(6);
        continuation(0);
    }
}

// Appends what the entity stands for; false when the name is not known.
bool append_entity(str& out, str const& name) {
    if (name[0] == '#') {
        bool const is_hex = name.length() >= 3 && name[1] == 'x';
        append_utf8(out, is_hex ? utils::hex2dec(name.substr(2)) : name.substr(1).uvalue());
        return true;
    }
    for (entity const& each : entities) {
        if (name == each.name) {
            out += each.byte;
            return true;
        }
    }
    return false;
}

// Unescapes one text. `value` is what is read; it is replaced when a CDATA section is met.
class unescaper {
public:
    explicit unescaper(str const& text) : value(text), out(nullptr, text.length()) {
        out.set_length(0);
    }

    str run() {
        while (position < value.length()) {
            if (value[position] == '&') {
                read_entity();
            } else if (value[position] == '<' && cdata_starts(value, position)) {
                enter_cdata();
            } else {
                ++position;
            }
        }
        copy_plain();
        return out;
    }

private:
    void copy_plain() {
        out += value.substr(plain, position - plain);
        plain = position;
    }

    void read_entity() {
        find_semicolon();
        copy_plain();
        str const name = value.substr(position + 1, semicolon - position - 1);
        if (semicolon < value.length() && append_entity(out, name)) {
            position = plain = semicolon + 1;
        } else {
            ++position;
        }
    }

    // Looked for once, however many '&' stand before it.
    void find_semicolon() {
        if (semicolon <= position) {
            int const distance = value.substr(position).find(";");
            semicolon = distance < 0 ? value.length() : position + distance;
        }
    }

    // Intended: the section takes the place of the whole value, what came before it included, and
    // reading goes on behind the place reached. Do not keep the text around the section.
    void enter_cdata() {
        copy_plain();
        str const inside = value.substr(position + int(sizeof cdata_start) - 1);
        int const end = inside_cdata ? -1 : inside.find("]");
        value = end < 0 ? inside : inside.leftstr(end);
        inside_cdata = true;  // No ']' is left.
        semicolon = 0;
        int const reached = out.length() + 1;
        out.set_length(0);
        position = plain = reached < value.length() ? reached : value.length();
        out += value.leftstr(position);
    }

    str value;
    str out;
    int position = 0;
    int plain = 0;      // what is before was copied
    int semicolon = 0;  // the next one, when behind `position`
    bool inside_cdata = false;
};

}  // namespace

str xml_tree::txt2xml(str const& text) {
    str out;
    int plain = 0;
    for (int i = 0; i < text.length(); ++i) {
        for (entity const* each = entities; each < entities + written_entities; ++each) {
            if (text[i] == each->byte) {
                out += text.substr(plain, i - plain);
                out += '&';
                out += each->name;
                out += ';';
                plain = i + 1;
            }
        }
    }
    return plain == 0 ? text : out + text.substr(plain);
}

str xml_tree::xml2txt(str const& text) {
    bool const is_plain = !text.contains_char('&') && !text.contains_char('<');
    return is_plain ? text : unescaper(text).run();
}

str xml_tree::att2txt(str const& value) {
    unsigned char const quote = value[0];
    bool const quoted = value.length() >= 2 && (quote == '"' || quote == '\'') &&
                        value[value.length() - 1] == quote;
    if (!quoted) {
        return value;
    }
    str const inside = value.substr(1, value.length() - 2);
    return inside.contains_char('&') ? xml2txt(inside) : inside;
}

str xml_tree::txt2att(str const& text) {
    str quoted("\"");
    quoted += text.contains_char('"') ? txt2xml(text) : text;
    return quoted + "\"";
}

str xml_tree::cdata_content(str const& text) {
    int const start = text.find(cdata_start);
    if (start < 0) {
        return text;
    }
    str const inside = text.substr(start + int(sizeof cdata_start) - 1);
    int const end = inside.find(cdata_end);
    return end < 0 ? inside : inside.leftstr(end);
}
