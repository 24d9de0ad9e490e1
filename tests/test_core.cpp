#include "sim/sim.h"

#include "config/settings.h"
#include "core/link_monitor.h"
#include "core/log.h"
#include "core/main_loop.h"
#include "core/start_up.h"
#include "core/timeout.h"
#include "dhcp/dhcp.h"
#include "dns/dns_resolver.h"
#include "lldp/lldp.h"

#include <algorithm>
#include <cerrno>

using namespace sim;

namespace {

constexpr char link_file[] = "/proc/avalanche/cpmac_link";

lines calls;  // of the callbacks of a case, with the second
timeout rearming;

void note(str const& text) {
    calls.push_back(std::to_string(std::lround(now() * 100)) + " " + of(text));
}

callback_argument call(char const* text) {
    return {note, text};
}

lines take_calls() {
    return std::exchange(calls, {});
}

class core_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        ntp_server.clear();  // or the first address starts a request for its name
        calls.clear();
    }
};

}  // namespace

TEST_F(core_test, log_records_have_these_bytes_and_are_lost_without_room_in_a_pipe) {
    files.erase("net2app");
    log_add_message(1, "no pipe", str::null);
    EXPECT_EQ(files.count("net2app"), 0U) << "it is never created";
    files["net2app"].kind = file::pipe;
    fail("write log", EAGAIN, 0, 1);
    log_add_message(1, "pipe full", str::null);
    log_add_message(2, "abc", "xy");
    log_add_message(300, "", str::null);
    EXPECT_EQ(log_records, (lines{hex("0000 0013 00000002 0002 0001 0003 616263 0002 0002 7879"),
                                  hex("0000 000a 00000002 012c 0001 0000")}));
}

TEST_F(core_test, the_clocks_go_on_when_the_kernels_count_wraps_and_round_half_up) {
    long long const wall_clock = atimestamp::now().ms;
    rtimestamp const before = rtimestamp::now();
    for (int i = 0; i < 2; ++i) {  // The count wraps after 497 days.
        run_for(40000000);
        main_loop_pass();
    }
    EXPECT_EQ(rtimestamp::now() - before, 80000000000000000);
    EXPECT_EQ(atimestamp::now().ms - wall_clock, 80000000000);
    for (auto const& [ticks, ms, s] : table<long long, int, int>{{1499999, 1, 0},
                                                                 {1500000, 2, 0},
                                                                 {1499999999, 1500, 1},
                                                                 {1500000000, 1500, 2},
                                                                 {-600000000, -599, 0}}) {
        EXPECT_EQ(rtimestamp::ticks2ms(ticks), ms) << ticks;
        EXPECT_EQ(rtimestamp::ticks2s(ticks), s) << ticks;
    }
    EXPECT_EQ(text2ms("4294967295.1001"), 4294967296001);
    EXPECT_EQ(text2ms("1.5"), 1005);
    EXPECT_EQ(ms2text(4294967296001), "4294967296.1");
}

TEST_F(core_test, no_count_before_the_wrap_is_a_failure_of_the_clock) {
    for (bool const fail : {false, true}) {
        last_ticks_fail = fail;
        clock_ticks_offset -= 4100 + unsigned(rtimestamp::now().ticks / 10000000);
        rtimestamp const before = rtimestamp::now();
        for (int ticks = 1; ticks < 4200; ++ticks) {
            run_for(0.01);
            errno = EAGAIN;  // of another call
            ASSERT_EQ(rtimestamp::now() - before, ticks * 10000000LL) << fail;
        }
    }
}

TEST_F(core_test, timers_run_when_due_in_the_order_of_arming_one_a_pass) {
    EXPECT_EQ(timeout_queue::global_queue.delay(true), -1);
    timeout_queue::global_queue.next();  // does nothing
    timeout a, b, c, idle;
    a.callback(rtimestamp::s2ticks(2), call("a"));
    b.callback(rtimestamp::s2ticks(9), call("b"));
    b.callback(rtimestamp::s2ticks(2), call("b again"));
    c.callback(rtimestamp::s2ticks(1), call("c"));
    timeout const copy(a), copy_of_idle(idle);
    EXPECT_EQ(copy_of_idle.active, false);
    run_until(0.99);
    EXPECT_EQ(a.seconds() + idle.seconds(), 1);
    main_loop_pass();
    main_loop_pass();  // waits for three
    c.callback(rtimestamp::s2ticks(-2), call("due at once, but after the others"));
    EXPECT_EQ(take_calls(), (lines{"100 c", "200 a"}));
    run_for(0);
    EXPECT_EQ(take_calls(),
              (lines{"200 b again", "200 a", "200 due at once, but after the others"}));
    c.callback(rtimestamp::s2ticks(5000), call("after more than 71 minutes"));
    run_for(5000);
    EXPECT_EQ(take_calls(), lines{"500200 after more than 71 minutes"});
}

TEST_F(core_test, a_callback_may_arm_its_own_timer_or_destroy_any_and_has_up_to_three_arguments) {
    static void (*const rearm)(str const&) = [](str const& text) {
        rearming.callback(rtimestamp::s2ticks(1), callback_argument(rearm, text + "I"));
        note(text);  // still the argument of this call
    };
    rearming.callback(0, callback_argument(rearm, "I"));
    run_until(2);
    EXPECT_EQ(take_calls(), (lines{"0 I", "100 II", "200 III"}));
    rearming.clear();
    static timeout* victim;
    victim = new timeout;
    victim->callback(0, callback_argument([] { delete victim; }));
    run_for(0);

    using text = str const&;
    void (*const two)(text, text) = [](text a, text b) { note(a + b); };
    void (*const mixed)(text, int) = [](text a, int b) { note(a + str(b, 0)); };
    void (*const three)(text, text, text) = [](text a, text b, text c) { note(a + b + c); };
    void (*const value)(unsigned int) = [](unsigned int a) { note(str(a, 0)); };
    for (callback_argument const& each :
         {callback_argument(), callback_argument(two, "a", "b"), callback_argument(mixed, "c", -4),
          callback_argument(three, "d", "e", "f"), callback_argument(value, 4294967295U)}) {
        each.call();
    }
    EXPECT_EQ(take_calls(), (lines{"200 ab", "200 c-4", "200 def", "200 4294967295"}));
}

TEST_F(core_test, the_command_line_chooses_log_level_and_pipe_or_ends_the_program) {
    char const* const good[] = {"basenetd", "--log", "3", "--pipe", "p"};
    char const* const unknown[] = {"basenetd", "--help", "3"};
    parse_command_line(3, good);
    EXPECT_EQ(of(log_pipe_path) + std::to_string(log_level) + std::to_string(daemon_mode),
              "net2app30");
    daemon_mode = true;
    parse_command_line(5, good);
    EXPECT_EQ(log_pipe_path + str(log_level, 0), "p3");
    daemon_mode = true;
    parse_command_line(1, good);
    parse_command_line(3, good + 2);  // "3" stands for the program
    EXPECT_TRUE(daemon_mode) << "--pipe alone";
    EXPECT_EXIT(parse_command_line(4, good), testing::ExitedWithCode(1), "^$");
    EXPECT_EXIT(parse_command_line(3, unknown), testing::ExitedWithCode(1), "^$");
}

TEST_F(core_test, start_up_does_its_work_in_this_order) {
    files["/nv/mac.txt"].content = "00:04:aa:bb:cc:dd";
    files["/dev/urandom"].content = "seed";
    files["settings.xml"].content = "<?xml?><settings/>";
    files["/nv/rc.vorn"] = {"#!/bin/sh\n", file::regular, -1, 0755};
    files[link_file].content = "link";
    first_descriptor = 0;  // as behind close() of the standard ones
    start_up();
    EXPECT_EQ(play({}, "journal 3"),
              "0 close 0, close 1, close 2, mkdir /proc/sys, mkdir /proc/sys/net, "
              "mkdir /proc/sys/net/ipv6, write /proc/sys/net/ipv6/bindv6only, ignore signal 13, "
              "read /nv/mac.txt, read /dev/urandom, read settings.xml, 0 0 read /nv/rc.vorn, "
              "write /nv/rc.vorn.new, fsync /nv/rc.vorn.new, sync, sleep 1, umount /nv, sleep 3, "
              "reboot 01234567, 0 0 read /proc/avalanche/cpmac_link, 1 2 LLDP, 3 DISCOVER");
    EXPECT_EQ(files["/nv/rc.vorn"].content, "#!/bin/sh\n./ata-app&\n");
    EXPECT_EQ(files["/nv/rc.vorn"].mode, 0755U);
    EXPECT_EQ(rtimestamp::now() - system_start, rtimestamp::s2ticks(3));
    EXPECT_EQ(files["/proc/sys/net/ipv6/bindv6only"].content, "1");
}

TEST_F(core_test, a_start_script_that_is_good_or_cannot_be_replaced_restarts_nothing) {
    for (auto const& [failing, script] : table<char const*, char const*>{
             {"fsync", "x"}, {"rename", "x"}, {"fchmod", "x"}, {"", "ata-app"}, {"", ""}}) {
        SetUp();
        daemon_mode = false;
        files["/nv/rc.vorn"].content = script;
        fail(failing, ENOSPC);
        start_up();
        EXPECT_EQ(files["/nv/rc.vorn"].content, script) << failing;
        EXPECT_EQ(files.count("/nv/rc.vorn.new"), 0U) << failing;
        EXPECT_EQ(count_logged("1 Could not replace /nv/rc.vorn"), *failing ? 1 : 0) << failing;
        std::string const journal = play({}, "journal");
        EXPECT_EQ(journal.find("close 0") & journal.find("reboot"), std::string::npos) << failing;
    }
}

TEST_F(core_test, packets_do_not_hold_up_timers) {
    for (int const cost : {0, 5, 30}) {  // milliseconds that each handler takes
        SetUp();
        lldp::clients.find_or_insert("eth1").start("eth1");
        run_until(10);
        handler_ms = cost;
        for (int i = 1; i < 200; ++i) {
            at(10 + 0.01 * i, [] { frame_arrives("eth1", 0x88CC, hex("0180c200000e 78787878")); });
        }
        timeout timer;
        timer.callback(rtimestamp::ms2ticks(970), call("in the middle"));
        while (take_calls().empty()) {
            main_loop_pass();
        }
        EXPECT_NEAR(now(), 10.97, 0.001 * cost) << "after one handler at the latest";
    }
}

TEST_F(core_test, only_a_change_between_two_readings_restarts_or_stops_the_agents) {
    char const* const up = "eth0 : x : down\neth1 :: port ::  UP link\n";
    char const* const down = "eth1 : port : down\nup : up : xup\n";
    lines const none;
    lines const restarted = {"2 Ethernet link went up again, restarting network on eth1"};
    lines const stopped = {"2 Ethernet link went down on eth1"};
    log_level = 2;
    lldp::clients.find_or_insert("eth1").start("eth1");
    link_monitor("eth1");  // without a file
    for (auto const& [content, log] : table<char const*, lines>{
             {up, none}, {up, none}, {down, stopped}, {"", none}, {down, none}, {up, restarted}}) {
        files[link_file].content = content;
        dns_services.add_cache("h.org", "192.0.2.9", 300, dns_resolver::type_a);
        run_for(1.99);
        take_log();
        run_for(0.01);
        EXPECT_EQ(take_log(), log) << content;
        EXPECT_TRUE(log == none || lldp::clients.find("eth1")->timer.active == (log == restarted));
        EXPECT_EQ(dns_services.cache.count, log == stopped ? 0 : 1);
    }
}

TEST_F(core_test, a_pass_serves_one_packet_a_descriptor_in_key_order_and_no_timer) {
    interfaces = {{"eth1.1", 11}, {"eth1.2", 12}};
    for (std::string const interface : {"eth1.2", "eth1.1"}) {
        dhcp::clients.find_or_insert(interface.c_str()).start(interface.c_str());
        for (char const* number : {" 1 of ", " 2 of "}) {
            frame_arrives(interface, 0x0800,
                          hex("45000000000000000011 0000000000000000 0000 00000044 00000000") +
                              number + interface);
        }
    }
    timeout due;
    due.callback(rtimestamp::ms2ticks(10), call("due"));
    fail("select", EINTR, 0, 1);
    main_loop_pass();
    for (std::string const expected : {" 1 of ", " 2 of "}) {
        take_log();
        main_loop_pass();
        lines const log = take_log();
        ASSERT_EQ(log.size(), 2U);
        EXPECT_TRUE(log[0].ends_with(to_hex(expected + "eth1.1"))) << log[0];
        EXPECT_TRUE(log[1].ends_with(to_hex(expected + "eth1.2"))) << log[1];
        EXPECT_EQ(take_calls(), lines());
    }
    main_loop_pass();
    EXPECT_EQ(take_calls(), lines{"1 due"});
}
