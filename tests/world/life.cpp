// Plays one life of the daemon on the simulated system calls, in virtual time: storms of every
// kind, in between a healthy network, on which the device must come to a lease and a set clock, or
// else to one of the ends that the protocols' rules lead to. A check that fails stops the program.
//
//   life SEED DAYS [--log]     the same seed plays the same life again
#include "sim/meter.h"
#include "world/network.h"

#include "config/settings.h"
#include "core/main_loop.h"
#include "core/start_up.h"
#include "dhcp/dhcp.h"
#include "dhcp6/dhcp6.h"
#include "lib/descriptors.h"
#include "lib/utils.h"
#include "lldp/lldp.h"
#include "ntp/ntp_client.h"
#include "tftp/tftp.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace life {

using namespace sim;

namespace {

constexpr double hour = 3600;
constexpr double day = 24 * hour;
constexpr double a_while = 60;  // seconds: every packet has arrived
// The selected server is silent and rests an hour, then the next one does.
constexpr double time_to_a_clock = 2 * hour + 100;
constexpr int usual_descriptors = 1024;
constexpr int flaps_before_unplugging = 6;
constexpr int memory_limit = 24 << 20;  // bytes
constexpr double packets_a_second = 50;

std::string const no_socket = "a socket or an interface could not be made";
std::string const not_configured = "a system call failed while the address was set";
std::string const no_address = "bound without an address after rebinding";
std::string const wrong_address = "bound by a damaged answer";
std::string const unanswered_name = "a named time server whose one answer was lost";
std::string const parked_request = "a DNS request parked by an odd RCODE";
std::string const no_time_server = "no time server known";

class one_life : public test {
public:
    one_life(bool log) : has_log(log) {}
    void play(double days);

private:
    void TestBody() override {}
    void power_on();
    void play_for(double seconds);
    void worsen();
    void heal();
    void expect_health();
    void expect_order();
    std::string why_no_lease() const;
    std::string why_no_clock() const;
    bool outlives_flap(std::string const& end) const;
    void report(double storms, long long bytes_in_storms);

    bool const has_log;
    bool const has_failing_calls = chance(0.5);
    meter const birth;
    double storm_end = 0;
    double clock_set_at = -time_to_a_clock;
    int in_vain = 0;  // link flaps in a row
    long passes = 0;
    int most_descriptors = 0;
    std::map<std::string, std::string> logged_states;  // by client, as "DHCPv4 on eth1"
    std::map<std::string, int> counts;
};

void one_life::power_on() {
    SetUp();
    expects_all_watched = false;  // The sockets of ended transfers stay open.
    first_descriptor = 16;        // above the real ones
    files["/dev"] = {"", file::folder};
    files["/dev/urandom"].content = big_endian(dice(), 4);
    files["/nv/mac.txt"].content = "02:A0:B7:00:00:07\n";
    files["/nv/rc.vorn"].content = "./ata-app&\n";
    files["settings.xml"].content =
        bytes("<?xml version=\"1.0\"?><settings><phone-settings>") +
        (chance(0.1) ? "<dhcp>false</dhcp><ip_adr>10.1.0.2</ip_adr><netmask>255.255.0.0</netmask>"
                       "<gateway>10.1.0.1</gateway><dns_server1>10.1.0.53</dns_server1>"
                     : "") +
        (chance(0.3) ? "<ieee802_1x_username>base</ieee802_1x_username>" : "") +
        (chance(0.2) ? "<vlan_id>200</vlan_id><vlan_prio>5</vlan_prio>" : "") +
        (chance(0.5) ? "<telnet_enabled>true</telnet_enabled>" : "") + "<ntp_server>" +
        one_of({"10.1.0.123", "time.example", "server.example", "nowhere.example"}) +
        "</ntp_server></phone-settings></settings>";
    set_link(true);
    voice_vlan = one_of({0, 0, 100});
    start_up();
}

void one_life::play_for(double seconds) {
    double const begin = now();
    double packets = 0;
    while (now() < begin + seconds) {
        main_loop_pass();
        ++passes;
        for (packet const& each : take_sent()) {
            ++packets;
            react(each);
        }
        for (std::string const& call : take_journal()) {
            clock_set_at = call.starts_with("settimeofday") ? now() : clock_set_at;
            EXPECT_FALSE(call.starts_with("reboot"));
        }
        for (std::string const& line : take_log()) {
            size_t const goes_to = line.find(" goes to ");
            if (line.starts_with("7 DHCPv") && goes_to != std::string::npos) {
                logged_states[line.substr(2, goes_to - 2)] = line.substr(goes_to + 9);
            }
            if (has_log) {
                fprintf(stderr, "%.3f %s\n", now(), line.c_str());
            }
        }
        most_descriptors = std::max(most_descriptors, open_descriptors());
    }
    EXPECT_LT(packets, 1000 + packets_a_second * seconds);
}

// --- Storms ---

void one_life::worsen() {
    if (now() > storm_end) {
        return;
    }
    switch (below(12)) {
    case 0:
        set_link(!link_is_up);
        break;
    case 1:
        renumber();
        break;
    case 2:
        voice_vlan = one_of({0, 100, 100 + below(4)});
        break;
    case 3:
    case 4:
        weather.moods[one_of({67, 547, 53, 123, 0x888E})] = one_of({serving, silent, strange});
        break;
    case 5:
        weather.neighbour_has_our_address = chance(0.2);
        break;
    case 6:
        weather.loss = one_of({0.0, 0.1, 0.5, 1.0});
        break;
    case 7:
        weather.damage = one_of({0.0, 0.0, 0.05, 0.3});
        weather.doubling = one_of({0.0, 0.05, 0.3});
        weather.delay = one_of({0.0, 0.05, 0.3});
        break;
    case 8:
        fail("select", EINTR, 0, 1);
        scan_files(below(100));
        break;
    case 9:
        if (has_failing_calls) {
            repair();
            fail(one_of({"socket", "ioctl", "open", "write", "sendto", "send", "bind", "fstat",
                         "read", "connect", "rename", "setsockopt", "write log", "recvfrom"}),
                 one_of({EMFILE, ENOSPC, EIO, EPERM, ENOBUFS}), below(4), below(50));
        }
        break;
    case 10:
        if (has_failing_calls) {
            descriptors_max = open_descriptors() + below(3);
            at(now() + below(30), [] { descriptors_max = usual_descriptors; });
        }
        break;
    default:
        for (int i = below(20); i > 0; --i) {
            attack();
        }
    }
    at(now() + 0.001 * below(1 << below(19)), [this] { worsen(); });
}

// --- Health ---

dhcp const* client_in_use() {
    for (auto const& [name, index] : interfaces) {
        if (index == default_interface_index) {
            return dhcp::clients.find(to_str(name));
        }
    }
    return nullptr;
}

// Empty when there is a lease; else the name of the end.
std::string one_life::why_no_lease() const {
    lldp const& agent = *lldp::clients.find("eth1");
    if (!agent.dhcp_started) {
        EXPECT_TRUE(agent.state == lldp::state_eapol_authenticating && !agent.timer.active);
        return "an authenticator that fell silent half-way";
    }
    dhcp const* const client = client_in_use();
    if (!client) {
        return no_socket;
    }
    std::string const configured_address = configured["SIOCSIFADDR " + of(client->interface)];
    if (use_dhcp == str::f) {
        return configured_address == of(ip_adr) ? "" : not_configured;
    }
    if (client->interface_index == 0 || client->fd == -1 ||
        describe(client->fd).find(" 0 ") != std::string::npos) {
        return no_socket;
    }
    bool const repeats = client->resend_timer.active;
    grant const& known = granted[of(client->interface)];
    switch (client->state) {
    case dhcp::state_init:
        EXPECT_TRUE(client->arp_conflict);
        return "declined, until the old lease's T2";
    case dhcp::state_selecting:
        EXPECT_FALSE(repeats);
        return "an answer stopped the copies of DISCOVER";
    case dhcp::state_requesting:
        return repeats ? "a REQUEST to a server that is gone"
                       : "an answer stopped the copies of REQUEST";
    case dhcp::state_rebinding:
        return repeats ? "rebinding with a server that is gone"
                       : "an answer stopped the copies while rebinding";
    case dhcp::state_renewing:
        EXPECT_TRUE(client->t2_timer.active);
        return "";  // The old lease still holds.
    case dhcp::state_bound:
        break;
    }
    if (client->applied_ip != client->own_address) {
        return no_address;
    }
    if (of(client->own_address) != known.address) {
        return wrong_address;
    }
    if (known.moment > disturbed_at + a_while) {
        EXPECT_EQ(client->t1_timer.active, known.seconds > 0) << "the lease's timer";
    }
    bool const is_applied =
        configured_address == of(utils::readable_ip(client->own_address, false));
    return is_applied ? "" : not_configured;
}

// The same for a set clock.
std::string one_life::why_no_clock() const {
    if (now() - clock_set_at < time_to_a_clock) {
        return "";
    }
    auto const& requests = dns_services.requests;
    for (auto* each = requests.first(); each; each = requests.next(each)) {
        if (!each->value.timer.active) {
            return parked_request;
        }
    }
    bool is_known = false;
    for (ntp_client const& each : ntp) {
        str const server = utils::get_via_adr(each.server);
        if (!server.empty() && utils::need_dns(server) && !each.timer.active) {
            return unanswered_name;
        }
        is_known |= is_time_server(of(server));
    }
    EXPECT_FALSE(is_known) << "no clock, and no end that explains it";
    return no_time_server;
}

// A client that is bound on a VLAN stays as it is, with what it has learnt, an interface is made
// once, and time servers with a name, like questions about it, wait for an answer without an end.
bool one_life::outlives_flap(std::string const& end) const {
    bool const on_vlan = default_interface_index != interfaces["eth1"];
    return end.empty() || end == no_socket || end == unanswered_name || end == parked_request ||
           (on_vlan && (end == no_address || end == wrong_address || end == not_configured ||
                        end == no_time_server));
}

// What is there has its end ahead of it, and what the storm needed was given back.
void one_life::expect_order() {
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        EXPECT_TRUE(each->value.idle_timer.active) << "a transfer without an end";
    }
    for (auto* each = dns_services.cache.first(); each; each = dns_services.cache.next(each)) {
        EXPECT_TRUE(each->value.timer.active) << "a cache entry without an end";
    }
    for (auto* each = dhcp6::clients.first(); each; each = dhcp6::clients.next(each)) {
        EXPECT_TRUE(each->value.state != dhcp6::state_bound || each->value.renew_timer.active);
    }
    for (auto const& [client, logged] : logged_states) {
        str const interface = to_str(client.substr(10));
        EXPECT_EQ(logged, client[5] == '4'
                              ? dhcp::state_names[dhcp::clients.find(interface)->state]
                              : dhcp6::state_names[dhcp6::clients.find(interface)->state])
            << client;
    }
    meter in_use = birth;
    in_use.expect_cheap(0, [] {});
    EXPECT_LT(in_use.most.kept, 20000 + 6500 * dhcp::clients.count +
                                    100 * ::descriptors::abandoned.count +
                                    800 * dns_services.cache.count);
}

void one_life::heal() {
    weather = {};
    repair();
    descriptors_max = usual_descriptors;
    logged_states.clear();
    set_link(true);
}

void one_life::expect_health() {
    heal();
    play_for(time_to_a_clock);
    expect_order();
    std::string end = why_no_lease();
    end = end.empty() ? why_no_clock() : end;
    EXPECT_TRUE(has_failing_calls || (end != no_socket && end != not_configured)) << end;
    if (end.empty()) {
        ++counts["healthy"];
        in_vain = 0;
        return;
    }
    ++counts["ends: " + end];
    set_link(false);
    play_for(4);
    set_link(true);
    play_for(time_to_a_clock);
    std::string const lease = why_no_lease();
    end = lease.empty() ? why_no_clock() : lease;
    EXPECT_TRUE(outlives_flap(end)) << end << ", still there after a link flap";
    ++counts[end.empty() ? "cleared by a link flap" : "left by a link flap"];
    in_vain = lease.empty() ? 0 : in_vain + 1;
}

// Someone pulls the plug when a few flaps in a row were in vain: the seed's life ends early.
void one_life::play(double days) {
    power_on();
    double storms = 0;
    long long bytes_in_storms = 0;  // written to files
    while (now() < days * day && in_vain < flaps_before_unplugging) {
        long long const before = bytes_written;
        storm_end = now() + one_of({60.0, hour, 6 * hour});
        storms += storm_end - now();
        worsen();
        play_for(storm_end - now());
        bytes_in_storms += bytes_written - before;
        expect_health();
        // A lease that is lost does not come back by itself.
        double const often = lease_seconds ? 20000.0 * lease_seconds : 60 * day;
        double const end = now() + std::min(one_of({hour, 10 * day, 30 * day, 60 * day}), often);
        while (now() < end && why_no_lease().empty()) {
            play_for(std::min(end - now(), day));
        }
        expect_health();
    }
    report(storms, bytes_in_storms);
    TearDown();
}

void one_life::report(double storms, long long bytes_in_storms) {
    int memory = 0;
    for (str::block_class const& each : str::block_size) {
        memory += each.carved * each.size;
    }
    EXPECT_LT(memory, memory_limit);
    EXPECT_LT(str::allocated_size, unsigned(memory_limit)) << "large blocks";
    printf("%g years\n%ld main loop passes\n%g years of storms\n", now() / day / 365.25, passes,
           storms / day / 365.25);
    printf("%lld bytes written to files in storms\n%lld bytes written to files in health\n",
           bytes_in_storms, bytes_written - bytes_in_storms);
    printf("%d most bytes of memory\n%d most descriptors open\n", memory, most_descriptors);
    for (auto const& [name, count] : counts) {
        printf("%d %s\n", count, name.c_str());
    }
}

}  // namespace
}  // namespace life

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "life SEED DAYS [--log]\n");
        return 2;
    }
    GTEST_FLAG_SET(break_on_failure, true);
    life::dice.seed(unsigned(atoi(argv[1])));
    life::one_life(argc > 3).play(atof(argv[2]));
    return 0;
}
