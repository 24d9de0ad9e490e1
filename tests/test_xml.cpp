#include "sim/sim.h"

#include "lib/str_format.h"
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
             {"<a b=\"c", "a [b=\"c] "},
             {"<\xC3\xA9>x</\xC3\xA9>", " [\xC3\xA9] x"}}) {
        EXPECT_EQ(summary_of(xml_tree(text, false)), summary) << text;
    }
    xml_tree const document("<?xml version=\"1.0\"?>\r\n<!-- c -->\r\n<s a=\"1\"><x>1</x></s>",
                            true);
    EXPECT_EQ(summary_of(document), "s [a=\"1\"] <x>1</x>");
}

TEST_F(xml_test, segments_are_cut_off_one_by_one) {
    for (lines const& segments :
         {lines{" <a/>", " <b c=\"d\"><e/></b>", "rest"},
          lines{"<?xml?>", "<!-- <x> --><a><b></a>"},  // only depth counts
          lines{"<a><![CDATA[</a>]>]]></a>", "<b/>"}, lines{"<a>1</a"}, lines{"a>", "b"}}) {
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
             {"<![CDATA[a]b]]>", "a"},
             {"<![CDATA[open", "open"},
             {"lost <![CDATA[in&lt;side and&lt;out]]> lost", "in&lt;side and<out"}}) {
        EXPECT_EQ(xml_tree::xml2txt(xml), text) << xml;
    }
    EXPECT_EQ(xml_tree::txt2xml("a'\"&<>b"), "a&apos;&quot;&amp;&lt;&gt;b");
    EXPECT_EQ(xml_tree::cdata_content("x<![CDATA[a]b]]>c]]>"), "a]b");
}

TEST_F(xml_test, attributes_are_quoted_and_unquoted) {
    xml_tree const element("<a b='2' c=\"x=&lt;\" d=raw b=\"9\" e='q\" B=\"3\"/>", false);
    for (auto const& [name, value] : table<char const*, char const*>{
             {"b", "2"}, {"c", "x=<"}, {"d", "raw"}, {"e", "'q\" B=\"3\"/>"}, {"B", ""}}) {
        EXPECT_EQ(element.get_attribute(name), value) << name;
    }
    EXPECT_EQ(xml_tree::txt2att("say \"hi\" & go"), "\"say &quot;hi&quot; &amp; go\"");
}

TEST_F(xml_test, children_are_written_indented) {
    xml_tree child("a", "1<2");
    child.add_attribute("t", "x");
    xml_tree parent("s", "");
    parent.indent = true;
    parent.add_child(child);
    EXPECT_EQ(parent.serialize(true), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<s>\r\n  "
                                      "<a t=\"x\">1&lt;2</a>\r\n</s>");
}

TEST_F(xml_test, a_hostile_half_megabyte_takes_no_quadratic_time) {
    for (char const* piece : {"<", "&", "&#", "<a>", "<a/>", "<![CDATA[", "<![CDATA[]>", "<a b=\"",
                              " a", "&lt;", "<!--"}) {
        std::string many;
        while (many.size() < 1 << 19) {
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
