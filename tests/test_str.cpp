#include "sim/sim.h"

#include "core/log.h"

#include <cerrno>
#include <climits>

using namespace sim;

namespace {

class str_test : public sim::test {};

str bin(char const* digits) {
    return to_str(hex(digits));
}

}  // namespace

TEST_F(str_test, bytes_are_copied_only_when_one_of_several_users_writes) {
    str original("0123456789abcdefghij");  // in a block of 48
    str writer = original;
    str const view = original.substr(2, 3);
    EXPECT_EQ(view.cbuffer(), original.cbuffer() + 2);
    writer += 'X';
    EXPECT_EQ(original + writer, "0123456789abcdefghij0123456789abcdefghijX");
    writer.set_character(-1, 'Y');
    writer.set_character(0, 'Y');
    writer.set_character(22, 'Z');
    EXPECT_EQ(of(writer), bytes("Y123456789abcdefghijX\0Z", 23));
    unsigned char const* const place = writer.cbuffer();
    writer += "in place";
    EXPECT_EQ(writer.cbuffer(), place);
    original.buffer()[2] = '?';
    EXPECT_EQ(view, "234");
    writer += writer.substr(0, 2);  // from the block that is about to be left
    writer = writer.substr(29);
    EXPECT_EQ(writer + writer, "ceY1ceY1");
}

TEST_F(str_test, parts_are_clamped_to_the_value) {
    str const text("abcdef");
    EXPECT_EQ(text.substr(-2, 5) + text.substr(4, INT_MAX) + text.substr(-3), "abcefabcdef");
    for (int const pos : {-2, 6, 10, INT_MIN}) {
        EXPECT_EQ(text.substr(pos, 2) + text.substr(3, pos < 0 ? pos : 0), "") << pos;
    }
    EXPECT_EQ(text.rightstr(2) + text.rightstr(10) + text.leftstr(1) + text.substr(7), "efabcdefa");
    EXPECT_EQ(text[-1] + text[6] + str()[0], 0);
}

TEST_F(str_test, values_without_bytes_have_no_block_and_terminators_lie_outside) {
    for (str each : {str(), str(""), str(static_cast<char const*>(nullptr)), str('x', 0)}) {
        EXPECT_EQ(each.capacity(), 0);
        EXPECT_STREQ(each.c_str(), "");
    }
    str const whole('a', 16);  // fills its block
    str full = whole;
    str part = whole.leftstr(2);
    EXPECT_EQ(std::string(full.c_str()) + part.c_str(), "aaaaaaaaaaaaaaaaaa");
    EXPECT_EQ(whole, full);
}

TEST_F(str_test, short_views_of_a_released_long_value_move_to_a_smaller_block) {
    for (auto const& [further_views, pinned, capacity] :
         table<size_t, bool, int>{{16, false, 48}, {17, false, 2032}, {0, true, 2032}}) {
        str source('a', 2000);
        source += "tail of some twenty bytes";
        str const view = source.rightstr(25);
        std::vector<str> const others(further_views, view);
        if (pinned) {
            (void)view.cbuffer();
        }
        source.clear();
        EXPECT_EQ(view.capacity(), capacity);
        EXPECT_EQ(others.empty() ? view : others.back(), "tail of some twenty bytes");
    }
}

TEST_F(str_test, the_pool_keeps_blocks_of_its_classes_and_returns_larger_ones) {
    for (auto const& [size, capacity] : table<int, int>{
             {16, 16}, {17, 48}, {262128, 262128}, {262129, 262144}, {262145, 294912}}) {
        EXPECT_EQ(str('x', size).capacity(), capacity);
    }
    auto const use_all_classes = [] {
        for (int size = 1; size < 262128; size += 300) {
            str const value('x', size);
            int const* const numbers = new int[3];
            EXPECT_EQ(reinterpret_cast<uintptr_t>(numbers) % (2 * sizeof(void*)), 0U);
            delete[] numbers;
        }
    };
    use_all_classes();
    unsigned int const allocated = str::allocated_size;
    use_all_classes();
    EXPECT_EQ(str::allocated_size, allocated);
}

TEST_F(str_test, comparison_is_by_unsigned_bytes) {
    for (auto const& [smaller, greater] :
         table<char const*, char const*>{{"6162", "616263"},
                                         {"", "00"},
                                         {"7f00", "80"},
                                         {"616263646566676800", "616263646566676880"}}) {
        str const a = bin(smaller);
        str const b = bin(greater);
        EXPECT_TRUE(a < b && b > a && !(b < a) && !(a > b) && a != b) << smaller;
    }
    EXPECT_FALSE(str() < str() || bin("6100") == "a" || bin("61") == "ab");
    EXPECT_TRUE(str("aBc{").icmp("AbC{") && !str("a{").icmp("a[") && !str("ab").icmp("abc"));
    EXPECT_EQ(str("aab").find("ab") + bin("610062").find(bin("0062")), 2);
    EXPECT_EQ(str().find("") + str("ab").find("abc") + str("a").find(""), -2);
}

TEST_F(str_test, fields_are_runs_between_runs_of_separators) {
    for (auto const& [text, n, separators, field, rest] :
         table<char const*, int, char const*, char const*, char const*>{
             {"  a   b c", 1, " ", "b", "b c"},
             {"  a   b c", 3, " ", "", ""},
             {"", 0, " ", "", ""},
             {"a\nb c", 0, " ", "a\nb", "a\nb c"}}) {
        EXPECT_EQ(str(text).get_field(n, separators), field) << text;
        EXPECT_EQ(str(text).get_rest(n, separators), rest) << text;
    }
    EXPECT_EQ(str("a:b\r\nc").get_field(1, ':') + str("\r\n:b").get_field(0, ':'), "b");
    EXPECT_EQ(str("a\xE9z").get_field(1, '\xE9'), "") << "a separator above 0x7F never matches";
}

TEST_F(str_test, lines_end_at_cr_lf_or_pairs_of_both) {
    for (auto const& [text, fold, n, first, last] :
         table<char const*, bool, int, int, int>{{"a\r\nb", true, 1, 3, 4},
                                                 {"a\r\n\r\nb", true, 2, 5, 6},
                                                 {"a\r\n b\r\nc", true, 1, 7, 8},
                                                 {"a\r\n b\r\nc", false, 1, 3, 5},
                                                 {"a\n\r b", true, 1, 3, 5}}) {
        EXPECT_EQ(str(text).first_letter_of_line(n, fold), first) << testing::PrintToString(text);
        EXPECT_EQ(str(text).last_letter_of_line(n, fold), last) << testing::PrintToString(text);
    }
    str rest("x\r\n y\r\n\r\nb\n\n");
    for (char const* line : {"x\r\n y", "", "b", "", ""}) {
        EXPECT_EQ(rest.get_first_line(), line);
    }
    EXPECT_EQ(str("a\nb").replace_line(2, "X", false), "X") << "beyond the last: replaces all";
}

TEST_F(str_test, stripping_case_and_bytewise_logic) {
    EXPECT_EQ(str(" \r\na b\t").strip(str::lws) + str("xxaxx").lstrip('x') + str("xx").strip('x'),
              "a baxx");
    EXPECT_EQ(str("AZ@[az`{\xC4").tolower() + str("AZ@[az`{").toupper(), "az@[az`{\xC4"
                                                                         "AZ@[AZ`{");
    EXPECT_EQ(bin("0f").l_or(bin("f001")) + bin("0f03").l_xor(bin("f0")), bin("ff00ff00"));
    EXPECT_EQ(bin("0f03").l_and(bin("0a")), bin("0a00"));
}

TEST_F(str_test, numbers_are_read_from_the_start_of_a_text) {
    for (auto const& [text, value, uvalue, is_number] :
         table<char const*, int, unsigned int, bool>{{" \t-12x", -12, 0, false},
                                                     {"+-7", -7, 0, false},
                                                     {" 42 ", 42, 42, true},
                                                     {"4294967297", 1, 1, true},
                                                     {"-2147483648", INT_MIN, 0, true}}) {
        EXPECT_EQ(str(text).value(), value) << text;
        EXPECT_EQ(str(text).uvalue(), uvalue) << text;
        EXPECT_EQ(str(text).is_number(), is_number) << text;
    }
}

TEST_F(str_test, numbers_and_formats_are_written_by_these_rules) {
    str const blob = bin("00ab10");
    for (auto const& [result, expected] : table<str, char const*>{
             {str(-7, 3) + str(0, 0) + str(123456, 2) + str(5, 12), "-0701234565"},
             {str(INT_MIN, 0) + str(-5, 11) + str(4294967295U, 0),
              "-2147483648-00000000054294967295"},
             {str::sprintf("%3d|%5d|%012d", -5, 42, 5), "-05|00042|5"},
             {str::sprintf("%12d", 5), "           5"},  // blanks only beyond 10
             {str::sprintf("%x|%x", 0x12345, 10U), "2345|000A"},
             {str::sprintf("%h%H%h", blob, blob, str::null), "00ab1000AB10"},
             {str::sprintf("100%% a%qb%5%cut%"), "100% ab%cut"},
             {str::sprintf("%c%S%u%9s", 0x141, "bc", 4294967295U, str("x")), "Abc4294967295x"},
             {str::sprintf("%d%s%S", str("no number"), 5), "0"},
             {str::hex_text(0xABCDE, 0) + str::hex_text(0xABCDE, 3), "ABCDECDE"}}) {
        EXPECT_EQ(result, expected);
    }
}

TEST_F(str_test, files_are_read_and_written_whole) {
    str const large('x', 600000);
    EXPECT_TRUE(large.write_file("a\\b\\c.txt"));
    EXPECT_EQ(take_journal(), (lines{"mkdir a", "mkdir a/b", "write a/b/c.txt"}));
    EXPECT_EQ(str::read_file("a/b\\c.txt"), large);
    EXPECT_TRUE(str().write_file("a/b/c.txt"));
    EXPECT_EQ(files["a/b/c.txt"].content, "");
    files["/proc/uptime"].content = bytes(5000, 'p');  // fstat tells 0
    EXPECT_EQ(str::read_file("/proc/uptime").length(), 5000);
    files["shrunk"] = {"short", file::regular, 10};
    EXPECT_EQ(str::read_file("shrunk"), "");
    EXPECT_EQ(take_log(), lines());
}

TEST_F(str_test, file_failures_are_logged_with_the_path) {
    files["f"].content = "old";
    fail("fstat", EIO);
    EXPECT_EQ(str::read_file("f") + str::read_file("f", true), "");
    repair();
    fail("write", ENOSPC, 1);  // the second piece
    EXPECT_FALSE(str('x', 262145).write_file("f"));
    EXPECT_EQ(files.count("f"), 0U) << "no half-written file stays";
    fail("open", EACCES);
    EXPECT_FALSE(str("x").write_file("\\nv\\f"));
    EXPECT_EQ(take_log(), (lines{"1 Could not fstat f",
                                 "1 Could not write f",  // The error number is not looked at.
                                 "1 Could not open /nv/f for writing"}));
}
