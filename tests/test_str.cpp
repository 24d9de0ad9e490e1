#include "sim/sim.h"

#include "core/log.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <unistd.h>

using namespace sim;

namespace {

class str_test : public sim::test {};

str bin(char const* digits) {
    return to_str(hex(digits));
}

}  // namespace

// --- Value and storage ---

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
    str full('a', 16);  // fills its block
    EXPECT_STREQ(full.c_str(), "aaaaaaaaaaaaaaaa");
    str const whole("abc");
    str part = whole.leftstr(2);
    EXPECT_STREQ(part.c_str(), "ab");
    EXPECT_EQ(whole + full, "abcaaaaaaaaaaaaaaaa");
}

TEST_F(str_test, short_views_of_a_released_long_value_move_to_a_smaller_block) {
    for (auto const& [further_views, pinned, capacity] : table<size_t, bool, int>{
             {0, false, 48}, {16, false, 48}, {17, false, 2032}, {0, true, 2032}}) {
        str source('a', 2000);
        source += "tail of some twenty bytes";
        str const view = source.rightstr(25);
        std::vector<str> const others(further_views, view);
        if (pinned) {
            (void)view.cbuffer();
        }
        source.clear();
        EXPECT_EQ(view.capacity(), capacity);
        EXPECT_EQ(view, "tail of some twenty bytes");
        EXPECT_TRUE(others.empty() || others.back() == view);
    }
}

TEST_F(str_test, set_length_needs_an_own_block_with_room) {
    str text("abcdef");
    text.set_length(3);
    text.set_length(16);
    for (int const too_much : {17, -1}) {
        text.set_length(too_much);
    }
    str const sharing = text;
    text.set_length(1);
    EXPECT_EQ(text.length(), 16);
    EXPECT_EQ(text.leftstr(3), "abc");
    EXPECT_EQ(take_log(),
              (lines{"1 Cannot set length 17", "1 Cannot set length -1", "1 Cannot set length 1"}));
}

TEST_F(str_test, the_pool_keeps_blocks_of_its_classes_and_returns_larger_ones) {
    for (auto const& [size, capacity] : table<int, int>{{1, 16},
                                                        {16, 16},
                                                        {17, 48},
                                                        {1009, 2032},
                                                        {262128, 262128},
                                                        {262129, 262144},
                                                        {262145, 294912}}) {
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
    str const statistics = str::pool_statistics();
    EXPECT_EQ(statistics.get_field(0, "/").get_field(1, " "), "16");
    EXPECT_EQ(statistics.get_field(18, " "), "0/0");
    EXPECT_EQ(statistics.get_field(19, " "), str(str::large_blocks, 0));
}

// --- Comparing, searching, cutting ---

TEST_F(str_test, comparison_is_by_unsigned_bytes) {
    for (auto const& [smaller, greater] : table<char const*, char const*>{
             {"616263", "616264"}, {"6162", "616263"}, {"61", "ff"}, {"", "00"}, {"7f00", "80"}}) {
        str const a = bin(smaller);
        str const b = bin(greater);
        EXPECT_TRUE(a < b && b > a && !(b < a) && !(a > b) && a != b) << smaller;
    }
    EXPECT_FALSE(str() < str() || bin("6100") == "a" || bin("61") == "ab");
    EXPECT_TRUE(str() == static_cast<char const*>(nullptr));
    EXPECT_TRUE(str("aBc{").icmp("AbC{") && !str("a{").icmp("a[") && !str("ab").icmp("abc"));
    EXPECT_EQ(str("aab").find("ab") + bin("610062").find(bin("0062")), 2);
    EXPECT_EQ(str().find("") + str("ab").find("abc") + str("a").find(""), -2);
    EXPECT_TRUE(bin("00").contains_char(0) && !str("a").contains_char(0) &&
                !str().contains_char(0));
}

TEST_F(str_test, fields_are_runs_between_runs_of_separators) {
    for (auto const& [text, n, separators, field, rest] :
         table<char const*, int, char const*, char const*, char const*>{
             {"  a   b c", 1, " ", "b", "b c"},
             {"  a   b c", 3, " ", "", ""},
             {"a, b", -5, " ,", "a", "a, b"},
             {"", 0, " ", "", ""},
             {"abc", 0, "", "abc", "abc"},
             {"ab ", 1, " ", "", ""},
             {"a\nb c", 0, " ", "a\nb", "a\nb c"}}) {
        EXPECT_EQ(str(text).get_field(n, separators), field) << text;
        EXPECT_EQ(str(text).get_rest(n, separators), rest) << text;
    }
    EXPECT_EQ(str("a:b\r\nc").get_field(1, ':') + "|" + str("a:b\r\nc").get_rest(1, ':'),
              "b|b\r\nc");
    EXPECT_EQ(str("\r\n:b").get_field(0, ':'), "") << "a line end ends a field but is not skipped";
    EXPECT_EQ(str("a\xE9z").get_field(1, '\xE9'), "") << "a separator above 0x7F never matches";
    EXPECT_EQ(str("a\xE9z").get_field(1, "\xE9"), "z");
}

TEST_F(str_test, lines_end_at_cr_lf_or_pairs_of_both) {
    for (auto const& [text, fold, n, first, last] :
         table<char const*, bool, int, int, int>{{"a\r\nb", true, 1, 3, 4},
                                                 {"a\n\rb", true, 1, 3, 4},
                                                 {"a\r\rb", true, 1, 2, 1},
                                                 {"a\n\nb", true, 2, 3, 4},
                                                 {"a\r\n\r\nb", true, 2, 5, 6},
                                                 {"a\r\n b\r\nc", true, 1, 7, 8},
                                                 {"a\r\n b\r\nc", false, 1, 3, 5},
                                                 {"a\n b", true, 1, 2, 4},
                                                 {"a\n\r b", true, 1, 3, 5},
                                                 {"a\r\n", true, 1, 3, 1},
                                                 {"a\r\n", true, 0, 0, 1},
                                                 {"a\n\r\nb", false, 2, 4, 5},
                                                 {"", true, 5, 0, 0},
                                                 {"a\r\n\tb", true, 1, 5, 5}}) {
        EXPECT_EQ(str(text).first_letter_of_line(n, fold), first) << testing::PrintToString(text);
        EXPECT_EQ(str(text).last_letter_of_line(n, fold), last) << testing::PrintToString(text);
    }
    str rest("x\r\n y\r\n\r\nb\n\n");
    for (char const* line : {"x\r\n y", "", "b", "", ""}) {
        EXPECT_EQ(rest.get_line(0), line);
        EXPECT_EQ(rest.get_first_line(), line);
    }
    EXPECT_EQ(rest.first_letter_of_line(-3, true) + rest.length(), 0);
}

TEST_F(str_test, lines_and_records_can_be_replaced) {
    str const text("a\nb\nc");
    EXPECT_EQ(text.remove_line(0, false) + "|" + text.remove_line(1, false) + "|" +
                  text.remove_line(2, false),
              "b\nc|a\nc|a\nb\n");
    EXPECT_EQ(text.replace_line(1, "X\n", false), "a\nX\nc");
    EXPECT_EQ(text.replace_line(3, "X", false), "X") << "a line beyond the last replaces all";
    str const message("Via: x\r\nContent-Length:  42 \r\nl : 7\r\n\r\nbody: text");
    EXPECT_EQ(message.get_record_content("content-length", ':', str::lws), "42");
    EXPECT_EQ(message.get_record_content("none", "L", ':', str::lws), "7");
    EXPECT_EQ(message.get_record("BODY", ':', str::lws), "body: text");
    EXPECT_EQ(message.get_record_content("none", ':', str::lws), "");
    for (auto const& [before, name, after] : table<char const*, char const*, char const*>{
             {"A: 1\r\n\r\nbody", "B", "A: 1\r\nB: 2\r\n\r\nbody"},
             {"A: 1\r\n\r\nbody", "a", "A: 2\r\n\r\nbody"},
             {"x\r\nA:1\r\nB:1\r\n", "A", "x\r\nA: 2\r\nB:1\r\n"},
             {"", "b", "b: 2\r\n"}}) {
        EXPECT_EQ(str(before).set_record_content(name, "2", ':', " "), after);
    }
}

TEST_F(str_test, stripping_case_slashes_and_bytewise_logic) {
    EXPECT_EQ(str(" \r\na b\t").strip(str::lws) + str(" a ").strip(str::null), "a b a ");
    EXPECT_EQ(str("xxaxx").lstrip('x') + str("xxaxx").rstrip('x') + str("xx").strip('x'), "axxxxa");
    EXPECT_EQ(str("AZ@[az`{\xC4").tolower() + str("AZ@[az`{\xE4").toupper(), "az@[az`{\xC4"
                                                                             "AZ@[AZ`{\xE4");
    EXPECT_EQ(str("\\a/b\\").slashes(), "/a/b/");
    EXPECT_EQ(bin("0f").l_or(bin("f001")), bin("ff00"));
    EXPECT_EQ(bin("0f03").l_xor(bin("f0")), bin("ff00"));
    EXPECT_EQ(bin("0f03").l_and(bin("0a")), bin("0a00"));
    EXPECT_EQ(bin("000110").l_not(), bin("010000"));
    str pad = bin("36");
    pad.xor_bytes(0x5C, 3);
    EXPECT_EQ(pad, bin("6a5c5c"));
}

// --- Numbers ---

TEST_F(str_test, numbers_are_read_from_the_start_of_a_text) {
    for (auto const& [text, value, uvalue, is_number] :
         table<char const*, int, unsigned int, bool>{{" \t-12x", -12, 0, false},
                                                     {"", 0, 0, false},
                                                     {"+7", 7, 7, false},
                                                     {"+-7", -7, 0, false},
                                                     {"-+7", 0, 0, false},
                                                     {" 42 ", 42, 42, true},
                                                     {"-5", -5, 0, true},
                                                     {"-", 0, 0, false},
                                                     {"5-", 5, 5, false},
                                                     {"\n5", 0, 0, false},
                                                     {"- 5", 0, 0, false},
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
             {str(7, 3) + str(-7, 3) + str(0, 0), "007-070"},
             {str(123456, 2) + str(5, 12) + str(42, 10), "12345650000000042"},
             {str(INT_MIN, 0) + str(-5, 11) + str(4294967295U, 0),
              "-2147483648-00000000054294967295"},
             {str::sprintf("%02d:%02d", 5, 30), "05:30"},
             {str::sprintf("%3d|%5d|%012d", -5, 42, 5), "-05|00042|5"},
             {str::sprintf("%12d", 5), "           5"},  // blanks only beyond 10
             {str::sprintf("%x|%x", 0x12345, 10U), "2345|000A"},
             {str::sprintf("%h%H%h", blob, blob, str::null), "00ab1000AB10"},
             {str::sprintf("100%% a%qb%5%"), "100% ab%"},
             {str::sprintf("%c%S%u%9s", 0x141, "bc", 4294967295U, str("x")), "Abc4294967295x"},
             {str::sprintf("%d%s%S", str("no number"), 5) + str::sprintf(nullptr) +
                  str::sprintf("cut%"),
              "0cut"},
             {str::hex_text(0xABCDE, 0) + str::hex_text(0xABCDE, 3) + str::hex_text(0, 0) +
                  str::hex_text(1, 8),
              "ABCDECDE000000001"}}) {
        EXPECT_EQ(result, expected);
    }
    EXPECT_EQ(str::sprintf("%s", bin("610062")).length(), 3);
}

// --- Files ---

TEST_F(str_test, files_are_read_and_written_whole) {
    str const large('x', 600000);
    EXPECT_TRUE(large.write_file("a\\b\\c.txt"));
    EXPECT_EQ(take_journal(), (lines{"mkdir a", "mkdir a/b", "write a/b/c.txt"}));
    EXPECT_EQ(str::read_file("a/b\\c.txt"), large);
    EXPECT_EQ(str::file_size("a/b/c.txt"), 600000);
    EXPECT_EQ(str::file_type("a/b/c.txt") + str::file_type("a"), "filedir");
    EXPECT_EQ(str::file_type("none") + str::file_type("") + str::read_file(""), "");
    EXPECT_TRUE(str().write_file("a/b/c.txt"));
    EXPECT_EQ(files["a/b/c.txt"].content, "");
    files["/proc/uptime"].content = bytes(5000, 'p');  // fstat tells 0
    EXPECT_EQ(str::read_file("/proc/uptime").length(), 5000);
    files["shrunk"] = {"short", file::regular, 10};
    EXPECT_EQ(str::read_file("shrunk"), "");
    str::rename_file("shrunk", "/nv/new/name");
    EXPECT_EQ(files["/nv/new/name"].content, "short");
    EXPECT_EQ(take_log(), lines());
}

TEST_F(str_test, file_failures_are_logged_with_the_path) {
    str::remove_file("none", true);
    str::remove_file("none", false);
    str::rename_file("none", "x");
    files["f"].content = "old";
    fail("fstat", EIO);
    EXPECT_EQ(str::read_file("f") + str::read_file("f", true), "");
    EXPECT_EQ(str::file_size("f"), 0);
    repair();
    fail("write", ENOSPC, 1);  // the second piece
    EXPECT_FALSE(str('x', 262145).write_file("f"));
    EXPECT_EQ(files.count("f"), 0U) << "no half-written file stays";
    fail("open", EACCES);
    EXPECT_FALSE(str("x").write_file("\\nv\\f"));
    EXPECT_EQ(take_log(), (lines{"1 Cannot remove file none", "1 Cannot rename file none to x",
                                 "1 Could not fstat f",
                                 "1 Could not write f",  // The error number is not looked at.
                                 "1 Could not open /nv/f for writing"}));
}

TEST_F(str_test, a_listing_names_each_entry_of_a_folder) {  // a real one
    if (sizeof(void*) == 4) {
        GTEST_SKIP() << "emulators may show a 32-bit readdir() offsets that it refuses";
    }
    char folder[] = "/tmp/unit_tests.XXXXXX";
    ASSERT_TRUE(mkdtemp(folder));
    str const path(folder);
    EXPECT_TRUE(str("12345").write_file(path + "/d/f"));
    EXPECT_EQ(str::list_directory(path, false), "d\r\n");
    EXPECT_EQ(str::list_directory(path, true).leftstr(6), "d dir ");
    EXPECT_EQ(str::list_directory(path + "/d/", true), "f file 5\r\n");
    str::remove_file(path + "/d/f", false);
    EXPECT_EQ(str::list_directory(path + "/d", true), "");
    rmdir((std::string(folder) + "/d").c_str());
    rmdir(folder);
    EXPECT_EQ(str::list_directory(path, true), str::null);
}
