// One XML element: its name, its attributes as written and its body as raw text. Children are not
// parsed up front: the caller cuts them off the body one by one (get_segment) and parses each into
// another xml_tree. Malformed text gives an element with an empty name or body, never an error;
// the cost is linear in the size of the text, however damaged it is.
#pragma once

#include "lib/str.h"
#include "lib/str_list.h"

#include <initializer_list>

class xml_tree {
public:
    // Parses one element. With `skip_prolog` the first element of a document, behind its
    // declaration and comments.
    xml_tree(str const& text, bool skip_prolog);
    // A new leaf; `text` is escaped.
    xml_tree(str const& element_name, str const& text);
    // Without this, a literal text would convert to bool rather than to str.
    xml_tree(str const& element_name, char const* text) : xml_tree(element_name, str(text)) {}

    void add_attribute(str const& attribute, str const& value);
    void add_child(xml_tree const& child);
    void parse(str const& text);

    // Cuts the first complete top-level item off `text`; all of it when none is complete.
    static str get_segment(str& text);

    str get_body() const { return body; }
    str get_content() const { return xml2txt(body); }
    str get_attribute(str const& attribute) const;  // unescaped; null when absent
    // Stores the body (or the unescaped content) of each child element in the output that goes
    // with its name; the last child of a name wins, and outputs without a child stay unchanged.
    struct child_output {
        str const& name;
        str& out;
    };
    void get_children(std::initializer_list<child_output> wanted) const;
    void get_children_content(std::initializer_list<child_output> wanted) const;
    str serialize(bool with_header) const;  // null when the name is empty

    static str txt2xml(str const& text);
    static str xml2txt(str const& text);
    static str att2txt(str const& value);
    static str txt2att(str const& text);
    // What is inside the first CDATA section; `text` itself when there is none.
    static str cdata_content(str const& text);

    str name;             // empty: no element
    str_list attributes;  // each as written: name, '=', quoted value
    str body;             // between the start tag and the last '<'
    bool indent = false;  // add_child puts children on lines of their own
    bool has_children = false;

private:
    void parse_start_tag(str const& text, int& i);
    // Calls `use` with each child element.
    template<class function>
    void for_each_child(function use) const;
};
