// One program for all fuzz targets; FUZZ_TARGET in the environment names one. It sends what the
// fuzzer makes up to the daemon, in the unit tests' simulated world, which begins anew with every
// input; a failed EXPECT ends the program. An input is a row of steps, so that state machines are
// walked and not just knocked at:
//   steps are parted by the three bytes <|>
//   first byte of a step: bits 0-2 kind, bits 3-4 variant, bits 5-7 the pause behind it
//   rest: its data
// Kinds: 0 a packet to the first reader, 1 with our identifiers, 2 and 3 to the second reader,
// 4 the content of the file, 5 what the owner does, by variant, 7 a call fails.
#include "readers.h"

#include "config/config_file.h"
#include "config/setting_container.h"
#include "config/settings.h"
#include "core/log.h"
#include "core/timeout.h"
#include "dhcp/dhcp.h"
#include "dhcp6/dhcp6.h"
#include "dns/dns_resolver.h"
#include "lib/utils.h"
#include "lib/xml_tree.h"
#include "lldp/lldp.h"
#include "ntp/ntp_client.h"

#include <cerrno>

using namespace sim;

namespace {

constexpr int steps_max = 24;
constexpr double virtual_time_max = 7500;  // seconds in one input
constexpr int longest_wait = 3700;         // seconds, for the next timer

// --- What the owners do ---

// A name has an end, whether aliases lead to it or in a circle.
void names(str const& text, unsigned int variant) {
    if (variant == 0) {
        str const end = dns_services.resolve_alias(text);
        EXPECT_TRUE(dns_services.resolve_alias(end) == end) << of(text);
        str value;
        int seconds_left;
        EXPECT_EQ(dns_services.cache_lookup(text, dns_resolver::type_a, value, seconds_left),
                  dns_services.cache_lookup(text, dns_resolver::type_a, value));
    } else if (variant == 3) {
        static_dns_domain = text;
    } else {
        dns_services.request_dns(text, variant == 1 ? dns_resolver::type_a : dns_resolver::type_srv,
                                 callback_argument(restart_ntp_client, 0));
    }
}

void dhcp_clients(str const& text, unsigned int variant) {
    dhcp& client = dhcp::clients.find_or_insert("eth1");
    variant == 0   ? client.start("eth1")
    : variant == 1 ? client.stop()
    : variant == 2 ? dhcp::t1_callback("eth1")
                   : void(ntp_server = text);
}

void dhcp6_clients(str const&, unsigned int variant) {
    dhcp6& client = dhcp6::clients.find_or_insert("eth1");
    variant == 0   ? client.start("eth1")
    : variant == 1 ? client.stop()
                   : dhcp6::renew_callback("eth1");
}

// Restarted with other settings.
void agents(str const& text, unsigned int variant) {
    lldp& agent = lldp::clients.find_or_insert("eth1");
    agent.stop();
    if (variant == 1) {
        lldp::set_management_address(text);
    } else if (variant == 2) {
        ieee_802_1x_password = ieee_802_1x_username = text;
    } else if (variant == 3) {
        use_dhcp = str::f;
        ip_adr = text.get_field(0, ' ');
        netmask = text.get_field(1, ' ');
        vlan_id = text.get_field(2, ' ').value();
        vlan_prio = text.get_field(3, ' ').value();
    }
    agent.start("eth1");
}

void time_clients(str const& text, unsigned int variant) {
    ntp[variant % ntp_count].use_server(text);
}

void access(str const&, unsigned int variant) {
    tftp_enabled = variant & 1;
    nv_is_apart = variant & 2;
}

// Every piece that is cut off is taken from the text, and nothing else is; what is escaped reads as
// it was.
void documents(str const& text, unsigned int variant) {
    reload_settings();
    xml_tree const root(text, variant & 1);
    str const name = "a";
    str output;
    root.get_children({{name, output}});
    root.get_children_content({{name, output}});
    EXPECT_LE(xml_tree::cdata_content(output).length(), output.length());
    str joined;
    for (str rest = text; !rest.empty();) {
        str const piece = xml_tree::get_segment(rest);
        ASSERT_FALSE(piece.empty());
        joined += piece;
    }
    EXPECT_TRUE(joined == text);
    xml_tree parent("a", str::null);
    parent.indent = variant & 1;
    parent.add_attribute("idx", text);
    parent.add_child(xml_tree("b", text));
    xml_tree const again(parent.serialize(variant & 2), true);
    EXPECT_TRUE(again.name == "a");
    bool const is_ambiguous = text.contains_char('&') && !text.contains_char('"');
    EXPECT_TRUE(is_ambiguous || xml_tree::att2txt(xml_tree::txt2att(text)) == text);
    (void)xml_tree::xml2txt(text);
    (void)xml_tree::att2txt(text);
}

struct target {
    char const* readers[2];
    char const* file;
    void (*own)(str const& text, unsigned int variant);
};

std::map<std::string, target> const targets = {
    {"arp_frame", {{"ARP", "DHCPv4"}, "", dhcp_clients}},
    {"dhcp_message", {{"DHCPv4", "DHCPv4 frame"}, "resolv.conf", dhcp_clients}},
    {"dhcp6_message", {{"DHCPv6", "DNS"}, "/proc/net/if_inet6", dhcp6_clients}},
    {"dns_answer", {{"DNS", "NTP"}, "", names}},
    {"eapol_frame", {{"EAPOL", "LLDP"}, "", agents}},
    {"lldp_frame", {{"LLDP", "EAPOL"}, "/proc/avalanche/cpmac_link", agents}},
    {"ntp_reply", {{"NTP", "DNS"}, "", time_clients}},
    {"settings_file", {{}, "settings.xml", documents}},
    {"tftp_packets", {{"TFTP request", "TFTP transfer"}, "settings.xml", access}},
};

// --- How an input is played ---

// Or all are good again.
void fail_some_call(str const& choice) {
    static char const* const calls[] = {"ioctl",  "socket",  "sendto", "open", "write",
                                        "rename", "connect", "read",   "none"};
    repair();
    fail(calls[utils::number_at(choice, 0, 1) % std::size(calls)],
         utils::number_at(choice, 1, 1) & 1 ? EMFILE : EIO);
}

void take(target const& chosen, bytes const& step, meter& watch) {
    unsigned int const control = static_cast<unsigned char>(step[0]);
    unsigned int const kind = control & 7;
    bytes const data = step.substr(1);
    if (kind < 4 && chosen.readers[0]) {
        reader const& where = readers.at(chosen.readers[kind / 2]);
        bytes const packet = data.substr(0, where.size_max());
        where.arrive(kind % 2 ? where.fitted(packet) : packet);
        watch.expect_cheap(
            packet.size(), [] { run_for(0); }, where.beyond);
    } else if (kind == 4) {
        files[chosen.file].content = data;
    } else if (kind == 7) {
        fail_some_call(to_str(data));
    } else {
        chosen.own(to_str(data), control >> 3 & 3);
    }
    int const delay = timeout_queue::global_queue.delay(true);
    bool const is_near = delay > 0 && delay <= longest_wait * 1000;
    double const pauses[] = {0, 0, 0, 0.5, 1, 5, 21, is_near ? delay / 1000.0 : 0};
    run_for(pauses[control >> 5]);
}

class world : public sim::test {
public:
    void play(target const& chosen, bytes const& input) {
        SetUp();
        srand(1);
        first_descriptor = 20;  // The main loop looks at every number up to the largest.
        log_level = 9;
        chosen.readers[0] ? readers.at(chosen.readers[0]).begin() : settings.init();
        meter watch;
        size_t start = 0;
        for (int steps = 0; steps < steps_max && start < input.size();) {
            size_t const end = std::min(input.find("<|>", start), input.size());
            if (end > start && now() < virtual_time_max) {
                take(chosen, input.substr(start, end - start), watch);
            }
            steps += end > start;
            start = end + 3;
        }
        TearDown();
    }

private:
    void TestBody() override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, size_t size) {
    static target const& chosen = targets.at(getenv("FUZZ_TARGET"));
    static world simulated;
    static meter all_inputs;
    static int inputs = 0;
    GTEST_FLAG_SET(break_on_failure, true);
    simulated.play(chosen, bytes(reinterpret_cast<char const*>(data), size));
    if (++inputs % 1024 == 0) {
        all_inputs.expect_cheap(0, [] {});  // Nothing piles up.
    }
    return 0;
}
