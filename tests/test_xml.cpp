#include "sim/sim.h"

#include "lib/xml_tree.h"

#include <ctime>

using namespace sim;

namespace {

class xml_test : public sim::test {};

// "name [attribute] [attribute] body"
str summary_of(xml_tree const& element) {
    str text = element.name;
    for (auto* each = element.attributes.head; each; each = each->next) {
        text += str::sprintf(" [%s]", each->value);
    }
    return text + " " + element.body;
}

}  // namespace

TEST_F(xml_test, an_element_is_its_name_its_attributes_and_its_raw_body) {
    for (auto const& [text, summary] : table<char const*, char const*>{
             {"<a/>", "a "},
             {" \n< a-b_C:9 >x</ other>", "a-b_C:9 x"},
             {"<a t=\"a b\" u='a b'>x</a>", "a [t=\"a b\"] [u='a] [b'] x"},
             {"<a t=\"/>\"\tu>&amp;<![CDATA[<]]></a>", "a [t=\"/>\"] [u] &amp;<![CDATA[<]]>"},
             {"<a b/>", "a [b] "},
             {"<a>x</a> <b>y</b>", "a x</a> <b>y"},
             {"<a>x", "a "},
             {"<a b=\"c", "a [b=\"c] "},
             {"text", " "},
             {"<!-- c -->", " "},
             {"<\xC3\xA9>x</\xC3\xA9>", " [\xC3\xA9] x"}}) {
        EXPECT_EQ(summary_of(xml_tree(text, false)), summary) << text;
    }
    xml_tree const document(
        "<?xml version=\"1.0\"?>\r\n<!-- c -->\r\n<settings a=\"1\" b='2'><x>1</x></settings>",
        true);
    EXPECT_EQ(summary_of(document), "settings [a=\"1\"] [b='2'] <x>1</x>");
    EXPECT_EQ(summary_of(xml_tree("<?xml?> <!-- -->", true)), " ");
}

TEST_F(xml_test, segments_are_cut_off_one_by_one) {
    for (lines const& segments :
         {lines{" <a/>", " <b c=\"d\"><e/></b>", "rest"},
          lines{"<?xml?>", "<!-- <x> --><a><b></a>"},  // only depth counts
          lines{"<!-- c -->", "<a>1</a>"}, lines{"<a><![CDATA[</a>]>]]></a>", "<b/>"},
          lines{"<a><![CDATA[x</a>"}, lines{"<a>1</a"}, lines{"a>", "b"}}) {
        std::string whole;
        for (std::string const& segment : segments) {
            whole += segment;
        }
        str rest = to_str(whole);
        for (std::string const& segment : segments) {
            EXPECT_EQ(of(xml_tree::get_segment(rest)), segment) << whole;
        }
        EXPECT_EQ(rest, "") << whole;
    }
}

TEST_F(xml_test, entities_and_cdata_become_text) {
    for (auto const& [xml, text] : table<char const*, char const*>{
             {"&#x41;&#66;&#x20AC;&unknown;", "AB\xE2\x82\xAC&unknown;"},
             {"&apos;&quot;&amp;&lt;&gt;&aquot;", "'\"&<>\""},
             {"&#x7f;&#x80;&#x7FF;&#x800;&#xFFFF;", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
             {"&#x10000;&#x10FFFF;&#x110000;|", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF|"},
             {"&;&AMP;& &lt", "&;&AMP;& &lt"},
             {"&a&lt;", "&a<"},
             {"&amp;lt;", "&lt;"},
             {"a<b", "a<b"},
             {"<![CDATA[a<b]]>", "a<b"},
             {"<![CDATA[a]b]]>", "a"},
             {"<![CDATA[open", "open"},
             {"lost <![CDATA[in&lt;side and&lt;out]]> lost", "in&lt;side and<out"}}) {
        EXPECT_EQ(xml_tree::xml2txt(xml), text) << xml;
    }
    EXPECT_EQ(xml_tree::xml2txt("&#;&#x;&#0;").length(), 3);
    EXPECT_EQ(xml_tree::txt2xml("a'\"&<>b"), "a&apos;&quot;&amp;&lt;&gt;b");
    EXPECT_EQ(xml_tree::cdata_content("x<![CDATA[a]b]]>c]]>"), "a]b");
    EXPECT_EQ(xml_tree::cdata_content("x<![CDATA[a]]") + xml_tree::cdata_content("x"), "a]]x");
}

TEST_F(xml_test, attributes_are_quoted_and_unquoted) {
    xml_tree const element("<a b='2' c=\"x=&lt;\" d=raw b=\"9\" e='q\" B=\"3\"/>", false);
    for (auto const& [name, value] : table<char const*, char const*>{
             {"b", "2"}, {"c", "x=<"}, {"d", "raw"}, {"e", "'q\" B=\"3\"/>"}, {"B", ""}}) {
        EXPECT_EQ(element.get_attribute(name), value) << name;
    }
    EXPECT_EQ(xml_tree::att2txt("'\"'") + xml_tree::att2txt("\"") + xml_tree::att2txt("\"a'"),
              "\"\"\"a'");
    EXPECT_EQ(xml_tree::txt2att("a<b&"), "\"a<b&\"");
    EXPECT_EQ(xml_tree::txt2att("say \"hi\" & go"), "\"say &quot;hi&quot; &amp; go\"");
}

TEST_F(xml_test, children_are_indented_by_their_level_if_wanted) {
    xml_tree child("a", "1<2");
    child.add_attribute("t", "x");
    xml_tree middle("m", "");
    xml_tree parent("s", "");
    middle.indent = parent.indent = true;
    middle.add_child(child);
    parent.add_child(middle);
    EXPECT_EQ(parent.serialize(true), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<s>\r\n  "
                                      "<m>\r\n    <a t=\"x\">1&lt;2</a>\r\n  </m>\r\n</s>");
    xml_tree flat("s", "x");
    flat.add_child(xml_tree("a", ""));
    EXPECT_EQ(flat.serialize(false) + xml_tree("text", false).serialize(true), "<s>x<a/></s>");
}

TEST_F(xml_test, children_are_sorted_into_outputs_by_name) {
    xml_tree const parent("<p>text <a>1</a><b><a>no</a></b><A>no</A><a>2&lt;</a></p>", false);
    str a;
    str c("untouched");
    parent.get_children({{"a", a}, {"c", c}});
    EXPECT_EQ(a + c, "2&lt;untouched");
    parent.get_children_content({{"a", a}, {"a", c}});
    EXPECT_EQ(a + c, "2<untouched");
}

TEST_F(xml_test, a_hostile_megabyte_takes_no_quadratic_time) {
    for (char const* piece : {"<", "&", "&#", "<a>", "<a/>", "<![CDATA[", "<![CDATA[]>", "<a b=\"",
                              " a", "&lt;", "<!--"}) {
        std::string many;
        while (many.size() < 1 << 20) {
            many += piece;
        }
        std::clock_t const start = std::clock();
        xml_tree const document(to_str(many), true);
        str body = to_str("<x>" + many);
        while (!body.empty()) {
            (void)xml_tree(xml_tree::get_segment(body), false).get_content();
        }
        (void)xml_tree::xml2txt(to_str(many));
        (void)xml_tree::txt2xml(to_str(many));
        EXPECT_LT(std::clock() - start, 2 * CLOCKS_PER_SEC) << piece;  // far more, if quadratic
    }
}

TEST_F(xml_test, damaged_documents_neither_crash_nor_cost_memory) {
    char const* const good =
        "<?xml?><a b=\"c&amp;\" d='e'><f/>&#x41;<g>x</g><!-- h --><![CDATA[<i>]]></a>";
    expect_survives_damage(good, [](bytes const& damaged) {
        xml_tree const document(to_str(damaged), true);
        (void)document.get_attribute("b");
        (void)xml_tree(document.serialize(true), true).get_content();
    });
}
