// Plays one life of the daemon on the simulated system calls, in virtual time: storms of every
// kind, in between a healthy network, on which the device must come to a lease and a set clock, or
// else to one of the ends that the protocols' rules lead to.
//   life SEED DAYS [--log]     the same seed plays the same life again
#include "sim/sim.h"

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

#include <cerrno>
#include <linux/if_ether.h>

using namespace sim;

namespace {

constexpr double day = 86400;
// The selected time server is silent and rests an hour, then the next one does.
constexpr double time_to_a_clock = 2 * 3600 + 100;

char const* const* arguments;
meter const birth;
double clock_set_at = -time_to_a_clock;
double disturbed_at = 0;                  // when bytes were last not as their sender meant them
std::map<std::string, double> counts;     // of the report
std::map<std::string, std::string> told;  // by the log: the last state of each client

std::mt19937 dice;
int below(int count) {
    return int(dice() % unsigned(count));
}
template<class... value>
auto one_of(value... all) {
    std::common_type_t<value...> const list[] = {all...};
    return list[below(sizeof...(all))];
}

// --- The network: servers, a switch, strangers, and the wire between ---

enum mood { serving, silent, strange };  // strange: allowed, but of no help
std::map<int, mood> moods;               // of servers, by port or EtherType
enum trouble { loss, doubling, delay, damage, trouble_count };
std::map<trouble, int> troubles;  // so many of a hundred packets meet with it
bool link_is_up = true;
bool has_failing_calls = false;
int voice_vlan = 0;  // 0: the switch announces none
int subnet = 1;
int lease_seconds = 3600;         // 0: for ever
std::map<bytes, double> granted;  // when each address was; 0: for ever

bool meets(trouble kind) {
    return below(100) < troubles[kind];
}

bytes address(int number) {
    return {10, char(subnet), 0, char(number)};
}

bytes const server6 = hex("20010db8000000000000000000000123");  // of names and time

// What strangers know: answers, in place of the requests for files that are there at first.
packet const to_tftp = {0, IPPROTO_UDP, "", ":69", "", 0};
std::vector<std::pair<packet, bytes>> overheard(32, {to_tftp, hex("0002") + "auth.txt"});

// A port, or an EtherType.
int server_of(packet const& asked) {
    return asked.protocol == ETH_P_IP      ? dhcp_packet::server_port
           : asked.protocol == IPPROTO_UDP ? std::stoi(asked.to.substr(asked.to.rfind(':') + 1))
                                           : asked.protocol;
}

void arrive(packet const& asked, bytes const& data) {
    int const server = server_of(asked);
    size_t const is_ipv6 = asked.to[0] == '[';
    bytes const from = asked.to.substr(is_ipv6, asked.to.find(is_ipv6 ? ']' : ':') - is_ipv6);
    asked.protocol != IPPROTO_UDP ? frame_arrives(asked.interface, asked.protocol, data)
    : server == 67                ? datagram_arrives(68, data, from, asked.interface)
    : server == 69 ? datagram_arrives(69, data, "10.9.0." + std::to_string(below(250)))
                   : answer_arrives(asked.socket, data, from);
}

void attack(size_t known) {
    std::minstd_rand random(dice());
    for (int i = below(100); i > 0; --i) {
        auto const& [asked, answer] = overheard[dice() % known];
        arrive(asked, below(3) ? damaged(answer, random) : answer);
    }
    disturbed_at = now();
}

// A server that was replaced leaves requests for another alone.
bytes dhcp_answer(packet const& asked, bool is_strange) {
    using enum dhcp_packet::option_code;
    using enum dhcp_packet::message_type;
    bytes const headers =
        asked.protocol == ETH_P_IP ? asked.data.substr(0, 20) + hex("0043004400000000") : "";
    dhcp_packet message(to_str(asked.data.substr(headers.size())));
    int const type = utils::str2int(message.get_option(option_message_type));
    bool const is_right = of(message.get_option(option_requested_address)) == address(2);
    bool const is_ours = of(message.get_option(option_server_id)) == address(1);
    if (type != type_discover && !is_ours) {
        return "";
    }
    int const fit = type == type_discover ? type_offer : is_right ? type_ack : type_nak;
    int const kind = is_strange ? one_of(int(type_offer), int(type_nak), 8, fit) : fit;
    granted[address(2)] = lease_seconds ? now() : 0;
    message.op = dhcp_packet::op_reply;
    message.yiaddr = to_str(address(2));
    message.options.clear();
    message.add_option(option_message_type, utils::int2str(unsigned(kind), 1));
    message.add_option(option_server_id, to_str(address(1)));
    message.add_option(option_dns_server, to_str(address(53)));
    message.add_option(option_ntp_server, to_str(address(123)));
    message.add_option(option_lease_time, utils::int2str(unsigned(lease_seconds), 4));
    return headers + of(message.serialize());
}

bytes dhcp6_answer(packet const& asked, bool is_strange) {
    using enum dhcp6_packet::option_code;
    dhcp6_packet message(to_str(asked.data));
    str const times = utils::int2str(unsigned(lease_seconds) / 2, 4) + str('\0', 4);
    str const leased = to_str(hex("00050018") + server6 + bytes(8, '\1'));
    str const ia_na = message.get_option(option_ia_na).leftstr(4) + times + leased;
    int const type = message.type() == dhcp6_packet::type_solicit ? 2 : 7;
    message.set_type_id(type, message.transaction_id());
    message.add_option(option_server_id, to_str(hex("00030001 02deadbeef00")));
    message.add_option(option_ia_na, is_strange ? str::null : ia_na);
    message.add_option(option_dns_servers, to_str(server6));
    message.add_option(option_sntp_servers, to_str(server6));
    return of(message.serialize());
}

// There is "server.example" alone, sometimes with an IPv6 address.
bytes dns_answer(packet const& asked, bool is_strange) {
    bytes const question = asked.data.substr(12);
    bytes const type = question.substr(question.size() - 4);
    bool const is_known = question.starts_with("\6server");
    bool const has_record = is_known && (type[1] == 1 || subnet % 2);
    int const code = is_strange ? one_of(1, 2, 4) : is_known ? 0 : 3;
    bytes const data = type[1] == 1 ? hex("0004") + address(123) : hex("0010") + server6;
    bytes const record = hex("c00c") + type + big_endian(unsigned(below(9999)), 4) + data;
    return asked.data.substr(0, 2) + hex("81") + char(0x80 + code) + hex("0001") +
           big_endian(has_record, 2) + hex("00000000") + question + (has_record ? record : "");
}

bytes ntp_answer(packet const& asked, bool is_strange) {
    bytes const seconds = big_endian(3900000000U + unsigned(now()), 4);
    bool const is_there = !asked.to.starts_with("0.0.0.0");
    return is_there ? "\x1C" + bytes(39, '\0') + seconds.substr(is_strange) : "";
}

// A strange authenticator falls silent half-way.
bytes eapol_answer(packet const& asked, bool is_strange) {
    bool const is_start = asked.data[15] == 1;
    bytes const eap = is_start              ? hex("0005 01070005 01")
                      : asked.data[22] == 1 ? hex("0016 01080016 0410") + bytes(16, 'c')
                                            : hex("0004 03080004");
    return is_strange && !is_start ? "" : hex("0180c2000003 02deadbeef00 888e 0100") + eap;
}

bytes lldp_answer(packet const&, bool) {
    lldp_packet answer;
    str const policy = utils::int2str(0x140016E + unsigned(voice_vlan) * 512, 4);
    answer.add_tia_option(lldp_packet::tia_network_policy, policy);
    return voice_vlan ? of(answer.serialize()) : "";
}

std::map<int, bytes (*)(packet const&, bool is_strange)> const servers = {
    {67, dhcp_answer}, {547, dhcp6_answer},       {53, dns_answer},          {5355, dns_answer},
    {123, ntp_answer}, {ETH_P_PAE, eapol_answer}, {ETH_P_LLDP, lldp_answer},
};

void react(packet const& asked) {
    auto const server = servers.find(server_of(asked));
    mood const mood = moods[server_of(asked)];
    bool const is_lost = server == servers.end() || !link_is_up || mood == silent || meets(loss);
    bytes const answer = is_lost ? "" : server->second(asked, mood == strange);
    if (answer.empty()) {
        return;
    }
    overheard[2 + dice() % 30] = {asked, answer};
    for (int copies = meets(doubling) ? 2 : 1; copies > 0; --copies) {
        std::minstd_rand random(dice());
        bool const is_damaged = meets(damage);
        disturbed_at = is_damaged ? now() : disturbed_at;
        bytes const data = is_damaged ? damaged(answer, random) : answer;
        at(now() + (meets(delay) ? 0.01 * below(800) : 0.003),
           [=] { link_is_up ? arrive(asked, data) : void(); });
    }
}

// --- Storms ---

void set_link(bool up) {
    link_is_up = up;
    files["/proc/avalanche/cpmac_link"].content = up ? "eth1: 1: UP \n" : "eth1: 1: DOWN \n";
}

char const* const calls[] = {"socket",   "ioctl", "open", "write",  "sendto",     "bind",
                             "recvfrom", "fstat", "read", "rename", "setsockopt", "write log"};

void (*const storms[])() = {
    [] { set_link(!link_is_up); },
    [] { subnet = 1 + subnet % 100; },  // Servers are replaced.
    [] { lease_seconds = one_of(10, 60, 900, 3600, 86400, 604800, 0); },
    [] { voice_vlan = one_of(0, 100, 100 + below(4)); },
    [] { moods[one_of(67, 547, 53, 123, ETH_P_PAE)] = one_of(serving, silent, strange); },
    [] { troubles[trouble(below(trouble_count))] = one_of(0, 0, 10, 50); },
    [] { fail("select", EINTR, 0, 1); },
    [] { attack(2); },
    [] { attack(overheard.size()); },
    // In some lives only:
    [] { fail(calls[below(12)], one_of(EMFILE, ENOSPC, EIO), below(4), below(20)); },
    [] { descriptors_max = open_descriptors() + below(3); },
    [] { descriptors_max = 1024; },
};

void worsen(double end) {
    if (now() < end) {
        storms[below(has_failing_calls ? 12 : 9)]();
        at(now() + 0.001 * below(1 << below(19)), [=] { worsen(end); });
    }
}

void play_for(double seconds, std::string const& kind) {
    double const end = now() + seconds;
    long long const written = bytes_written;
    double packets = 0;
    double& passes = counts["main loop passes"];
    double& most = counts["most descriptors open"];
    for (; now() < end; ++passes) {
        main_loop_pass();
        most = std::max<double>(most, open_descriptors());
        for (std::string const& line : take_log()) {
            if (line.starts_with("7 DHCPv4 on ")) {
                told[line.substr(2, line.find(" goes to ") - 2)] = line;
            }
            arguments[3] ? printf("%.3f %s\n", now(), line.c_str()) : 0;
        }
        for (packet const& each : take_sent()) {
            ++packets;
            react(each);
        }
        for (std::string const& call : take_journal()) {
            clock_set_at = call.starts_with("settimeofday") ? now() : clock_set_at;
        }
    }
    EXPECT_LT(packets, 1000 + 50 * seconds);
    counts["bytes written to files in " + kind] += double(bytes_written - written);
    counts["years of " + kind] += seconds / day / 365.25;
}

// --- Health ---

// Where the rules have led the device; empty when it has lease and clock. What it learnt on a VLAN,
// interfaces that could not be made, and names that wait for an answer, outlive a link flap.
std::string the_end() {
    lldp const& agent = *lldp::clients.find("eth1");
    if (!agent.dhcp_started) {
        EXPECT_TRUE(agent.state == lldp::state_eapol_authenticating && !agent.timer.active);
        return "an authenticator that fell silent half-way";
    }
    bool const on_vlan = default_interface_index != interfaces["eth1"];
    std::string const vlan = "." + std::to_string(default_interface_index - 10);
    dhcp const* const client = dhcp::clients.find(to_str("eth1" + (on_vlan ? vlan : "")));
    if (!client || describe(client->fd).find(" eth1") == std::string::npos) {
        return "for good: failed calls left no socket or interface";
    }
    std::string const state = dhcp::state_names[client->state];
    std::string const& last = told["DHCPv4 on " + of(client->interface)];
    EXPECT_TRUE(has_failing_calls || last.ends_with(" " + state)) << state << ", not " << last;
    bool const repeats = client->resend_timer.active;
    if (client->state < dhcp::state_bound) {
        EXPECT_TRUE(client->state > dhcp::state_selecting || !repeats);
        return state + (repeats ? ", the server is gone" : ", an answer stopped the copies");
    }
    auto const lease = granted.find(of(client->own_address));
    bool const is_known = lease != granted.end();
    timeout const& next = client->state == dhcp::state_bound ? client->t1_timer : client->t2_timer;
    EXPECT_TRUE(!is_known || lease->second < disturbed_at + 60 || next.active) << "for ever";
    bytes const ip = of(utils::readable_ip(client->own_address, false));
    bool const has_address = configured["SIOCSIFADDR " + of(client->interface)] == ip;
    std::string const fault = client->applied_ip != client->own_address
                                  ? "after rebinding, no address"
                              : !is_known    ? "by a damaged answer"
                              : !has_address ? "failed calls, no address"
                                             : "";
    if (!fault.empty()) {
        return (on_vlan ? "for good: bound " : "bound ") + fault;
    }
    if (now() - clock_set_at < time_to_a_clock) {
        return "";
    }
    for (ntp_client const& each : ntp) {
        if (each.server.find("example") >= 0 && !each.timer.active) {
            return "for good: a named time server, an answer was lost or odd";
        }
        bool const has_none = each.server.empty() || each.server == "0.0.0.0";
        EXPECT_TRUE(has_none || each.server == "nowhere.example") << "no clock, for no reason";
    }
    return on_vlan ? "for good: no time server" : "no time server";
}

void expect_health() {
    moods.clear();
    troubles.clear();
    repair();
    descriptors_max = 1024;
    set_link(true);
    play_for(time_to_a_clock, "health");
    // What is there has its end ahead of it, and what the storm needed was given back.
    EXPECT_EQ(tftp_ports.count, 0) << "a transfer without an end";
    auto const& cache = dns_services.cache;
    for (auto* each = cache.first(); each; each = cache.next(each)) {
        EXPECT_TRUE(each->value.timer.active) << "a cache entry without an end";
    }
    for (auto* each = dhcp6::clients.first(); each; each = dhcp6::clients.next(each)) {
        EXPECT_TRUE(each->value.state != dhcp6::state_bound || each->value.renew_timer.active);
    }
    int const entries = cache.count + dns_services.requests.count;
    EXPECT_LT(birth.kept(), 14000 + 5000 * dhcp::clients.count + 500 * entries +
                                64 * descriptors::abandoned.count);
    std::string const end = the_end();
    EXPECT_TRUE(has_failing_calls || end.find("failed calls") == std::string::npos) << end;
    ++counts[end.empty() ? "healthy" : "ends: " + end];
    if (!end.empty()) {
        set_link(false);
        play_for(4, "storms");
        set_link(true);
        play_for(time_to_a_clock, "health");
        std::string const later = the_end();
        EXPECT_TRUE(later.empty() || later.starts_with("for good")) << later;
        ++counts[later.empty() ? "cleared by a link flap" : "left by a link flap"];
    }
}

using life = sim::test;

TEST_F(life, comes_to_health_or_a_known_end) {
    expects_all_watched = false;  // The sockets of ended transfers stay open.
    first_descriptor = 16;        // above the real ones
    has_failing_calls = below(2);
    files["settings.xml"].content = one_of("", "closed to strangers");
    overheard[0].second = hex("0001") + "settings.xml";
    ieee_802_1x_username = one_of("", "", "base");
    vlan_id = one_of(0, 0, 0, 200);
    ntp_server = one_of("10.1.0.123", "server.example", "nowhere.example");
    set_link(true);
    start_up();
    double const days = std::stod(arguments[2]);
    while (now() < days * day && !HasFailure()) {
        double const length = one_of(60, 3600, 6 * 3600);
        worsen(now() + length);
        play_for(length, "storms");
        expect_health();
        play_for(std::min(one_of(0.1, 10.0, 60.0), days / 3) * day, "health");
        expect_health();
    }
    counts["years"] = now() / day / 365.25;
    for (str::block_class const& each : str::block_size) {
        counts["most bytes of memory"] += double(each.carved) * each.size;
    }
    EXPECT_LT(counts["most bytes of memory"] + str::allocated_size, 24 << 20);
    for (auto const& [name, count] : counts) {
        printf("%.9g %s\n", count, name.c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    arguments = argv;
    dice.seed(unsigned(std::stoul(argv[1])));
    return RUN_ALL_TESTS();
}
