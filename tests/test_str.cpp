#include "sim/sim.h"

#include "lib/str_format.h"

#include <cerrno>
#include <climits>

using namespace sim;
using str_test = sim::test;

TEST_F(str_test, writes_and_releases_leave_other_users_of_the_bytes_alone) {
    (void)(str('?', 16) + str());  // The blocks that are used next hold no zeros.
    str const original("abc");
    str changed = original, longer = original;
    changed.buffer()[1] = 'X';
    longer.set_character(5, 'X');
    EXPECT_EQ(of(original + changed + longer), bytes("abcaXcabc\0\0X", 12));
    // Views move to a smaller block that holds them all.
    for (auto const& [views, span, capacity] :
         table<size_t, int, int>{{16, 25, 48}, {17, 25, 2032}, {1, 1008, 1008}, {1, 1009, 2032}}) {
        str source = str('-', 300) + "<" + str('-', span - 2) + ">" + str('-', 1700 - span);
        std::vector<str> const first(views, source.substr(300, 2));
        str const last = source.substr(300 + span - 2, 2);
        source.clear();
        EXPECT_EQ(first[0] + last, "<-->") << span;
        EXPECT_EQ(last.capacity(), capacity) << views << ", " << span;
    }
}

TEST_F(str_test, text_is_stripped_and_cut_into_fields_lines_and_records) {
    EXPECT_EQ(str(" \r\na b\t").strip(str::lws) + str("xxaxx").lstrip('x'), "a baxx");
    EXPECT_EQ(str("AZ@[az`{").tolower() + str("AZ@[az`{").toupper(), "az@[az`{AZ@[AZ`{");
    EXPECT_EQ(str("a:b\r\nc").get_field(1, ':') + str(" a ;b c").get_rest(1, "; "), "bb c");
    for (str const row : {"a\r|b\r|c", "a\n|b\n|c", "a\n\r|b\n\r|c", "a\r\n|\r\n|b",
                          "a\r\n b\r\n\tc\r\n|d\r\n e|", "a\n\r| b\n| c"}) {
        str const before = row.get_field(0, "|"), line = row.get_field(1, "|");
        str const after = row.get_field(2, "|"), text = before + line + after;
        EXPECT_EQ(text.get_line(1), line.rstrip(str::crlf));
        EXPECT_EQ(text.remove_line(1, true), before + after);
        EXPECT_EQ(text.replace_line(1, "#", true), before + "#" + after);
    }
    EXPECT_EQ(str("a\n").replace_line(1, "#", true) + str("a").remove_line(INT_MAX, true), "#");
    str const text("Via: x\r\n y\r\nl : 42 \r\n\r\nC: d");
    EXPECT_EQ(text.get_record_content("x", "VIA", ':', str::lws), "x\r\n y");
    EXPECT_EQ(text.get_record("L", ':', " ") + text.get_record_content("c", ':', " "), "l : 42 d");
    // Unlike reading, setting takes a stored name with its blanks, and ends at an empty line.
    EXPECT_EQ(text.set_record_content("VIA", "#", ':', " "), "Via: #\r\nl : 42 \r\n\r\nC: d");
    EXPECT_EQ(text.set_record_content("l", "C", "#", ':', "").rightstr(11), "l:#\r\n\r\nC: d");
}

TEST_F(str_test, numbers_are_read_and_written_by_these_rules) {
    for (str const row : {" \t-12x=-12 0 0", "+-79=-79 0 0", " -42 \t=-42 0 1", "1:=1 1 0",
                          "-=0 0 0", "4294967297=1 1 1"}) {
        str const text = row.get_field(0, '=');
        str const read = str::sprintf("%d %u %d", text.value(), text.uvalue(), text.is_number());
        EXPECT_EQ(read, row.get_field(1, '='));
    }
    EXPECT_EQ(str(INT_MIN, 0) + str::decimal(LLONG_MIN), "-2147483648-9223372036854775808");
    EXPECT_EQ(str::sprintf("%5d|%012d|%12d|%x|%x|%c%S%u%19h%H%% a%qb%5", -42, 5, 6, 0x12345, 10U,
                           65, "bc", UINT_MAX, str("\xab"), str("\xab")),
              "-0042|5|           6|2345|000A|Abc4294967295abAB% ab");
    EXPECT_EQ(str::sprintf("%d%s%S%d", str("x"), 5, str("x")), "00");
}

TEST_F(str_test, files_are_read_and_written_whole) {
    str const large = str('x', 262144) + str('y', 262144) + "z";
    EXPECT_TRUE(large.write_file("a\\b\\c") && str::read_file("a/b\\c") == large);
    EXPECT_EQ(take_journal(), (lines{"mkdir a", "mkdir a/b", "write a/b/c", "read a/b/c"}));
    EXPECT_EQ(files["a"].mode * 01000 + files["a/b/c"].mode, 07777666U);
    EXPECT_EQ(str::file_type("a") + str::file_type("a/b/c") + str::file_type("none"), "dirfile");
    files["/proc/uptime"].content = bytes(5000, 'x');  // fstat tells 0
    EXPECT_EQ(str::read_file("/proc/uptime"), str('x', 5000));
    files["shrunk"] = {"short", file::regular, 10};
    EXPECT_EQ(str::read_file("shrunk") + str(str::file_size("shrunk"), 0), "10");
    fail("write", ENOSPC, 1);  // the second piece; the error number is not looked at
    EXPECT_FALSE(large.write_file("f") || str::rename_file("f", "a\\b/d"));
    fail("open", EACCES);
    EXPECT_FALSE(large.write_file("\\nv\\f") || large.replace_file("f"));
    EXPECT_EQ(take_log(), (lines{"1 Could not write f", "1 Cannot rename file f to a/b/d",
                                 "1 Could not open /nv/f for writing", "1 Could not replace f"}));
}
