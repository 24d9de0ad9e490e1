// Stories: events by name, seconds that pass, and what left meanwhile in words.
#include "sim/sim.h"

#include "lib/utils.h"

#include <cmath>
#include <cstring>
#include <sstream>
#include <utility>

namespace sim {

namespace {

constexpr int type_ip = 0x0800;
constexpr int type_arp = 0x0806;
constexpr int type_eapol = 0x888E;
constexpr int type_lldp = 0x88CC;

char const* dhcp_name(bytes const& message) {
    static char const* const names[] = {"", "DISCOVER", "", "REQUEST", "DECLINE"};
    return names[message.at(242) % std::size(names)];
}

char const* dhcp6_name(bytes const& message) {
    static char const* const names[] = {
        "", "SOLICIT", "", "REQUEST", "", "RENEW", "REBIND", "", "", "", "", "INFORMATION-REQUEST"};
    return names[message.at(0) % std::size(names)];
}

// "A h.org"
std::string question(bytes const& query) {
    static std::map<int, char const*> const types = {
        {1, "A "}, {28, "AAAA "}, {33, "SRV "}, {35, "NAPTR "}};
    std::string name;
    for (size_t i = 12; query.at(i) != 0; i += 1 + size_t(query[i])) {
        name += (name.empty() ? "" : ".") + query.substr(i + 1, size_t(query[i]));
    }
    return types.at(query[query.size() - 3]) + name;
}

std::string tftp_words(bytes const& packet) {
    std::string const number = std::to_string(utils::number_at(to_str(packet), 2, 2));
    return packet[1] == 3   ? "DATA " + number + " " + std::to_string(packet.size() - 4)
           : packet[1] == 4 ? "ACK " + number
                            : "ERROR " + number + " " + packet.substr(4).c_str();
}

std::string words(packet const& each) {
    std::string const other =
        each.interface == "eth1" || each.interface.empty() ? "" : " on " + each.interface;
    switch (each.protocol) {
    case 0:
        return each.data;
    case type_ip:
        return dhcp_name(each.data.substr(28)) + other;
    case type_arp:
        return (each.data.substr(14, 4) == bytes(4, '\0') ? "probe" : "announcement") + other;
    case type_eapol:
        return "EAPOL " + to_hex(each.data.substr(14));
    case type_lldp:
        return "LLDP" + other;
    default:
        break;
    }
    std::string const port = each.to.substr(each.to.rfind(':') + 1);
    std::string const to = other + " to " + each.to;
    return port == "67"                     ? dhcp_name(each.data) + to
           : port == "547"                  ? dhcp6_name(each.data) + other
           : port == "53" || port == "5355" ? question(each.data) + to
           : each.data[0] == '\x1B'         ? "NTP" + to
                                            : tftp_words(each.data);
}

}  // namespace

std::string left() {
    std::ostringstream text;
    text.precision(10);
    std::vector<packet> const all = take_sent();
    double told = -1;
    for (size_t i = 0, first = 0; i < all.size(); ++i) {
        if (i + 1 < all.size() && words(all[i + 1]) == words(all[i])) {
            continue;
        }
        text << (first > 0 ? ", " : "");
        bool const is_new_time = i > first || all[i].at != told;
        for (; first <= i; ++first) {
            is_new_time ? text << all[first].at << " " : text;
        }
        text << words(all[i]);
        told = all[i].at;
    }
    return text.str();
}

void say(std::string const& text) {
    sent.push_back({now(), 0, "", "", text, 0});
}

std::string play(events const& known, std::string const& script) {
    take_sent();
    std::istringstream steps(script);
    for (std::string step; steps >> step;) {
        char* end;
        double const seconds = std::strtod(step.c_str(), &end);
        size_t const colon = step.find(':');
        auto const event = known.find(step.substr(0, colon));
        if (event != known.end()) {
            event->second(colon == std::string::npos ? "" : step.substr(colon + 1));
            run_for(0);
        } else if (step == "log" || step == "journal") {
            for (std::string const& line : step == "log" ? take_log() : take_journal()) {
                say(line);
            }
        } else if (*end == '\0') {
            run_for(seconds);
        } else {
            ADD_FAILURE() << "no such event: " << step;
        }
    }
    return left();
}

void test::tell(events const& known, table<std::string, std::string> const& stories) {
    for (auto const& [script, story] : stories) {
        SetUp();
        EXPECT_EQ(play(known, script), story) << script;
    }
}

}  // namespace sim
