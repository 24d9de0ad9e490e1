// Plays whole lives of the daemon on the simulated system calls, in virtual time: storms of every
// kind, in between a healthy network, on which the device must come to a lease and a set clock. One
// seed is one life, in a process of its own, and plays the same again at any time.
//
//   life [--days DAYS] FIRST [LAST]     the lives of these seeds
//   life [--days DAYS] --log SEED       one life, with all that it logs
#include "world/checker.h"
#include "world/network.h"

#include "config/settings.h"
#include "core/main_loop.h"
#include "core/start_up.h"
#include "ntp/ntp_client.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace life {

using namespace sim;

namespace {

constexpr double minute = 60;
constexpr double hour = 3600;
constexpr double day = 86400;
constexpr int flaps_before_unplugging = 6;
constexpr unsigned int limit_of_a_life = 900;  // seconds of real time; more is a hang

class one_life {
public:
    explicit one_life(unsigned int seed)
        : world(seed), checks(world), has_failing_calls(world.chance(0.5)) {}

    void play(double days);
    void report(std::ostream& out);

    network world;
    checker checks;

private:
    void power_on();
    std::string settings_text();
    void play_until(double moment);
    void storm();
    void worsen();
    void break_calls();
    void repair_calls();
    void use_up_descriptors();
    void heal();
    void expect_health();
    void calm(double length);
    void flap_link();
    void note_end(std::string const& end);

    bool const has_failing_calls;
    double storm_end = 0;
    double seconds_of_storms = 0;
    long long bytes_in_storms = 0;  // written to files
    int in_vain = 0;                // link flaps in a row
    bool interrupt_select = false;
};

std::string one_life::settings_text() {
    std::string text = "<?xml version=\"1.0\"?><settings><phone-settings>";
    auto const set = [&](char const* name, std::string const& value) {
        text += "<" + std::string(name) + ">" + value + "</" + name + ">";
    };
    if (world.chance(0.1)) {
        set("dhcp", "false");
        set("ip_adr", "10.1.0.2");
        set("netmask", "255.255.0.0");
        set("gateway", "10.1.0.1");
        set("dns_server1", "10.1.0.53");
    }
    if (world.chance(0.3)) {
        set("ieee802_1x_username", "base");
        set("ieee802_1x_password", "secret");
    }
    if (world.chance(0.2)) {
        set("vlan_id", "200");
        set("vlan_prio", "5");
    }
    set("ntp_server", world.one_of<std::string>({"10.1.0.123", "10.1.0.123", "time.example",
                                                 "server.example", "nowhere.example"}));
    set("telnet_enabled", world.one_of<std::string>({"true", "false"}));
    return text + "</phone-settings></settings>";
}

void one_life::power_on() {
    reset_world();
    expects_all_watched = false;  // The sockets of ended transfers stay open.
    first_descriptor = 16;        // above the real ones
    files["/dev"] = {"", file::folder};
    files["/dev/urandom"].content = big_endian(unsigned(world.below(1 << 30)), 4);
    files["/nv/mac.txt"].content = "02:A0:B7:00:00:07\n";
    files["/nv/rc.vorn"].content = "./ata-app&\n";
    files["settings.xml"].content = settings_text();
    world.set_link(true);
    world.voice_vlan = world.one_of({0, 0, 100});
    start_up();
}

void one_life::play_until(double moment) {
    at(moment, [] {});
    while (now() < moment) {
        if (interrupt_select) {
            fail("select", EINTR);
            main_loop_pass();
            repair();
            interrupt_select = false;
            ++world.counts["waits interrupted"];
        }
        main_loop_pass();
        checks.look();
    }
    checks.count_everything();
}

// --- Storms ---

void one_life::break_calls() {
    static char const* const calls[] = {"socket", "ioctl", "open",       "write",     "sendto",
                                        "send",   "bind",  "fstat",      "read",      "connect",
                                        "rename", "mkdir", "setsockopt", "write log", "recvfrom"};
    char const* const call = calls[world.below(15)];
    fail(call, world.one_of({EMFILE, ENOSPC, EIO, EPERM, ENOBUFS}), world.below(4));
    ++world.counts["failing calls: " + std::string(call)];
    world.calls_fail = true;
    ++world.call_failures;
    at(now() + world.below(60), [this] { repair_calls(); });
}

void one_life::use_up_descriptors() {
    descriptors_max = open_descriptors() + world.below(3);
    at(now() + world.below(30), [] { descriptors_max = usual_descriptors; });
    ++world.call_failures;
    ++world.counts["times without descriptors"];
}

void one_life::repair_calls() {
    repair();
    checks.forget_log();
    world.calls_fail = false;
}

void one_life::worsen() {
    if (now() > storm_end) {
        return;
    }
    checks.count_everything();
    auto const pick = [&] { return world.one_of({serving, serving, silent, strange}); };
    auto const share = [&] { return world.one_of({0.0, 0.0, 0.05, 0.3}); };
    switch (world.below(20)) {
    case 0:
        world.set_link(!world.link);
        ++world.counts["link changes"];
        break;
    case 1:
        world.renumber();
        break;
    case 2:
        world.voice_vlan = world.one_of({0, 100, 100 + world.below(4)});
        break;
    case 3:
        world.now.dhcp = pick();
        world.now.dhcp6 = pick();
        break;
    case 4:
        world.now.dns = pick();
        world.now.ntp = pick();
        break;
    case 5:
        world.now.authenticator = pick();
        break;
    case 6:
        world.now.neighbour_has_our_address = world.chance(0.2);
        break;
    case 7:
        world.now.loss = world.one_of({0.0, 0.1, 0.5, 1.0});
        break;
    case 8:
        world.now.damage = share();
        break;
    case 9:
        world.now.duplication = share();
        world.now.reordering = share();
        break;
    case 10:
    case 11:
        if (has_failing_calls) {
            break_calls();
        }
        break;
    case 12:
        if (has_failing_calls) {
            use_up_descriptors();
        }
        break;
    case 13:
        world.scan_transfers(world.below(100));
        break;
    case 14:
        world.dhcp_gives_ntp = world.chance(0.7);
        break;
    case 15:
        interrupt_select = true;
        break;
    default:
        world.start_transfer();
        for (int i = world.below(20); i > 0; --i) {
            world.attack();
        }
    }
    at(now() + 0.001 * world.below(1 << world.below(19)), [this] { worsen(); });
}

void one_life::storm() {
    double const begin = now();
    long long const written_before = bytes_written;
    storm_end = begin + world.one_of({minute, hour, 6 * hour});
    at(begin, [this] { worsen(); });
    play_until(storm_end);
    seconds_of_storms += now() - begin;
    bytes_in_storms += bytes_written - written_before;
}

// --- Health ---

void one_life::heal() {
    world.now = conditions();
    world.dhcp_gives_ntp = true;
    repair_calls();
    descriptors_max = usual_descriptors;
    world.set_link(true);
}

// Ends early once a lease is lost that does not come back by itself, or was renewed often.
void one_life::calm(double length) {
    double const often = world.lease_seconds ? 20000.0 * world.lease_seconds : length;
    double const end = now() + std::min(length, often);
    while (now() < end && checks.why_no_lease().empty()) {
        play_until(std::min(now() + day, end));
    }
}

void one_life::flap_link() {
    world.set_link(false);
    play_until(now() + 4);
    world.set_link(true);
}

void one_life::note_end(std::string const& end) {
    if (!end.empty()) {
        ++world.counts["ends: " + end];
    }
}

void one_life::expect_health() {
    heal();
    play_until(now() + time_to_a_clock);
    std::string const lease = checks.why_no_lease();
    std::string const clock = lease.empty() ? checks.why_no_clock() : "";
    note_end(lease);
    note_end(clock);
    if (lease.empty() && clock.empty()) {
        ++world.counts["healthy"];
        checks.expect_memory_given_back();
        in_vain = 0;
        return;
    }
    flap_link();
    play_until(now() + time_to_a_clock);
    std::string const later = checks.why_no_lease();
    EXPECT_TRUE(checker::outlives_flap(later)) << later << ", still there after a link flap";
    if (later.empty()) {
        EXPECT_TRUE(checker::outlives_flap(checks.why_no_clock())) << checks.why_no_clock();
    }
    ++world.counts[later.empty() ? "cleared by a link flap" : "left by a link flap"];
    in_vain = later.empty() ? 0 : in_vain + 1;
}

// Someone pulls the plug when a few flaps in a row were in vain: the seed's life ends early.
void one_life::play(double days) {
    power_on();
    while (now() < days * day && in_vain < flaps_before_unplugging) {
        if (world.chance(0.3)) {
            world.renumber();
        }
        storm();
        expect_health();
        calm(world.one_of({hour, 10 * day, 30 * day, 60 * day}));
        expect_health();
    }
}

void one_life::report(std::ostream& out) {
    out << now() / day / 365.25 << " years\n" << checks.passes << " main loop passes\n";
    out << seconds_of_storms / day / 365.25 << " years of storms\n";
    out << bytes_in_storms << " bytes written to files in storms\n";
    out << bytes_written - bytes_in_storms << " bytes written to files in health\n";
    out << checks.memory_max << " most bytes of memory\n";
    out << checks.healthy_first << " most bytes in use, first healthy\n";
    out << checks.healthy_last << " most bytes in use, last healthy\n";
    out << checks.descriptors_max << " most descriptors open\n";
    for (auto const& [name, count] : world.counts) {
        out << count << " " << name << "\n";
    }
}

one_life* playing = nullptr;

// A check that fails ends the life, with its story.
class stop_at_failure : public testing::EmptyTestEventListener {
    void OnTestPartResult(testing::TestPartResult const& result) override {
        std::cerr << "At " << now() << " s: " << result.message() << "\n"
                  << playing->checks.story();
        _exit(1);
    }
};

// In a process of its own: a crash or a hang is the end of this life alone.
[[noreturn]] void live(unsigned int seed, double days, int report_to, bool prints_log) {
    alarm(limit_of_a_life);
    testing::UnitTest::GetInstance()->listeners().Append(new stop_at_failure);
    delete testing::UnitTest::GetInstance()->listeners().Release(
        testing::UnitTest::GetInstance()->listeners().default_result_printer());
    one_life life(seed);
    playing = &life;
    life.checks.prints_log = prints_log;
    life.play(days);
    std::ostringstream report;
    life.report(report);
    if (write(report_to, report.str().data(), report.str().size()) < 0) {
        _exit(1);
    }
    _exit(0);
}

struct totals {
    std::map<std::string, double> sums;
    int failed = 0;

    void add(std::istream& report) {
        double value;
        for (std::string name; report >> value && report.ignore() && std::getline(report, name);) {
            double& sum = sums[name];
            sum = name.starts_with("most ") ? std::max(sum, value) : sum + value;
        }
    }
};

struct running_life {
    unsigned int seed;
    int report;  // the pipe's reading end
};

void start_life(std::map<pid_t, running_life>& lives, unsigned int seed, double days) {
    int ends[2];
    if (pipe(ends) != 0) {
        exit(1);
    }
    pid_t const child = fork();
    if (child == 0) {
        live(seed, days, ends[1], false);
    }
    close(ends[1]);
    lives[child] = {seed, ends[0]};
}

void end_life(std::map<pid_t, running_life>& lives, totals& all) {
    int status = 0;
    pid_t const child = wait(&status);
    running_life const ended = lives[child];
    lives.erase(child);
    std::string report;
    char piece[4096];
    for (ssize_t count; (count = read(ended.report, piece, sizeof piece)) > 0;) {
        report.append(piece, size_t(count));
    }
    close(ended.report);
    std::istringstream lines(report);
    all.add(lines);
    if (status != 0) {
        ++all.failed;
        std::cout << "FAIL seed " << ended.seed
                  << (WIFSIGNALED(status) ? " by signal " + std::to_string(WTERMSIG(status)) : "")
                  << std::endl;
    }
}

int play_all(unsigned int first, unsigned int last, double days) {
    std::map<pid_t, running_life> lives;
    totals all;
    size_t const side_by_side = size_t(sysconf(_SC_NPROCESSORS_ONLN));
    for (unsigned int seed = first; seed <= last; ++seed) {
        if (lives.size() == side_by_side) {
            end_life(lives, all);
        }
        start_life(lives, seed, days);
    }
    while (!lives.empty()) {
        end_life(lives, all);
    }
    for (auto const& [name, sum] : all.sums) {
        std::cout << std::setw(14) << sum << "  " << name << "\n";
    }
    std::cout << last - first + 1 << " lives, " << all.failed << " failed" << std::endl;
    return all.failed ? 1 : 0;
}

}  // namespace
}  // namespace life

int main(int argc, char** argv) {
    double days = 200;
    int next = 1;
    if (argc > 2 && std::string(argv[1]) == "--days") {
        days = atof(argv[2]);
        next = 3;
    }
    if (argc == next + 2 && std::string(argv[next]) == "--log") {
        life::live(static_cast<unsigned int>(atoi(argv[next + 1])), days, STDOUT_FILENO, true);
    }
    if (argc <= next) {
        std::cerr << "life [--days DAYS] FIRST [LAST]\n";
        return 2;
    }
    auto const first = static_cast<unsigned int>(atoi(argv[next]));
    auto const last = argc > next + 1 ? static_cast<unsigned int>(atoi(argv[next + 1])) : first;
    return life::play_all(first, last, days);
}
