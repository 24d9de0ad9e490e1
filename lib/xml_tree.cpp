#include "lib/xml_tree.h"

#include "lib/xml_text.h"

namespace {

bool is_white_space(unsigned char byte) {
    return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n';
}

bool is_name_byte(unsigned char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || byte == '-' || byte == '_' || byte == ':';
}

void skip_white_space(str const& text, int& i) {
    while (is_white_space(text[i])) {
        ++i;
    }
}

}  // namespace

xml_tree::xml_tree(str const& text, bool skip_prolog) {
    if (!skip_prolog) {
        parse(text.strip(str::lws));
        return;
    }
    str rest = text;
    while (!rest.empty() && name.empty()) {
        parse(get_segment(rest));
        rest = rest.strip(str::lws);
    }
}

xml_tree::xml_tree(str const& element_name, str const& text)
    : name(element_name), body(txt2xml(text)) {}

void xml_tree::parse(str const& text) {
    name.clear();
    attributes.clear();
    body.clear();
    int i = 0;
    skip_white_space(text, i);
    if (text[i] != '<') {
        return;
    }
    ++i;
    skip_white_space(text, i);
    if (text[i] == '?' || text[i] == '!') {
        return;  // a declaration, comment or CDATA section
    }
    int const name_start = i;
    while (is_name_byte(text[i])) {
        ++i;
    }
    name = text.substr(name_start, i - name_start);
    parse_start_tag(text, i);
    int body_end = text.length() - 1;
    while (body_end > i && text[body_end] != '<') {
        --body_end;
    }
    body = text.substr(i, body_end - i);
}

// Reads the attributes and leaves `i` at the first byte of the body. Only double quotes protect
// blanks and the end of the tag.
void xml_tree::parse_start_tag(str const& text, int& i) {
    bool inside_quotes = false;
    int attribute_start = i;
    auto const cut_attribute = [&] {
        str const attribute = text.substr(attribute_start, i - attribute_start).strip(str::lws);
        if (!attribute.empty()) {
            attributes.append(attribute);
        }
        attribute_start = i + 1;
    };
    for (; i < text.length(); ++i) {
        unsigned char const byte = text[i];
        if (byte == '"') {
            inside_quotes = !inside_quotes;
        } else if (!inside_quotes && (byte == '/' || byte == '>')) {
            break;
        } else if (!inside_quotes && is_white_space(byte)) {
            cut_attribute();
        }
    }
    cut_attribute();
    i += text[i] == '/' ? 2 : 1;
}

str xml_tree::get_segment(str& text) {
    int depth = 0;
    for (int i = 0; i < text.length(); ++i) {
        unsigned char const byte = text[i];
        unsigned char const previous = text[i - 1];
        if (previous == '<') {
            depth += byte == '/' ? -1 : 1;
            if (byte == '!' && cdata_starts(text, i - 1)) {
                int const closing = text.substr(i).find("]>");
                if (closing < 0) {
                    break;
                }
                i += closing + 1;
                --depth;
            }
        } else if (byte == '>' && (previous == '/' || previous == '?' || previous == '-')) {
            --depth;
        }
        if (text[i] == '>' && depth == 0) {
            str const segment = text.leftstr(i + 1);
            text = text.substr(i + 1);
            return segment;
        }
    }
    str const segment = text;
    text.clear();
    return segment;
}

void xml_tree::add_attribute(str const& attribute, str const& value) {
    attributes.append(attribute + "=" + txt2att(value));
}

void xml_tree::add_child(xml_tree const& child) {
    str text = child.serialize(false);
    if (!indent) {
        body += text;
    }
    while (indent && !text.empty()) {
        // Without folding: the lines of a grandchild begin with blanks and move in, too.
        int const next_line = text.first_letter_of_line(1, false);
        body += "\r\n  ";
        body += text.leftstr(next_line).rstrip(str::crlf);
        text = text.substr(next_line);
    }
    has_children = true;
}

template<class function>
void xml_tree::for_each_child(function use) const {
    str rest = body;
    while (!rest.empty()) {
        use(xml_tree(get_segment(rest), false));
    }
}

namespace {

str* output_for(std::initializer_list<xml_tree::child_output> wanted, str const& name) {
    for (xml_tree::child_output const& each : wanted) {
        if (each.name == name) {
            return &each.out;
        }
    }
    return nullptr;
}

}  // namespace

void xml_tree::get_children(std::initializer_list<child_output> wanted) const {
    for_each_child([&](xml_tree const& child) {
        if (str* const out = output_for(wanted, child.name)) {
            *out = child.body;
        }
    });
}

void xml_tree::get_children_content(std::initializer_list<child_output> wanted) const {
    for_each_child([&](xml_tree const& child) {
        if (str* const out = output_for(wanted, child.name)) {
            *out = child.get_content();
        }
    });
}

str xml_tree::get_attribute(str const& attribute) const {
    for (str_list::node const* each = attributes.head; each; each = each->next) {
        if (each->value.get_field(0, '=') == attribute) {
            return att2txt(each->value.get_rest(1, '='));
        }
    }
    return str::null;
}

str xml_tree::serialize(bool with_header) const {
    if (name.empty()) {
        return str::null;
    }
    str text;
    if (with_header) {
        text += "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n";
    }
    text += "<";
    text += name;
    for (str_list::node const* each = attributes.head; each; each = each->next) {
        text += " ";
        text += each->value;
    }
    if (body.empty()) {
        return text + "/>";
    }
    text += ">";
    text += body;
    if (indent && has_children) {
        text += str::crlf;
    }
    return text + "</" + name + ">";
}
