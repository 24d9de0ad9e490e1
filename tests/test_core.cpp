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

#include <cerrno>

using namespace sim;

namespace {

constexpr char link_file[] = "/proc/avalanche/cpmac_link";
using text = str const&;
using core_test = sim::test;

void note(text a) {
    say(of(a));
}

void arm(timeout& timer, int ms, char const* name) {
    timer.callback(ms * 1000000LL, {note, name});
}

events const world = {
    {"link", [](auto& status) { files[link_file].content = "x : x : " + status + " link\n"; }},
    {"nolink", [](auto&) { files[link_file].content = ""; }},
    {"cache", [](auto&) { dns_services.add_cache("h", "192.0.2.9", 300, dns_resolver::type_a); }},
    {"cached", [](auto&) { say(std::to_string(dns_services.cache.count)); }},
};

}  // namespace

TEST_F(core_test, log_records_have_these_bytes_and_are_lost_without_room_in_a_pipe) {
    files.erase("net2app");
    log_add_message(1, "no pipe, and none is made", str::null);
    files["net2app"].kind = file::pipe;
    fail("write log", EAGAIN, 0, 1);
    log_add_message(1, "pipe full", str::null);
    log_add_message(2, "abc", "xy");
    log_add_message(300, "", str::null);
    EXPECT_EQ(log_records, (lines{hex("0000 0013 00000002 0002 0001 0003 616263 0002 0002 7879"),
                                  hex("0000 000a 00000002 012c 0001 0000")}));
}

TEST_F(core_test, the_clocks_go_on_when_the_kernels_count_wraps) {
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
    long long const wall_clock = atimestamp::now().ms;
    rtimestamp const before = rtimestamp::now();
    for (int i = 0; i < 2; ++i) {  // with no more than a pass in 463 days
        run_for(40000000);
        main_loop_pass();
    }
    EXPECT_EQ(rtimestamp::now() - before, 80000000000000000);
    EXPECT_EQ(atimestamp::now().ms - wall_clock, 80000000000);
    EXPECT_EQ(ms2text(text2ms("4294967295.1001")), "4294967296.1");
}

TEST_F(core_test, timers_run_when_due_in_the_order_of_arming_one_a_pass) {
    EXPECT_EQ(timeout_queue::global_queue.delay(true), -1);
    timeout_queue::global_queue.next();  // does nothing
    timeout a, b, c, idle;
    arm(a, 2000, "a");
    arm(b, 9000, "b");
    arm(b, 2000, "b again");
    arm(c, 1000, "c");
    timeout const copy(a), copy_of_idle(idle);
    run_until(0.99);
    EXPECT_EQ(a.seconds() + copy_of_idle.seconds(), 1);
    main_loop_pass();
    main_loop_pass();  // waits for three
    arm(c, -2000, "due at once, but after the others");
    EXPECT_EQ(left(), "1 c, 2 a");
    arm(idle, 5000000, "after more than 71 minutes");
    run_for(5000);
    EXPECT_EQ(left(),
              "2 b again, a, due at once, but after the others, 5002 after more than 71 minutes");
}

TEST_F(core_test, the_command_line_chooses_log_level_and_pipe) {
    char const* const line[] = {"basenetd", "--pipe", "p", "--log", "3"};
    parse_command_line(3, line);
    EXPECT_TRUE(daemon_mode);
    parse_command_line(5, line);
    EXPECT_EQ(log_pipe_path + str(log_level, 0) + str(daemon_mode, 0), "p30");
    EXPECT_EXIT(parse_command_line(4, line), testing::ExitedWithCode(1), "^$");
}

TEST_F(core_test, start_up_does_its_work_in_this_order) {
    // A start script that cannot be replaced must not restart the device for ever.
    files["/nv/rc.vorn"].content = "x";
    fail("fsync", ENOSPC);
    start_up();
    EXPECT_EQ(play({}, "journal").find("reboot"), std::string::npos);
    SetUp();
    ntp_server.clear();  // or the first address starts a request for its name
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
}

TEST_F(core_test, only_a_change_between_two_readings_restarts_or_stops_the_agents) {
    log_level = 2;
    system_ipv4 = system_ipv6 = false;
    lldp::clients.find_or_insert("eth1").start("eth1");
    link_monitor("eth1");  // without a file
    EXPECT_EQ(play(world,
                   "link:UP 2 cache link:UP 2 cached link:down 1.99 log 0.01 log cached cache "
                   "nolink 2 link:down 40 cached log link:up 1.99 log 0.01 cached log 3"),
              "1 2 LLDP, 4 1, 6 2 Ethernet link went down on eth1, 0, 48 1, 50 LLDP, 1, 2 "
              "Ethernet link went up again, restarting network on eth1, 51 52 LLDP");
}

TEST_F(core_test, packets_do_not_hold_up_timers) {
    lldp::clients.find_or_insert("eth1").start("eth1");
    run_until(10);
    handler_ms = 30;
    for (int i = 1; i < 200; ++i) {
        at(10 + 0.01 * i, [] { frame_arrives("eth1", 0x88CC, hex("0180c200000e 78787878")); });
    }
    timeout timer;
    arm(timer, 970, "in the middle");
    while (timer.active) {
        main_loop_pass();
    }
    EXPECT_NEAR(now(), 10.97, 0.03) << "after one handler at the latest";
}

TEST_F(core_test, devices_that_start_at_once_draw_different_numbers) {
    std::map<int, bytes> drawn;
    for (bytes const mac : {"00:04:aa:bb:cc:dd", "00:04:aa:bb:cc:de", "00:04:ab:bb:cc:dd"}) {
        SetUp();
        files["/nv/mac.txt"].content = mac;
        start_up();
        EXPECT_TRUE(drawn.emplace(rand(), mac).second) << mac;
    }
}

TEST_F(core_test, a_pass_serves_one_packet_a_descriptor_in_key_order_and_no_timer) {
    bytes const headers = bytes(9, '\0') + hex("11") + bytes(13, '\0') + hex("44") + bytes(4, '\0');
    interfaces = {{"eth1.1", 11}, {"eth1.2", 12}};
    for (char const* interface : {"eth1.2", "eth1.1"}) {
        dhcp::clients.find_or_insert(interface).start(interface);
        frame_arrives(interface, 0x0800, headers + interface);
        frame_arrives(interface, 0x0800, headers + interface + "B");
    }
    timeout due;
    arm(due, 10, "due");
    fail("select", EINTR, 0, 1);
    play({}, "log");
    for (char const* story : {"",
                              "0 9 DHCPv4: Packet to short (6 bytes) | 657468312e31, 9 DHCPv4: "
                              "Packet to short (6 bytes) | 657468312e32",
                              "0 9 DHCPv4: Packet to short (7 bytes) | 657468312e3142, 9 DHCPv4: "
                              "Packet to short (7 bytes) | 657468312e3242",
                              "0.01 due"}) {
        main_loop_pass();
        for (std::string const& line : take_log()) {
            say(line);
        }
        EXPECT_EQ(left(), story);
    }
}
