// The settings file, and XML as such. Kinds of a step:
//   0 the file   1 a phone setting in a good file   2 a document   3 a text   4 an element's parts
#include "fuzz/fuzz.h"

#include "config/config_file.h"
#include "config/setting_container.h"
#include "lib/xml_tree.h"

using namespace sim;

namespace {

// Every piece that is cut off is taken from the text, and nothing else is.
void cut(str const& text) {
    str rest = text;
    str joined;
    while (!rest.empty()) {
        str const piece = xml_tree::get_segment(rest);
        ASSERT_FALSE(piece.empty());
        joined += piece;
        xml_tree const element(piece, false);
        EXPECT_TRUE(element.name.empty() || piece.find(element.name) >= 0);
        (void)element.get_content();
    }
    EXPECT_TRUE(joined == text);
}

void read(xml_tree const& root) {
    str const names[] = {"a", "phone-settings"};
    str outputs[2];
    root.get_children({{names[0], outputs[0]}, {names[1], outputs[1]}});
    root.get_children_content({{names[0], outputs[0]}, {names[1], outputs[1]}});
    (void)root.get_attribute("idx");
    cut(root.get_body());
}

// What is escaped reads as it was.
void round_trip(str const& text) {
    EXPECT_TRUE(xml_tree::xml2txt(xml_tree::txt2xml(text)) == text);
    bool const is_ambiguous = text.contains_char('&') && !text.contains_char('"');
    EXPECT_TRUE(is_ambiguous || xml_tree::att2txt(xml_tree::txt2att(text)) == text);
    (void)xml_tree::xml2txt(text);
    (void)xml_tree::att2txt(text);
    (void)xml_tree::cdata_content(text);
}

void build(str const& text, unsigned int variant) {
    xml_tree parent("a", str::null);
    parent.indent = variant & 1;
    parent.add_attribute("idx", text.get_field(0, '='));
    xml_tree child("b", text.get_rest(1, '='));
    parent.add_child(child);
    child.indent = variant & 1;
    child.add_child(parent);
    parent.add_child(child);
    xml_tree const again(parent.serialize(variant & 2), true);
    EXPECT_TRUE(again.name == "a");
}

}  // namespace

void fuzz::begin() {
    settings.init();
}

void fuzz::take(step const& each) {
    str const text = to_str(each.data);
    switch (each.kind) {
    case 0:
        files["settings.xml"].content = each.data;
        reload_settings();
        break;
    case 1:
        process_config_file(str("<?xml?><settings><phone-settings>") + text +
                            str("</phone-settings></settings>"));
        break;
    case 2:
        cut(text);
        read(xml_tree(text, each.variant & 1));
        break;
    case 3: round_trip(text); break;
    default: build(text, each.variant); break;
    }
}
