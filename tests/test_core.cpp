#include "sim/sim.h"

#include "config/settings.h"
#include "core/link_monitor.h"
#include "core/log.h"
#include "core/main_loop.h"
#include "core/start_up.h"
#include "core/timeout.h"
#include "dhcp/dhcp.h"
#include "lib/packet_socket.h"
#include "lldp/lldp.h"

#include <cerrno>
#include <climits>
#include <sys/socket.h>

using namespace sim;

namespace {

lines calls;  // of the callbacks of a case

void called_with(str const& text) {
    calls.push_back(of(text));
}

callback_argument call(char const* text) {
    return {called_with, text};
}

lines take_calls() {
    return std::exchange(calls, {});
}

class core_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        ntp_server.clear();  // or the first address starts a request for its name
    }
};

}  // namespace

// --- The log ---

TEST_F(core_test, log_records_have_these_bytes) {
    log_add_message(2, "abc", str::null);
    log_add_message(2, "abc", "xy");
    log_add_message(300, "", str::null);
    EXPECT_EQ(log_records, (lines{hex("0000 000d 00000002 0002 0001 0003 616263"),
                                  hex("0000 0013 00000002 0002 0001 0003 616263 0002 0002 7879"),
                                  hex("0000 000a 00000002 012c 0001 0000")}));
}

TEST_F(core_test, messages_are_lost_without_a_pipe_or_when_it_is_full) {
    files.erase("net2app");
    log_add_message(1, "no pipe", str::null);
    log_pipe_path = "other";
    files["other"].kind = file::pipe;
    log_add_message(1, "kept", str::null);
    fail("write log", EAGAIN);
    log_add_message(1, "pipe full", str::null);
    repair();
    log_add_message(1, "kept, too", str::null);
    EXPECT_EQ(take_log(), (lines{"1 kept", "1 kept, too"}));
    EXPECT_EQ(files.count("net2app"), 0U) << "it is never created";
    log_level = 8;
    lldp::clients.find_or_insert("eth1").start("eth1");  // logs at level 9
    EXPECT_EQ(take_log(), lines());
}

// --- Time ---

TEST_F(core_test, ticks_are_rounded_half_up_and_truncated_toward_zero) {
    for (auto const& [ticks, ms, s] : table<long long, int, int>{{1499999, 1, 0},
                                                                 {1500000, 2, 0},
                                                                 {499999999, 500, 0},
                                                                 {500000000, 500, 1},
                                                                 {-600000000, -599, 0},
                                                                 {-1500000000, -1499, -1}}) {
        EXPECT_EQ(rtimestamp::ticks2ms(ticks), ms);
        EXPECT_EQ(rtimestamp::ticks2s(ticks), s);
    }
    EXPECT_EQ(rtimestamp::s2ticks(INT_MIN), INT_MIN * 1000000000LL);
    EXPECT_EQ(text2ms("12.5") + text2ms(str("5000000.1")), 12005 + 5000000001);
    EXPECT_EQ(ms2text(12005), "12.5");
}

TEST_F(core_test, the_clocks_go_on_when_the_kernels_count_wraps) {
    long long const wall_clock = atimestamp::now().ms;
    EXPECT_GE(wall_clock, 1700000000000);
    clock_ticks_offset += 0xFFFFFFFE - unsigned(rtimestamp::now().ticks / 10000000);
    timeout timer;
    timer.callback(rtimestamp::ms2ticks(40), call("after the wrap"));
    rtimestamp const before = rtimestamp::now();
    run_until(0.03);
    EXPECT_EQ(rtimestamp::now() - before, 30000000);
    EXPECT_EQ(take_calls(), lines());
    run_until(0.04);
    EXPECT_EQ(take_calls(), lines{"after the wrap"});
    EXPECT_EQ(atimestamp::now().ms - wall_clock, 40);
}

// --- Timers ---

TEST_F(core_test, timers_run_when_due_in_the_order_of_arming_one_a_pass) {
    EXPECT_EQ(timeout_queue::global_queue.delay(true), -1);
    timeout_queue::global_queue.next();  // does nothing
    timeout a;
    timeout b;
    timeout c;
    a.callback(rtimestamp::s2ticks(2), call("a"));
    b.callback(rtimestamp::s2ticks(9), call("b"));
    b.callback(rtimestamp::s2ticks(2), call("b again"));
    c.callback(rtimestamp::s2ticks(1), call("c"));
    EXPECT_EQ(timeout_queue::global_queue.delay(false), 1000);
    run_until(0.99);
    EXPECT_EQ(take_calls(), lines());
    EXPECT_EQ(a.seconds(), 1);
    run_until(1.99);
    EXPECT_EQ(take_calls(), lines{"c"});
    jump(1);
    EXPECT_EQ(timeout_queue::global_queue.delay(true), 0);
    main_loop_pass();
    EXPECT_EQ(take_calls(), lines{"a"});
    c.callback(-5, call("due at once, but after b"));
    main_loop_pass();
    EXPECT_EQ(take_calls(), lines{"b again"});
    EXPECT_EQ(now(), 2.99);
    EXPECT_EQ(a.seconds(), 0);
}

TEST_F(core_test, a_copy_of_an_armed_timer_is_due_at_the_same_time) {
    timeout original;
    timeout const idle_copy(original);
    original.callback(rtimestamp::s2ticks(1), call("both"));
    timeout const copy(original);
    {
        timeout const forgotten(original);
        EXPECT_TRUE(forgotten.active);
    }
    run_until(1);
    EXPECT_EQ(take_calls(), (lines{"both", "both"}));
    EXPECT_FALSE(idle_copy.active || copy.active);
}

namespace {

timeout rearming;
timeout* victim;

}  // namespace

TEST_F(core_test, a_callback_may_arm_its_own_timer_or_destroy_any) {
    static void (*const rearm)(str const&) = [](str const& text) {
        rearming.callback(rtimestamp::s2ticks(1), callback_argument(rearm, text + "I"));
        called_with(text);  // still the argument of this call
    };
    rearming.callback(0, callback_argument(rearm, "I"));
    run_until(2);
    EXPECT_EQ(take_calls(), (lines{"I", "II", "III"}));
    EXPECT_EQ(timeout_queue::global_queue.count, 1);
    rearming.clear();

    victim = new timeout;
    victim->callback(0, callback_argument([] { delete victim; }));
    timeout survivor;
    survivor.callback(rtimestamp::s2ticks(1), call("survivor"));
    run_for(1);
    EXPECT_EQ(take_calls(), lines{"survivor"});
}

TEST_F(core_test, a_call_passes_the_arguments_of_its_kind) {
    str const a("a");
    callback_argument const all[] = {
        callback_argument(),
        callback_argument([] { calls.emplace_back("called"); }),
        callback_argument(called_with, a),
        callback_argument([](int x) { calls.push_back(std::to_string(x)); }, -7),
        callback_argument([](str const& x, str const& y) { called_with(x + y); }, a, "b"),
        callback_argument([](str const& x, int y) { called_with(x + str(y, 0)); }, a, 5),
        callback_argument([](str const& x, str const& y, str const& z) { called_with(x + y + z); },
                          a, "b", "c"),
        callback_argument([](unsigned int x) { called_with(str(x, 0)); }, 0xFFFFFFFF),
    };
    unsigned int kind = 0;
    for (callback_argument const& each : all) {
        EXPECT_EQ(each.kind, kind++);
        callback_argument(each).call();
    }
    EXPECT_EQ(take_calls(), (lines{"called", "a", "-7", "ab", "a5", "abc", "4294967295"}));
}

// --- Start-up ---

using arguments = std::vector<char const*>;

TEST_F(core_test, the_command_line_sets_log_level_and_pipe) {
    for (auto const& [argv, level_pipe_mode] : table<arguments, char const*>{
             {{"basenetd"}, "9 net2app 1"},
             {{"basenetd", "--log", "3", "--pipe", "/tmp/p"}, "3 /tmp/p 0"},
             {{"basenetd", "--pipe", "a", "--pipe", "--log"}, "9 --log 1"},
             {{"basenetd", "--log", "7", "--log", "x"}, "0 net2app 0"}}) {
        SetUp();
        parse_command_line(int(argv.size()), argv.data());
        EXPECT_EQ(str::sprintf("%d %s %d", log_level, log_pipe_path, int(daemon_mode)),
                  level_pipe_mode);
    }
}

TEST_F(core_test, a_bad_command_line_ends_the_process) {
    for (arguments const& argv :
         {arguments{"basenetd", "--log"}, arguments{"basenetd", "-h", "x"},
          arguments{"basenetd", "--log", "3", "extra"}, arguments{"basenetd", "--pipe"}}) {
        EXPECT_EXIT(parse_command_line(int(argv.size()), argv.data()), testing::ExitedWithCode(1),
                    "^$");
    }
}

TEST_F(core_test, start_up_does_its_work_in_this_order) {
    files["/nv/mac.txt"].content = "00:04:aa:bb:cc:dd";
    files["/dev/urandom"].content = "seed";
    files["settings.xml"].content = "<?xml?><settings/>";
    files["/nv/rc.vorn"].content = "#!/bin/sh\n";
    files["/proc/avalanche/cpmac_link"].content = "link";
    start_up();
    EXPECT_EQ(mac_addr, "0004AABBCCDD");
    EXPECT_EQ(take_journal(),
              (lines{"close 0", "close 1", "close 2", "mkdir /proc/sys", "mkdir /proc/sys/net",
                     "mkdir /proc/sys/net/ipv6", "write /proc/sys/net/ipv6/bindv6only",
                     "ignore signal 13", "read /nv/mac.txt", "read /dev/urandom",
                     "read settings.xml", "read /nv/rc.vorn", "write /nv/rc.vorn", "sleep 1",
                     "umount /nv", "sleep 3", "reboot 01234567",
                     "read /proc/avalanche/cpmac_link",  // for the first LLDP frame
                     "read /proc/avalanche/cpmac_link"}));
    EXPECT_EQ(files["/proc/sys/net/ipv6/bindv6only"].content, "1");
    EXPECT_EQ(files["/nv/rc.vorn"].content, "#!/bin/sh\n./ata-app&\n");
    EXPECT_EQ(link_timer.seconds(), 2);
}

TEST_F(core_test, a_start_script_is_repaired_only_if_it_lacks_the_application) {
    for (char const* content : {"", "missing", "# no ata-app today\n"}) {
        SetUp();
        daemon_mode = false;
        if (content != std::string("missing")) {
            files["/nv/rc.vorn"].content = content;
        }
        start_up();
        for (std::string const& each : take_journal()) {
            EXPECT_FALSE(each.starts_with("write /nv") || each.starts_with("reboot")) << each;
            EXPECT_FALSE(each.starts_with("close")) << "with --log the descriptors stay";
        }
    }
}

// --- The link monitor ---

TEST_F(core_test, only_a_change_between_two_readings_restarts_or_stops_the_agents) {
    char const* const up = "eth0 : x : down\neth1 :: port ::  UP link\n";
    char const* const down = "eth1 : port : down\nup : up : xup\n";
    lines const none;
    lines const restarted = {"2 Ethernet link went up again, restarting network on eth1"};
    lines const stopped = {"2 Ethernet link went down on eth1"};
    lldp& agent = lldp::clients.find_or_insert("eth1");
    agent.timer.callback(rtimestamp::s2ticks(1000), call(""));
    bool running = true;
    log_level = 2;
    link_monitor("eth1");  // without a file
    for (auto const& [content, log] : table<char const*, lines>{{"", none},
                                                                {up, none},
                                                                {up, none},
                                                                {down, stopped},
                                                                {"", none},
                                                                {down, none},
                                                                {up, restarted},
                                                                {"", none},
                                                                {"eth1 : a : up", restarted}}) {
        files["/proc/avalanche/cpmac_link"].content = content;
        run_for(1.99);
        take_log();
        run_for(0.01);
        EXPECT_EQ(take_log(), log) << content;
        running = log == none ? running : log == restarted;
        EXPECT_EQ(agent.timer.active, running) << content;
    }
    EXPECT_EQ(link_poll_seconds, 20);
}

// --- The main loop ---

TEST_F(core_test, the_loop_waits_for_open_descriptors_and_the_earliest_timer) {
    main_loop_pass();
    EXPECT_EQ(last_select, "1 -1");
    log_add_message(1, "takes descriptor 300", str::null);
    lldp::clients.find_or_insert("eth1").start("eth1");  // 301
    dhcp::clients.find_or_insert("eth1").start("eth1");  // 302
    dhcp::clients.find("eth1")->arp_fd = packet_socket::open(SOCK_DGRAM, 0x0806, 2);
    timeout timer;
    timer.callback(rtimestamp::ms2ticks(570), call("waited"));
    main_loop_pass();
    EXPECT_EQ(last_select, "304 570 301 302 303");
    EXPECT_EQ(take_calls(), lines{"waited"});

    timer.callback(rtimestamp::ms2ticks(10), call("not run"));
    fail("select", EINTR);
    main_loop_pass();
    EXPECT_EQ(take_calls(), lines());
}

TEST_F(core_test, with_nothing_open_the_loop_sleeps_until_the_timer) {
    timeout timer;
    timer.callback(rtimestamp::ms2ticks(570), call("slept"));
    last_select = "none";
    main_loop_pass();
    EXPECT_EQ(last_select, "none");
    EXPECT_EQ(now(), 0.57);
    EXPECT_EQ(take_calls(), lines{"slept"});
}

TEST_F(core_test, a_pass_serves_one_packet_a_descriptor_in_key_order_and_no_timer) {
    timeout due;
    interfaces = {{"eth1.1", 11}, {"eth1.2", 12}};
    dhcp::clients.find_or_insert("eth1.2").start("eth1.2");
    dhcp::clients.find_or_insert("eth1.1").start("eth1.1");
    // Frames that are logged by their length.
    bytes const headers = hex("45000000000000000011 0000000000000000 0000 00000044 00000000");
    for (size_t const length : {1, 2}) {
        frame_arrives("eth1.2", 0x0800, headers + bytes(length, '2'));
        frame_arrives("eth1.1", 0x0800, headers + bytes(length, '1'));
    }
    frame_arrives("eth1.1", 0x0800, "");
    due.callback(0, call("due"));
    main_loop_pass();  // A timer that is due already comes first: there is no wait.
    EXPECT_EQ(take_calls(), lines{"due"});
    due.callback(rtimestamp::ms2ticks(10), call("due"));
    for (lines const& expected : {lines{"1 bytes) | 31", "1 bytes) | 32"},
                                  lines{"2 bytes) | 3131", "2 bytes) | 3232"}, lines()}) {
        take_log();
        main_loop_pass();
        lines log;
        for (std::string const& line : take_log()) {
            log.push_back(line.substr(line.find('(') + 1));
        }
        EXPECT_EQ(log, expected);
        EXPECT_EQ(take_calls(), lines());
    }
    main_loop_pass();
    EXPECT_EQ(take_calls(), lines{"due"});
}
