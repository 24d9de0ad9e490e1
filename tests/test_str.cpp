#include "sim/sim.h"

#include "lib/str_format.h"

#include <cerrno>
#include <climits>
#include <sys/stat.h>
#include <unistd.h>

using namespace sim;
using str_test = sim::test;

TEST_F(str_test, a_write_leaves_other_users_of_the_bytes_alone) {
    for (auto const& [write, result] : table<void (*)(str&), bytes>{
             {[](str& s) { s += 'X'; }, "abcX"},
             {[](str& s) { s.buffer()[1] = 'X'; }, "aXc"},
             {[](str& s) { s.set_character(5, 'X'); }, bytes("abc\0\0X", 6)},
             {[](str& s) { s.xor_bytes(3, 2); }, "bac"},
             {[](str& s) { s.xor_bytes('Q', 6); }, "032QQQ"}}) {
        (void)(str('?', 16) + str());  // The blocks that are used next hold no zeros.
        str const original("abc");
        str copy = original;
        write(copy);
        EXPECT_EQ(of(copy) + of(original), result + "abc");
    }
}

TEST_F(str_test, parts_are_views_clamped_to_the_value) {
    str const text("abcdef");
    EXPECT_EQ(text.substr(2, 3).cbuffer(), text.cbuffer() + 2);
    EXPECT_EQ(text.substr(-2, 5) + text.substr(4, INT_MAX) + text.substr(-3), "abcefabcdef");
    EXPECT_EQ(text.rightstr(2) + text.rightstr(10) + text.substr(5, 1), "efabcdeff");
    for (str each : {str(""), str(nullptr), str('x', 0), str() + str(), text.substr(6, 2),
                     text.substr(-2, 2), text.substr(INT_MIN, 2), text.substr(7), str() += ""}) {
        EXPECT_EQ(each.capacity() + *each.c_str() + each[0] + text[-1] + text[6], 0);
    }
    str full('a', 16);  // The terminator needs a larger block.
    EXPECT_EQ(std::string(full.leftstr(2).c_str()) + full.c_str(), "aaaaaaaaaaaaaaaaaa");
    full.set_length(49);
    full.set_length(48);
    EXPECT_EQ(std::to_string(full.length()) + take_log()[0], "481 Cannot set length 49");
}

TEST_F(str_test, views_of_a_released_value_move_to_a_smaller_block_that_holds_them_all) {
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

TEST_F(str_test, the_pool_carves_whole_chunks_of_its_classes_and_counts_larger_blocks) {
    unsigned int const allocated = str::allocated_size;
    str const large = str('x', 262129) + str(nullptr, 16);  // in units of 32768
    EXPECT_EQ(str::allocated_size - allocated, 262144U + unsigned(large.capacity()));
    unsigned int total = 0;
    str classes;
    for (str::block_class const& each : str::block_size) {
        EXPECT_EQ(each.carved % std::max(16256 / (each.size + 16), 1), 0) << "whole chunks";
        EXPECT_EQ((each.size + 16) & (each.size + 15), 0) << "with its header a power of two";
        total += unsigned(each.size * each.carved);
        classes += str::sprintf(" %d/%d", each.size, each.carved);
    }
    EXPECT_EQ(str::pool_statistics(), str::sprintf("%u:%s %d", total, classes, str::large_blocks));
}

TEST_F(str_test, comparison_search_and_fields) {
    for (auto const& [a, b] :
         table<str, str>{{"ab", "abc"}, {"", str::x_00}, {"\x7f!", "\x80"}, {"ab\x7f", "ab\x80"}}) {
        EXPECT_TRUE(a < b && b > a && !(b < a) && !(a > b) && a != b && b == b) << of(a);
    }
    EXPECT_TRUE(str("aBc{").icmp("AbC{") && !str("a{").icmp("a[") && !str("ab").icmp("abc"));
    EXPECT_TRUE(str().icmp(str()) && str("A").icmp(str("a")) && !str(str::x_00).cmp(""));
    EXPECT_EQ(str("aab").substr(1).find("ab") + str("xab").find("ab"), 1);
    EXPECT_EQ(str().find("") + str("ab").find("abc") + str("a").find(""), -2);
    str const text("  a ;b c");
    EXPECT_EQ(text.get_field(1, "; ") + text.get_field(-1, " ") + text.get_field(3, " "), "ba");
    EXPECT_EQ(text.get_rest(1, "; ") + text.get_rest(3, " ") + str().get_rest(0, " "), "b c");
    EXPECT_EQ(str("a:b\r\nc").get_field(1, ':') + str("\r\n:b").get_field(0, ':'), "b");
    EXPECT_EQ(str("a:b:c").get_rest(1, ':') + str("a\xE9z").get_field(1, '\xE9'), "b:c");
}

TEST_F(str_test, lines_end_at_cr_lf_or_pairs_of_both) {
    for (str const row :
         {"a\r|b\r|c", "a\n|b\n|c", "a\r\n|b\r\n|c", "a\n\r|b\n\r|c", "\r|\r|b", "\n|\n|b",
          "a\r\n|\r\n|b", "a\n\r|\n\r|b", "a\r\n b\r\n\tc\r\n|d\r\n e|", "a\n\r| b\n| c"}) {
        str const before = row.get_field(0, "|"), line = row.get_field(1, "|");
        str const after = row.get_field(2, "|"), text = before + line + after;
        EXPECT_EQ(text.get_line(1), line.rstrip(str::crlf));
        EXPECT_EQ(text.remove_line(1, true), before + after);
        EXPECT_EQ(text.replace_line(1, "#", true), before + "#" + after);
    }
    EXPECT_EQ(str("a\r\n b\nc").replace_line(1, "#", false) + str("a\n").get_line(0), "a\r\n#ca");
    EXPECT_EQ(str("a\n").replace_line(1, "#", true) + str("a").remove_line(INT_MAX, true), "#");
}

TEST_F(str_test, records_are_found_and_set_by_name_in_either_case) {
    str const text("Via: x\r\n y\r\nl : 42 \r\n\r\nC: d");
    EXPECT_EQ(text.get_record_content("x", "VIA", ':', str::lws), "x\r\n y");
    EXPECT_EQ(text.get_record("L", ':', " ") + text.get_record_content("c", ':', " "), "l : 42 d");
    EXPECT_EQ(str("=a=1").get_record_content("a", '=', "") + text.get_record("x", ':', " "), "1");
    // Unlike reading, setting takes a stored name with its blanks, and ends at an empty line.
    EXPECT_EQ(text.set_record_content("VIA", "#", ':', " "), "Via: #\r\nl : 42 \r\n\r\nC: d");
    EXPECT_EQ(text.set_record_content("l", "C", "#", ':', "").rightstr(20),
              "l : 42 \r\nl:#\r\n\r\nC: d");
    EXPECT_EQ(str("a=1\nb=2").set_record_content("c", "B", "3", '=', ""), "a=1\nb=3\r\n");
}

TEST_F(str_test, stripping_case_and_bytewise_logic) {
    EXPECT_EQ(str(" \r\na b\t").strip(str::lws) + str("xxaxx").lstrip('x'), "a baxx");
    EXPECT_EQ(str("xax").rstrip('x') + str("xx").strip('x') + str("a\\b\\").slashes(), "xaa/b/");
    EXPECT_EQ(str("AZ@[az`{").tolower() + str("AZ@[az`{").toupper(), "az@[az`{AZ@[AZ`{");
    EXPECT_EQ(of(str("\x0f").l_or("\xf0\x01") + str("\x0f\x03").l_xor("\xf1")), hex("ff00fe00"));
    EXPECT_EQ(of(str("\x0f\x03").l_and("\x0a") + (str("a") + str::x_00).l_not()), hex("0a000001"));
}

TEST_F(str_test, numbers_are_read_and_written_by_these_rules) {
    for (str const row : {" \t-12x=-12 0 0", "+-79=-79 0 0", "+8=8 8 0", " -42 \t=-42 0 1",
                          "/1=0 0 0", "1:=1 1 0", "-=0 0 0", "4294967297=1 1 1", " =0 0 0"}) {
        str const text = row.get_field(0, '=');
        str const read = str::sprintf("%d %u %d", text.value(), text.uvalue(), text.is_number());
        EXPECT_EQ(read, row.get_field(1, '='));
    }
    str const x("x\xab");
    EXPECT_EQ(str(-7, 3) + str(0, 0) + str(123456, 2) + str(5, 12) + str(7U, 3), "-0701234565007");
    EXPECT_EQ(str(INT_MIN, 0) + str(-5, 11) + str(UINT_MAX, 0), "-2147483648-00000000054294967295");
    EXPECT_EQ(str(7, 10) + str::decimal(-9) + str::decimal(999999999), "0000000007-9999999999");
    EXPECT_EQ(str::decimal(LLONG_MIN) + str::decimal(7000000000), "-92233720368547758087000000000");
    EXPECT_EQ(str::sprintf("%3d|%5d|%012d|%12d", -5, 42, 5, 6), "-05|00042|5|           6");
    EXPECT_EQ(str::sprintf("%x|%x|%h%H%h", 0x12345, 10U, x, x, str()), "2345|000A|78ab78AB");
    EXPECT_EQ(str::sprintf("%c%S%u%19h%% a%qb%5", 321, "bc", UINT_MAX, x), "Abc429496729578ab% ab");
    EXPECT_EQ(str::sprintf("%d%s%S%d", x, 5, x) + str::hex_text(0xFEDCBA98, 9), "000FEDCBA98");
    EXPECT_EQ(str::hex_text(0xABCDE, 3) + str::hex_text(0, 0), "CDE0");
}

TEST_F(str_test, files_are_read_and_written_whole) {
    str const large = str('x', 262144) + str('y', 262144) + "z";
    EXPECT_TRUE(large.write_file("a\\b\\c") && str::read_file("a/b\\c") == large);
    EXPECT_EQ(take_journal(), (lines{"mkdir a", "mkdir a/b", "write a/b/c", "read a/b/c"}));
    EXPECT_TRUE(files["a/b/c"].mode == 0666 && str().write_file("a/b/c"));
    files["/proc/uptime"].content = of(large.rightstr(5000));  // fstat tells 0
    EXPECT_EQ(str::read_file("/proc/uptime"), large.rightstr(5000));
    files["shrunk"] = {"short", file::regular, 10};
    EXPECT_EQ(str::read_file("shrunk") + str::read_file("none") + str::read_file(""), "");
    EXPECT_EQ(str::file_size("shrunk") + str::file_size("none") + str::file_size(""), 10);
    fail("fstat", EIO);
    EXPECT_EQ(str::read_file("shrunk") + str::read_file("shrunk", true), "");
    fail("write", ENOSPC, 1);  // the second piece; the error number is not looked at
    EXPECT_FALSE(large.write_file("f") || str::rename_file("f", "a\\b/d"));
    fail("open", EACCES);
    EXPECT_FALSE(large.write_file("\\nv\\f") || large.replace_file("f"));
    str::remove_file("f", false);  // Nothing half-written stayed.
    str::remove_file("f", true);
    EXPECT_EQ(take_log(),
              (lines{"1 Could not fstat shrunk", "1 Could not write f",
                     "1 Cannot rename file f to a/b/d", "1 Could not open /nv/f for writing",
                     "1 Could not replace f", "1 Cannot remove file f"}));
}

TEST_F(str_test, folders_are_open_to_all_and_listed_with_kinds_and_sizes) {
    if (sizeof(void*) == 4) {
        GTEST_SKIP() << "qemu-user hands 64-bit directory offsets to a C library that has 32 bits";
    }
    char folder[] = "/tmp/basenetd_test.XXXXXX";
    ASSERT_TRUE(mkdtemp(folder));
    str inner = str(folder) + "/d";
    mode_t const mask = umask(0);
    EXPECT_TRUE(str("bytes").write_file(inner + "\\f"));
    umask(mask);
    struct stat status = {};
    EXPECT_EQ(lstat(inner.c_str(), &status) + int(status.st_mode & 0777), 0777);
    str const size = str::decimal(status.st_size);
    EXPECT_EQ(str::list_directory(folder, true), str::sprintf("d dir %s\r\n", size));
    EXPECT_EQ(str::list_directory(inner + "\\", true), "f file 5\r\n");
    EXPECT_EQ(str::list_directory(folder, false) + str::list_directory("/tmp/none", true), "d\r\n");
    EXPECT_EQ(str::file_type(inner) + str::file_type(inner + "/f"), "dirfile");
    str::remove_file(inner + "/f", false);
    EXPECT_EQ(rmdir(inner.c_str()) + rmdir(folder), 0) << "nothing is left";
}
