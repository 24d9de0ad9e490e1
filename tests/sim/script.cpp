// Bytes, hostile input, and stories: events by name, seconds that pass, what left meanwhile.
#include "sim/sim.h"

#include "lib/utils.h"

#include <algorithm>
#include <linux/if_ether.h>
#include <sstream>

namespace sim {

bytes of(str const& value) {
    return {reinterpret_cast<char const*>(value.cbuffer()), size_t(value.length())};
}

str to_str(bytes const& data) {
    return str(reinterpret_cast<unsigned char const*>(data.data()), int(data.size()));
}

bytes hex(std::string const& digits) {
    std::string packed = digits;
    std::erase(packed, ' ');
    return of(utils::hex2bin(to_str(packed)));
}

std::string to_hex(bytes const& data) {
    return of(utils::bin2hex(to_str(data), false));
}

bytes big_endian(unsigned int value, int count) {
    return of(utils::int2str(value, count));
}

std::string dump(bytes const& data) {
    std::string lines;
    for (size_t i = 0; i < data.size(); i += 16) {
        lines += std::to_string(i) + ": " + to_hex(data.substr(i, 16)) + "\n";
    }
    return lines;
}

bytes damaged(bytes const& good, std::minstd_rand& random) {
    bytes data = good;
    for (unsigned int changes = random() % 8; changes > 0; --changes) {
        data[random() % data.size()] = static_cast<char>(random() >> 8);
    }
    size_t const cut = random() % (data.size() + 1);
    unsigned int const kind = random() % 4;
    return kind == 0 ? data.substr(0, cut) : kind == 1 ? data + data.substr(cut) : data;
}

namespace {

// The number in a message to that port, in words.
char const* name_of(int port, int number) {
    static std::map<std::pair<int, int>, char const*> const names = {
        {{67, 1}, "DISCOVER"}, {{67, 3}, "REQUEST"},
        {{67, 4}, "DECLINE"},  {{547, 1}, "SOLICIT"},
        {{547, 3}, "REQUEST"}, {{547, 5}, "RENEW"},
        {{547, 6}, "REBIND"},  {{547, 11}, "INFORMATION-REQUEST"},
        {{53, 1}, "A "},       {{53, 28}, "AAAA "},
        {{53, 33}, "SRV "},    {{53, 35}, "NAPTR "}};
    return names.at({port, number});
}

// "A h.org"
std::string question(bytes const& query) {
    std::string name;
    for (size_t i = 12; query.at(i) != 0; i += 1 + size_t(query[i])) {
        name += (name.empty() ? "" : ".") + query.substr(i + 1, size_t(query[i]));
    }
    return name_of(53, query[query.size() - 3]) + name;
}

std::string tftp_words(bytes const& packet) {
    std::string const number = std::to_string(utils::number_at(to_str(packet), 2, 2));
    return packet[1] == 3   ? "DATA " + number + " " + std::to_string(packet.size() - 4)
           : packet[1] == 4 ? "ACK " + number
                            : "ERROR " + number + " " + packet.substr(4).c_str();
}

std::string words(packet const& each) {
    bytes const& data = each.data;
    bool const is_elsewhere = each.interface != "eth1" && !each.interface.empty();
    std::string const on = is_elsewhere ? " on " + each.interface : "";
    std::string const to = on + " to " + each.to;
    switch (each.protocol) {
    case 0:
        return data;
    case ETH_P_IP:
        return name_of(67, data.at(270)) + on;
    case ETH_P_ARP:
        return (data.substr(14, 4) == bytes(4, '\0') ? "probe" : "announcement") + on;
    case ETH_P_PAE:
        return "EAPOL " + to_hex(data.substr(14));
    case ETH_P_LLDP:
        return "LLDP" + on;
    default:
        return to.ends_with(":67")                            ? name_of(67, data.at(242)) + to
               : to.ends_with(":547")                         ? name_of(547, data.at(0)) + on
               : to.ends_with(":53") || to.ends_with(":5355") ? question(data) + to
               : data[0] == '\x1B'                            ? "NTP" + to
                                                              : tftp_words(data);
    }
}

}  // namespace

std::string left() {
    std::ostringstream text;
    text.precision(10);
    std::vector<packet> const all = take_sent();
    double told = -1;
    for (auto first = all.begin(); first != all.end();) {
        text << (first == all.begin() ? "" : ", ");
        std::string const what = words(*first);
        auto const end =
            std::find_if(first, all.end(), [&](packet const& each) { return words(each) != what; });
        bool const is_told = end - first == 1 && first->at == told;
        for (; first != end; ++first) {
            told = first->at;
            is_told ? text : text << told << " ";
        }
        text << what;
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
        size_t const colon = step.find(':');
        auto const event = known.find(step.substr(0, colon));
        if (event != known.end()) {
            event->second(colon == std::string::npos ? "" : step.substr(colon + 1));
            run_for(0);
        } else if (step == "log" || step == "journal") {
            lines const all = step == "log" ? take_log() : take_journal();
            std::for_each(all.begin(), all.end(), say);
        } else {
            EXPECT_EQ(step.find_first_not_of(".0123456789"), std::string::npos)
                << "no event: " << step;
            run_for(std::atof(step.c_str()));
        }
    }
    return left();
}

void test::tell(events const& known, table<std::string, std::string> const& stories) {
    for (auto const& [script, story] : stories) {
        TearDown();
        SetUp();
        EXPECT_EQ(play(known, script), story) << script;
    }
}

}  // namespace sim
