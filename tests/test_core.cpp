#include "sim/sim.h"

#include "config/settings.h"
#include "core/link_monitor.h"
#include "core/log.h"
#include "core/main_loop.h"
#include "core/start_up.h"
#include "core/timeout.h"
#include "dhcp/dhcp.h"
#include "dns/dns_resolver.h"
#include "lib/packet_socket.h"
#include "lldp/lldp.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>

using namespace sim;

namespace {

constexpr char link_file[] = "/proc/avalanche/cpmac_link";

lines calls;  // of the callbacks of a case

timeout rearming;
timeout* victim;

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

TEST_F(core_test, log_records_have_these_bytes_and_are_lost_without_room_in_a_pipe) {
    files.erase("net2app");
    log_add_message(1, "no pipe", str::null);
    EXPECT_EQ(files.count("net2app"), 0U) << "it is never created";
    files["net2app"].kind = file::pipe;
    fail("write log", EAGAIN);
    log_add_message(1, "pipe full", str::null);
    repair();
    log_add_message(2, "abc", "xy");
    log_add_message(300, "", str::null);
    EXPECT_EQ(log_records, (lines{hex("0000 0013 00000002 0002 0001 0003 616263 0002 0002 7879"),
                                  hex("0000 000a 00000002 012c 0001 0000")}));
}

TEST_F(core_test, the_clocks_go_on_when_the_kernels_count_wraps) {
    long long const wall_clock = atimestamp::now().ms;
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
    timeout a;
    timeout b;
    timeout c;
    a.callback(rtimestamp::s2ticks(2), call("a"));
    b.callback(rtimestamp::s2ticks(9), call("b"));
    b.callback(rtimestamp::s2ticks(2), call("b again"));
    c.callback(rtimestamp::s2ticks(1), call("c"));
    run_until(0.99);
    EXPECT_EQ(take_calls(), lines());
    EXPECT_EQ(a.seconds(), 1);
    run_until(1.99);
    EXPECT_EQ(take_calls(), lines{"c"});
    main_loop_pass();  // waits for both
    EXPECT_EQ(take_calls(), lines{"a"});
    c.callback(rtimestamp::s2ticks(-2), call("due at once, but after b"));
    main_loop_pass();
    EXPECT_EQ(take_calls(), lines{"b again"});
    EXPECT_EQ(now(), 2);
}

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

TEST_F(core_test, start_up_does_its_work_in_this_order) {
    files["/nv/mac.txt"].content = "00:04:aa:bb:cc:dd";
    files["/dev/urandom"].content = "seed";
    files["settings.xml"].content = "<?xml?><settings/>";
    files["/nv/rc.vorn"] = {"#!/bin/sh\n", file::regular, -1, 0755};
    files[link_file].content = "link";
    start_up();
    EXPECT_EQ(take_journal(), (lines{"close 0",
                                     "close 1",
                                     "close 2",
                                     "mkdir /proc/sys",
                                     "mkdir /proc/sys/net",
                                     "mkdir /proc/sys/net/ipv6",
                                     "write /proc/sys/net/ipv6/bindv6only",
                                     "ignore signal 13",
                                     "read /nv/mac.txt",
                                     "read /dev/urandom",
                                     "read settings.xml",
                                     "read /nv/rc.vorn",
                                     "read /nv/rc.vorn",  // for its mode
                                     "write /nv/rc.vorn.new",
                                     "fsync /nv/rc.vorn.new",
                                     "sync",
                                     "sleep 1",
                                     "umount /nv",
                                     "sleep 3",
                                     "reboot 01234567",
                                     "read /proc/avalanche/cpmac_link",  // for the first LLDP frame
                                     "read /proc/avalanche/cpmac_link"}));
    EXPECT_EQ(files["/nv/rc.vorn"].content, "#!/bin/sh\n./ata-app&\n");
    EXPECT_EQ(files["/nv/rc.vorn"].mode, 0755U);
}

TEST_F(core_test, a_start_script_that_cannot_be_replaced_stays_and_restarts_nothing) {
    for (auto const& [failing, good_calls] :
         table<char const*, int>{{"write", 1}, {"fsync", 0}, {"rename", 0}, {"fchmod", 0}}) {
        SetUp();
        files["/nv/rc.vorn"] = {"#!/bin/sh\n", file::regular, -1, 0755};
        fail(failing, ENOSPC, good_calls);  // the first write goes to /proc
        start_up();
        EXPECT_EQ(files["/nv/rc.vorn"].content, "#!/bin/sh\n") << failing;
        EXPECT_EQ(files.count("/nv/rc.vorn.new"), 0U) << failing;
        lines const journal = take_journal();
        EXPECT_EQ(std::count(journal.begin(), journal.end(), "reboot 01234567"), 0) << failing;
        EXPECT_EQ(count_logged("1 Could not replace /nv/rc.vorn"), 1) << failing;
    }
}

TEST_F(core_test, packets_do_not_hold_up_timers) {
    for (int const cost : {0, 5, 30}) {  // milliseconds that each handler takes
        SetUp();
        lldp::clients.find_or_insert("eth1").start("eth1");
        run_until(10);
        handler_ms = cost;
        for (int i = 1; i < 200; ++i) {
            bytes const frame = hex("0180c200000e") + bytes(20, 'x');
            at(10 + 0.01 * i, [frame] { frame_arrives("eth1", 0x88CC, frame); });
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

TEST_F(core_test, the_loop_waits_for_open_descriptors_and_the_earliest_timer) {
    main_loop_pass();
    EXPECT_EQ(last_select(), "1 -1");
    log_add_message(1, "takes descriptor 300", str::null);
    timeout timer;
    timer.callback(rtimestamp::ms2ticks(570), call("slept"));
    main_loop_pass();
    EXPECT_EQ(last_select(), "1 -1") << "with nothing open, no select()";
    EXPECT_EQ(now(), 0.57);
    EXPECT_EQ(take_calls(), lines{"slept"});

    lldp::clients.find_or_insert("eth1").start("eth1");  // 301
    dhcp::clients.find_or_insert("eth1").start("eth1");  // 302
    dhcp::clients.find("eth1")->arp_fd = packet_socket::open(SOCK_DGRAM, 0x0806, 2);
    timer.callback(rtimestamp::ms2ticks(570), call("waited"));
    main_loop_pass();
    EXPECT_EQ(last_select(), "304 570 301 302 303");
    EXPECT_EQ(take_calls(), lines{"waited"});
    timer.callback(rtimestamp::ms2ticks(10), call("not run"));
    fail("select", EINTR);
    main_loop_pass();
    EXPECT_EQ(take_calls(), lines());
}

TEST_F(core_test, a_pass_serves_one_packet_a_descriptor_in_key_order_and_no_timer) {
    interfaces = {{"eth1.1", 11}, {"eth1.2", 12}};
    bytes const headers = hex("45000000000000000011 0000000000000000 0000 00000044 00000000");
    for (std::string const interface : {"eth1.2", "eth1.1"}) {
        dhcp::clients.find_or_insert(interface.c_str()).start(interface.c_str());
        frame_arrives(interface, 0x0800, headers + " 1 of " + interface);
        frame_arrives(interface, 0x0800, headers + " 2 of " + interface);
    }
    timeout due;
    due.callback(rtimestamp::ms2ticks(10), call("due"));
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
    EXPECT_EQ(take_calls(), lines{"due"});
}
