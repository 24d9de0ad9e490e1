#include "sim/sim.h"

#include "lib/str_format.h"
#include "lib/xml_tree.h"

using namespace sim;
using xml_test = sim::test;

TEST_F(xml_test, documents_are_cut_into_elements_of_name_attributes_and_raw_body) {
    for (str const row :
         {"<a/>|a 0 ", " \n< a-b_C:90 >x</ other>|a-b_C:90 0 x", "<a b=\"c|a 1 ",
          "<zZ@>x</>|zZ 1 x", "<a t=\"/>\"\tu>&amp;<![CDATA[<]]></a>|a 2 &amp;<![CDATA[<]]>",
          "<?xml ?>\r\n<!-- c -->\r\n<s a=\"1\"><x>1</x></s>|s 1 <x>1</x>"}) {
        xml_tree const tree(row.get_field(0, "|"), row[1] == '?');
        EXPECT_EQ(str::sprintf("%s %d %s", tree.name, tree.attributes.count, tree.body),
                  row.get_field(1, "|"));
    }
    for (str const row : {" <a/>| <b c=\"d\"><e/></b>|rest", "<?xml?>|<!-- <x> --><a><b></a>",
                          "<a><![CDATA[</a>]>]]></a>|<b/>", "<a>1</a", "<![CDATA[>"}) {
        str rest = row.get_field(0, "|") + row.get_field(1, "|") + row.get_field(2, "|");
        str cut = xml_tree::get_segment(rest);
        while (!rest.empty()) {
            cut += str("|") + xml_tree::get_segment(rest);
        }
        EXPECT_EQ(cut, row);
    }
}

TEST_F(xml_test, entities_cdata_and_quotes_become_text) {
    auto* const text_of = xml_tree::xml2txt;
    EXPECT_EQ(text_of("&#x41;&#66;&apos;&quot;&amp;&lt;&gt;&aquot;&x;&;&a"), "AB'\"&<>\"&x;&;&a");
    EXPECT_EQ(of(text_of("&#x7f;&#x80;&#x7FE;&#x800;&#xFFFE;&#x10001;&#x10FFFF;&#x110000;")),
              hex("7F C280 DFBE E0A080 EFBFBE F0908081 F48FBFBF"));
    EXPECT_EQ(text_of("<![CDATA[a]b]]>") + text_of("<![[CDATA\r[open"), "a\r[open");
    EXPECT_EQ(text_of("lost <![CDATA[in&lt;side and&lt;out]]> lost"), "in&lt;side and<out");
    EXPECT_EQ(xml_tree::cdata_content("x<![CDATA[a]b]]>c]]>"), "a]b");
    xml_tree const tag("<a b='2' c=\"x=&lt;\" d=raw b=\"9\" e='q\" f='/>", false);
    EXPECT_EQ(tag.get_attribute("b") + tag.get_attribute("c") + tag.get_attribute("d"), "2x=<raw");
    EXPECT_EQ(tag.get_attribute("e"), "'q\" f='/>");
}

TEST_F(xml_test, children_are_written_indented_and_read_by_name) {
    xml_tree child("a", "'\"&<>"), parent("s", ""), document("d", "");
    child.add_attribute("t", "\"<\"");
    parent.add_child(child);
    str out[] = {"", "", "stays"};
    parent.get_children({{"a", out[0]}, {"c", out[2]}});
    parent.get_children_content({{"c", out[2]}, {"a", out[1]}});
    EXPECT_EQ(out[0] + out[1] + out[2], "&apos;&quot;&amp;&lt;&gt;'\"&<>stays");
    parent.indent = document.indent = true;
    parent.add_child(xml_tree("e", ""));
    document.add_child(parent);
    EXPECT_EQ(document.serialize(true).substr(38),
              "\r\n<d>\r\n  <s><a t=\"&quot;&lt;&quot;\">&apos;&quot;&amp;&lt;&gt;</a>\r\n    "
              "<e/>\r\n  </s>\r\n</d>");
}
