#include "world/network.h"

#include "dhcp/dhcp_packet.h"
#include "dhcp6/dhcp6_packet.h"
#include "lib/utils.h"
#include "lldp/lldp_packet.h"

#include <algorithm>

namespace life {

using namespace sim;

std::mt19937 dice;
conditions weather;
int voice_vlan = 0;
int lease_seconds = 3600;
std::map<std::string, grant> granted;
double disturbed_at = -1;
bool link_is_up = true;

namespace {

int subnet = 1;
int host = 2;  // the device's
std::vector<std::pair<packet, bytes>> overheard;

constexpr int udp = 17;
constexpr int type_ip = 0x0800;
constexpr int type_arp = 0x0806;
constexpr int type_eapol = 0x888E;
bytes const server6 = hex("20010db8000000000000000000000123");  // of names and time

bytes address(int number) {
    return {10, static_cast<char>(subnet), 0, static_cast<char>(number)};
}

// What was asked: a port, or an EtherType.
int kind_of(packet const& sent) {
    return sent.protocol == type_ip ? dhcp_packet::server_port
           : sent.protocol == udp   ? std::stoi(sent.to.substr(sent.to.rfind(':') + 1))
                                    : sent.protocol;
}

// The bytes reach the one who sent the question.
void arrive(packet const& question, bytes const& data) {
    std::string const host = question.to.substr(0, question.to.rfind(':'));
    if (question.protocol != udp) {
        frame_arrives(question.interface, question.protocol, data);
    } else if (kind_of(question) == dhcp_packet::server_port) {
        datagram_arrives(dhcp_packet::client_port, data, "10.1.0.1", question.interface);
    } else if (kind_of(question) == dhcp6_packet::server_port) {
        datagram_arrives(dhcp6_packet::client_port, data, "fe80::1", question.interface);
    } else {
        answer_arrives(question.socket, data,
                       host[0] == '[' ? host.substr(1, host.find_first_of("%]") - 1) : host);
    }
}

void send(packet const& question, bytes const& answer) {
    bool const is_full = overheard.size() == 32;
    (is_full ? overheard[dice() % 32] : overheard.emplace_back()) = {question, answer};
    bytes carried = answer;
    if (chance(weather.damage)) {
        std::minstd_rand random(dice());
        carried = damaged(answer, random);
        disturbed_at = now();
    }
    for (int copies = chance(weather.doubling) ? 2 : 1; copies > 0; --copies) {
        at(now() + (chance(weather.delay) ? 0.01 * below(800) : 0.003), [=] {
            if (link_is_up && !chance(weather.loss)) {
                arrive(question, carried);
            }
        });
    }
}

// A strange server forgets some.
template<class message>
bytes with_options(message& answer, bool is_strange, table<int, bytes> const& options) {
    for (auto const& [code, value] : options) {
        if (is_strange && chance(0.2)) {
            disturbed_at = now();
        } else {
            answer.add_option(code, to_str(value));
        }
    }
    return of(answer.serialize());
}

// A server that was replaced leaves requests for another alone.
bytes dhcp_answer(packet const& question, bool is_strange) {
    using enum dhcp_packet::option_code;
    bytes const headers = question.protocol == udp ? ""
                                                   : hex("4500000000000000 4011 0000 0a010001"
                                                         "ffffffff 0043 0044 0000 0000");
    dhcp_packet const asked(to_str(question.data.substr(headers.size())));
    auto const has = [&](int option, bytes const& value) {
        return of(asked.get_option(option)) == value;
    };
    bool const is_discover = has(option_message_type, "\1");
    bool const is_right = has(option_requested_address, address(host));
    bool const is_decline = has(option_message_type, "\4");
    host = is_decline && is_right ? 2 + host % 50 : host;
    if (is_decline || !(is_discover || has(option_server_id, address(1)))) {
        return "";
    }
    int kind = is_discover ? dhcp_packet::type_offer
               : is_right  ? dhcp_packet::type_ack
                           : dhcp_packet::type_nak;
    kind = is_strange && chance(0.3) ? one_of<int>({dhcp_packet::type_nak, 2, 8}) : kind;
    if (kind == dhcp_packet::type_ack) {
        granted[question.interface] = {address(host), lease_seconds, now()};
    }
    dhcp_packet answer;
    answer.op = dhcp_packet::op_reply;
    answer.xid = asked.xid;
    answer.yiaddr = to_str(address(host));
    return headers + with_options(answer, is_strange,
                                  {{option_message_type, big_endian(unsigned(kind), 1)},
                                   {option_server_id, address(1)},
                                   {option_subnet_mask, hex("ffffff00")},
                                   {option_router, address(1)},
                                   {option_dns_server, address(1) + address(53)},
                                   {option_domain_name, "voice.example"},
                                   {option_ntp_server, address(123)},
                                   {option_lease_time, big_endian(unsigned(lease_seconds), 4)}});
}

bytes dhcp6_answer(dhcp6_packet const& asked, bool is_strange) {
    using enum dhcp6_packet::option_code;
    bytes const times =
        big_endian(unsigned(lease_seconds / 2), 4) + big_endian(unsigned(lease_seconds / 8 * 7), 4);
    bytes const leased = hex("00050018 20010db80000") + address(host) + bytes(14, '\1');
    dhcp6_packet answer;
    bool const is_solicit = asked.type() == dhcp6_packet::type_solicit;
    answer.set_type_id(is_solicit ? dhcp6_packet::type_advertise : dhcp6_packet::type_reply,
                       asked.transaction_id());
    return with_options(
        answer, is_strange,
        {{option_server_id, hex("00030001 02deadbeef00")},
         {option_ia_na, of(asked.get_option(option_ia_na)).substr(0, 4) + times + leased},
         {option_dns_servers, server6},
         {option_sntp_servers, server6}});
}

// "time.example" is another name of "server.example"; "nowhere.example" does not exist.
bytes dns_answer(bytes const& query, bool is_strange) {
    bytes const asked = query.substr(12);
    bool const is_alias = asked.starts_with("\4time");
    bool const exists = is_alias || asked.starts_with("\6server");
    bool const is_ipv6 = asked[asked.size() - 3] == 28;
    bytes const ttl = big_endian(unsigned(one_of({0, 60, 3600, 1000000})), 4);
    bytes const record = is_alias  ? hex("0005 0001") + ttl + hex("0009") + "\6server" + hex("c011")
                         : is_ipv6 ? hex("001c 0001") + ttl + hex("0010") + server6
                                   : hex("0001 0001") + ttl + hex("0004") + address(123);
    int const code = is_strange ? one_of({0, 1, 2, 4}) : exists ? 0 : 3;
    bool const has_record = exists && code == 0 && (is_alias || !is_ipv6 || subnet % 2);
    return query.substr(0, 2) + hex("81") + static_cast<char>(0x80 + code) + hex("0001") +
           big_endian(has_record, 2) + hex("0000 0000") + asked +
           (has_record ? hex("c00c") + record : "");
}

// A strange authenticator falls silent half-way.
bytes eapol_answer(bytes const& eapol, bool is_strange) {
    bool const is_start = eapol[1] == 1;
    bytes const eap = is_start        ? hex("01070005 01")
                      : eapol[8] == 1 ? hex("01080016 0410") + bytes(16, 'c')
                                      : bytes(1, one_of({'\3', '\3', '\4'})) + hex("080004");
    return is_strange && !is_start ? ""
                                   : hex("0180c2000003 02deadbeef00 888e 0100") +
                                         big_endian(unsigned(eap.size()), 2) + eap;
}

bytes policy() {
    lldp_packet announced;
    announced.add_tia_option(lldp_packet::tia_capabilities, to_str(hex("000304")));
    announced.add_tia_option(
        lldp_packet::tia_network_policy,
        to_str(hex("01") + big_endian(0x40016EU + unsigned(voice_vlan) * 512, 3)));
    return voice_vlan ? of(announced.serialize()) : "";
}

bytes answer_to(packet const& sent, bool is_strange) {
    switch (kind_of(sent)) {
    case dhcp_packet::server_port:
        return dhcp_answer(sent, is_strange);
    case dhcp6_packet::server_port:
        return dhcp6_answer(dhcp6_packet(to_str(sent.data)), is_strange);
    case 53:
    case 5355:
        return dns_answer(sent.data, is_strange);
    case 123: {
        auto const time = static_cast<unsigned int>(3900000000U + (long long)(now()));
        return !is_time_server(sent.to) ? ""
                                        : "\x1C" + bytes(39, '\0') + big_endian(time, 4) +
                                              (is_strange ? "" : "\0\0\0\0");
    }
    case type_arp: {
        bool const is_probe = sent.data.substr(14, 4) == bytes(4, '\0');
        bool const is_taken = is_probe && weather.neighbour_has_our_address && chance(0.5);
        return is_taken ? hex("0001080006040002 02b0b0b0b0b0") + sent.data.substr(24, 4) +
                              bytes(10, '\0')
                        : "";
    }
    case type_eapol:
        return eapol_answer(sent.data.substr(14), is_strange);
    case lldp_packet::ether_type:
        return policy();
    default:
        return "";
    }
}

}  // namespace

bool chance(double share) {
    return double(dice() >> 8) / (1 << 24) < share;
}

int below(int count) {
    return int(dice() % unsigned(count));
}

void set_link(bool up) {
    link_is_up = up;
    files["/proc/avalanche/cpmac_link"].content =
        up ? "eth1: port 1: UP link=1, speed=100, duplex=full\n" : "eth1: port 1: DOWN link=0\n";
}

void renumber() {
    subnet = 1 + subnet % 100;
    lease_seconds = chance(0.1) ? one_of({10, 60}) : one_of({900, 3600, 86400, 604800, 0});
}

void react(packet const& sent) {
    mood const mood = weather.moods[kind_of(sent)];
    bytes const answer = !link_is_up || mood == silent || chance(weather.loss)
                             ? ""
                             : answer_to(sent, mood == strange);
    if (!answer.empty()) {
        send(sent, answer);
    }
}

void attack() {
    std::minstd_rand random(dice());
    bytes junk(size_t(1 + below(600)), '\0');
    std::generate(junk.begin(), junk.end(), [&] { return static_cast<char>(random()); });
    if (!overheard.empty()) {
        auto const& [question, answer] = overheard[dice() % overheard.size()];
        arrive(question, chance(0.3) ? junk : damaged(answer, random));
        disturbed_at = now();
    }
}

void scan_files(int count) {
    for (; count > 0; --count) {
        std::minstd_rand random(dice());
        bytes const request =
            hex("00") + one_of<bytes>({"\2auth.txt", "\1settings.xml"}) + bytes("\0octet\0", 7);
        datagram_arrives(69, chance(0.2) ? damaged(request, random) : request,
                         "10.200.0." + std::to_string(1 + below(250)));
    }
}

bool is_time_server(std::string const& name) {
    return name.starts_with("10.") || name.find("2001:db8::123") != std::string::npos ||
           name.starts_with("time.") || name.starts_with("server.");
}

}  // namespace life
