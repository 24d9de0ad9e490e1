#include "world/network.h"

#include "dhcp/dhcp_packet.h"
#include "dhcp6/dhcp6_packet.h"
#include "dns/dns_resolver.h"
#include "lib/utils.h"
#include "lldp/lldp_packet.h"
#include "ntp/ntp_client.h"

#include <algorithm>

namespace life {

using namespace sim;

namespace {

constexpr int type_ip = 0x0800;
constexpr int type_arp = 0x0806;
constexpr int type_lldp = 0x88CC;
constexpr int type_eapol = 0x888E;

str number(unsigned int value, int size) {
    return utils::int2str(value, size);
}

bytes header_of_frame(char const* group, char const* ether_type) {
    return hex(group) + hex("02deadbeef00") + hex(ether_type);
}

std::string host_of(std::string const& endpoint) {
    std::string const host = endpoint.substr(0, endpoint.rfind(':'));
    return host.starts_with("[") ? host.substr(1, host.find_first_of("%]") - 1) : host;
}

int port_of(std::string const& endpoint) {
    return std::stoi(endpoint.substr(endpoint.rfind(':') + 1));
}

// A repetition in time of one byte pattern, different for each file.
bytes pattern(int file, int size) {
    bytes content(size_t(size), '\0');
    for (int i = 0; i < size; ++i) {
        content[size_t(i)] = static_cast<char>(file * 31 + i * 7 + i / 512);
    }
    return content;
}

}  // namespace

bytes network::address(int number_of_host) const {
    return {10, static_cast<char>(subnet), 0, static_cast<char>(number_of_host)};
}

void network::renumber() {
    subnet = 1 + subnet % 100;
    lease_seconds = chance(0.1) ? one_of({10, 60}) : one_of({900, 3600, 86400, 604800, 0});
    ++counts["servers replaced"];
}

void network::set_link(bool up) {
    link = up;
    files["/proc/avalanche/cpmac_link"].content =
        up ? "eth1: port 1: UP link=1, speed=100, duplex=full\n" : "eth1: port 1: DOWN link=0\n";
}

void network::send(bytes const& data, std::function<void(bytes const&)> const& arrive,
                   bool has_checksum) {
    if (chance(now.loss)) {
        ++counts["packets lost"];
        return;
    }
    bytes carried = data;
    if (!has_checksum && !data.empty() && chance(now.damage)) {
        std::minstd_rand random(dice());
        carried = damaged(data, random);
        ++counts["packets damaged"];
        disturbed_at = sim::now();
    }
    int const copies = chance(now.duplication) ? 2 : 1;
    counts["packets doubled"] += copies - 1;
    for (int i = 0; i < copies; ++i) {
        bool const is_late = chance(now.reordering);
        counts["packets late"] += is_late;
        double const delay = is_late ? 0.01 * below(800) : 0.003;
        at(sim::now() + delay, [this, carried, arrive] {
            if (link) {
                arrive(carried);
            }
        });
    }
}

void network::react(packet const& question) {
    if (!link || chance(now.loss)) {
        ++counts["packets lost"];
        return;
    }
    if (question.protocol == type_ip) {
        answer_dhcp(question, question.data.substr(28));
    } else if (question.protocol == type_arp) {
        answer_arp(question);
    } else if (question.protocol == type_lldp) {
        announce_policy();
    } else if (question.protocol == type_eapol) {
        answer_eapol(question);
    } else if (port_of(question.to) == 67) {
        answer_dhcp(question, question.data);
    } else if (port_of(question.to) == 547) {
        answer_dhcp6(question);
    } else if (port_of(question.to) == 53 || port_of(question.to) == 5355) {
        answer_dns(question);
    } else if (port_of(question.to) == 123) {
        answer_ntp(question);
    } else if (port_of(question.to) == 69) {
        answer_transfer(question);
    }
}

// --- DHCPv4 ---

bytes network::dhcp_answer(dhcp_packet const& question, int type) {
    dhcp_packet answer;
    answer.op = dhcp_packet::op_reply;
    answer.xid = question.xid;
    answer.chaddr = question.chaddr;
    bytes const server = address(1);
    answer.yiaddr = to_str(address(host));
    answer.add_option(dhcp_packet::option_message_type, number(unsigned(type), 1));
    answer.add_option(dhcp_packet::option_server_id, to_str(server));
    answer.add_option(dhcp_packet::option_subnet_mask, to_str(hex("ffffff00")));
    answer.add_option(dhcp_packet::option_router, to_str(server));
    answer.add_option(dhcp_packet::option_dns_server, to_str(server + address(53)));
    answer.add_option(dhcp_packet::option_domain_name, "voice.example");
    if (dhcp_gives_ntp) {
        answer.add_option(dhcp_packet::option_ntp_server, to_str(address(123)));
    }
    if (lease_seconds) {
        answer.add_option(dhcp_packet::option_lease_time, number(unsigned(lease_seconds), 4));
    }
    return of(answer.serialize());
}

// A server that is replaced leaves requests for another alone.
void network::answer_dhcp(packet const& question, bytes const& message) {
    dhcp_packet const asked(to_str(message));
    int const type = utils::str2int(asked.get_option(dhcp_packet::option_message_type));
    bytes const server = of(asked.get_option(dhcp_packet::option_server_id));
    bytes const wanted = of(asked.get_option(dhcp_packet::option_requested_address));
    bool const is_request = type == dhcp_packet::type_request;
    if (now.dhcp == silent || (is_request && server != address(1))) {
        return;
    }
    if (type == dhcp_packet::type_decline) {
        host = wanted == address(host) ? 2 + host % 200 : host;
        return;
    }
    int kind = is_request ? dhcp_packet::type_ack : dhcp_packet::type_offer;
    if (now.dhcp == strange && chance(0.4)) {
        kind = one_of<int>({dhcp_packet::type_nak, dhcp_packet::type_offer, 8});
    } else if (is_request && wanted != address(host)) {
        kind = dhcp_packet::type_nak;
    }
    if (kind == dhcp_packet::type_ack) {
        granted[question.interface] = {address(host), lease_seconds, sim::now()};
    }
    bytes const answer = dhcp_answer(asked, kind);
    std::string const from = host_of("10." + std::to_string(subnet) + ".0.1:67");
    bytes const headers =
        hex("4500000000000000 4011 0000") + address(1) + hex("ffffffff 0043 0044 0000 0000");
    overhear(type_ip, headers + answer);
    std::string const interface = question.interface;
    send(headers + answer, [=](bytes const& frame) {
        frame_arrives(interface, type_ip, frame);
        datagram_arrives(68, frame.substr(std::min<size_t>(28, frame.size())), from, interface);
    });
}

void network::answer_arp(packet const& question) {
    bytes const probed = question.data.substr(24, 4);
    bool const is_probe = question.data.substr(14, 4) == hex("00000000");
    if (is_probe && now.neighbour_has_our_address && chance(0.5)) {
        ++counts["addresses in conflict"];
        bytes const reply = hex("0001080006040002 02b0b0b0b0b0") + probed + bytes(10, '\0');
        std::string const interface = question.interface;
        send(reply, [=](bytes const& frame) { frame_arrives(interface, type_arp, frame); });
    }
}

// --- DHCPv6 ---

void network::add_address(dhcp6_packet& answer, bytes const& iaid) {
    bytes const leased =
        hex("20010db80000") + bytes(1, static_cast<char>(subnet)) + hex("00 0000000000000077");
    bytes const times =
        big_endian(unsigned(lease_seconds / 2), 4) + big_endian(unsigned(lease_seconds / 8 * 7), 4);
    answer.add_option(dhcp6_packet::option_ia_na,
                      to_str(iaid + times + hex("00050018") + leased + bytes(8, '\1')));
}

void network::answer_dhcp6(packet const& question) {
    dhcp6_packet const asked(to_str(question.data));
    if (now.dhcp6 == silent) {
        return;
    }
    bool const is_solicit = asked.type() == dhcp6_packet::type_solicit;
    dhcp6_packet answer;
    answer.set_type_id(is_solicit ? dhcp6_packet::type_advertise : dhcp6_packet::type_reply,
                       asked.transaction_id());
    answer.add_option(dhcp6_packet::option_server_id, to_str(hex("00030001 02deadbeef00")));
    bytes const iaid = of(asked.get_option(dhcp6_packet::option_ia_na)).substr(0, 4);
    if (!iaid.empty() && !(now.dhcp6 == strange && chance(0.5))) {
        add_address(answer, iaid);
    }
    if (now.dhcp6 == strange && chance(0.5)) {
        answer.add_option(dhcp6_packet::option_status_code, to_str(hex("0002") + "none left"));
    }
    bytes const server = hex("20010db80000000000000000000000") + '\x35';
    answer.add_option(dhcp6_packet::option_dns_servers, to_str(server));
    answer.add_option(dhcp6_packet::option_sntp_servers, to_str(server));
    bytes const wire = of(answer.serialize());
    overhear(546, wire);
    std::string const interface = question.interface;
    send(wire, [=](bytes const& data) { datagram_arrives(546, data, "fe80::1", interface); });
}

// --- Names and time ---

// The name "time.example" is an alias; "nowhere.example" does not exist.
void network::answer_dns(packet const& question) {
    if (now.dns == silent || question.data.size() < 17) {
        return;
    }
    bytes const asked = question.data.substr(12);
    bool const is_alias = asked.starts_with("\4time");
    bool const exists = is_alias || asked.starts_with("\6server") || asked.starts_with("\4pool");
    bool const is_ipv6 = asked[asked.size() - 3] == 28;
    bool const is_ipv4 = asked[asked.size() - 3] == 1;
    bytes const ttl = big_endian(unsigned(one_of({0, 60, 3600, 1000000})), 4);
    bytes answers;
    unsigned int count = 0;
    if (exists && is_alias) {
        answers += hex("c00c 0005 0001") + ttl + hex("0009") + "\6server" + hex("c011");
        ++count;
    }
    if (exists && (is_ipv4 || (is_ipv6 && subnet % 2))) {
        bytes const owner = is_alias ? "\6server" + hex("c011") : hex("c00c");
        answers +=
            owner + (is_ipv4 ? hex("0001 0001") : hex("001c 0001")) + ttl +
            (is_ipv4 ? hex("0004") + address(123) : hex("0010 20010db8000000000000000000000123"));
        ++count;
    }
    int const code = now.dns == strange ? one_of({0, 1, 2, 4}) : exists ? 0 : 3;
    bytes const wire = question.data.substr(0, 2) + hex("81") + static_cast<char>(0x80 + code) +
                       hex("0001") + big_endian(code ? 0 : count, 2) + hex("0000 0000") + asked +
                       (code ? "" : answers);
    counts["odd answers of name servers"] += code == 1 || code == 4;
    overhear(53, wire);
    unsigned int const socket = question.socket;
    std::string const from = host_of(question.to);
    send(wire, [=](bytes const& data) { answer_arrives(socket, data, from); });
}

bool network::is_time_server(std::string const& server) {
    return server.starts_with("10.") || server.starts_with("2001:db8:") ||
           server.starts_with("[2001:db8:") || server.starts_with("time.") ||
           server.starts_with("server.") || server.starts_with("pool.");
}

void network::answer_ntp(packet const& question) {
    std::string const server = host_of(question.to);
    if (now.ntp == silent || !is_time_server(server)) {
        return;
    }
    auto const seconds = static_cast<unsigned int>(3900000000U + (long long)(sim::now()));
    bytes const wire = bytes(1, '\x1C') + bytes(39, '\0') + big_endian(seconds, 4) + bytes(4, '\0');
    unsigned int const socket = question.socket;
    send(now.ntp == strange ? wire.substr(0, 40) : wire,
         [=](bytes const& data) { answer_arrives(socket, data, server); });
}

// --- The switch ---

void network::announce_policy() {
    unsigned int const policy = 0x400000U + unsigned(voice_vlan) * 512 + 5 * 64 + 46;
    bytes const tlvs = hex("fe07 0012bb01 0003 04") + hex("fe08 0012bb02 01") +
                       big_endian(policy, 3) + hex("0000");
    bytes const frame = header_of_frame("0180c200000e", "88cc") + tlvs;
    if (voice_vlan) {
        overhear(type_lldp, frame);
        send(frame, [](bytes const& data) { frame_arrives("eth1", type_lldp, data); });
    }
}

void network::answer_eapol(packet const& question) {
    bytes const eapol = question.data.substr(14);
    bool const is_start = eapol[1] == 1;
    bool const is_identity = !is_start && eapol[8] == 1;
    if (now.authenticator == silent || (now.authenticator == strange && !is_start)) {
        return;
    }
    bytes const eap = is_start      ? hex("01 07 0005 01")
                      : is_identity ? hex("01 08 0016 04 10") + bytes(16, 'c')
                                    : bytes(1, one_of({'\3', '\3', '\4'})) + hex("08 0004");
    bytes const frame = header_of_frame("0180c2000003", "888e") + hex("0100") +
                        big_endian(unsigned(eap.size()), 2) + eap;
    overhear(type_eapol, frame);
    send(frame, [](bytes const& data) { frame_arrives("eth1", type_eapol, data); });
}

// --- Strangers ---

void network::overhear(int kind, bytes const& packet) {
    overheard[heard++ % overheard.size()] = {kind, packet};
}

void network::attack() {
    ++counts["hostile packets"];
    disturbed_at = sim::now();
    std::minstd_rand random(dice());
    int kind = one_of({type_ip, type_arp, type_lldp, type_eapol, 68, 69, 546, 53});
    bytes data(size_t(1 + below(600)), '\0');
    std::generate(data.begin(), data.end(), [&] { return static_cast<char>(dice()); });
    auto const& [heard_kind, packet] = overheard[dice() % overheard.size()];
    if (chance(0.7) && !packet.empty()) {
        kind = heard_kind;
        data = damaged(packet, random);
    }
    if (data.size() < 14) {
        return;
    }
    if (kind == 53) {
        for (int const fd : {dns_socket4, dns_socket6, ntp[0].socket, ntp[1].socket}) {
            if (fd != -1) {
                datagram_arrives_at(fd, data, fd == dns_socket6 ? "2001:db8::35" : "10.1.0.53");
            }
        }
    } else if (kind < 0x600) {
        datagram_arrives(kind, data, kind == 546 ? "fe80::bad" : "10.9.0.66");
    } else {
        for (auto const& [name, index] : interfaces) {
            frame_arrives(name, kind, data);
        }
    }
}

// --- Files ---

void network::start_transfer() {
    transfer fresh;
    int const file = next_peer % 7;
    fresh.peer = "10.9." + std::to_string(next_peer / 200 % 200 + 1) + "." +
                 std::to_string(next_peer % 200 + 1);
    ++next_peer;
    fresh.is_write = chance(0.5);
    fresh.content = pattern(file, one_of({1, 511, 512, 5000, 40000}) + file);
    fresh.file = (fresh.is_write ? "upload-" + fresh.peer : "file-" + std::to_string(next_peer));
    if (!fresh.is_write) {
        files[fresh.file].content = fresh.content;
    }
    fresh.failures = calls_fail || descriptors_max < usual_descriptors ? -1 : call_failures;
    transfers[fresh.peer] = fresh;
    bytes const request =
        hex(fresh.is_write ? "0002" : "0001") + fresh.file + '\0' + "octet" + '\0';
    datagram_arrives(69, request, fresh.peer);
    std::string const peer = fresh.peer;
    at(sim::now() + 100, [this, peer] {  // whatever came of it
        files.erase(transfers[peer].is_write ? "" : transfers[peer].file);
        transfers.erase(peer);
    });
}

// A scanner opens transfers and never goes on with them.
void network::scan_transfers(int count) {
    for (int i = 0; i < count; ++i) {
        std::string const peer =
            "10.200." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1);
        datagram_arrives(69, hex("0002") + "auth.txt" + bytes(1, '\0') + "octet" + '\0', peer);
        ++counts["transfers begun by scanners"];
    }
}

void network::answer_transfer(packet const& question) {
    auto const found = transfers.find(host_of(question.to));
    if (found == transfers.end() || question.data.size() < 4) {
        return;
    }
    transfer& each = found->second;
    if (question.data[1] == 5) {
        ++counts["transfers refused"];
        return;
    }
    EXPECT_TRUE(each.socket == 0 || each.socket == question.socket) << "another transfer's socket";
    each.socket = question.socket;
    if (each.is_write == (question.data[1] == 4)) {
        answer_read(each, question);
    } else {
        ADD_FAILURE() << "a packet that has no place in this transfer";
    }
}

void network::answer_read(transfer& each, packet const& question) {
    unsigned int const block = (static_cast<unsigned char>(question.data[2]) << 8U) +
                               static_cast<unsigned char>(question.data[3]);
    std::string const peer = each.peer;
    unsigned int const socket = each.socket;
    if (each.is_write) {
        if (block == each.block) {
            if (block * 512 > each.content.size()) {
                upload_ends(each);
                return;
            }
            ++each.block;
            send_block(each);
        }
        return;
    }
    if (block == each.block + 1) {
        ++each.block;
        each.loaded += question.data.substr(4);
        EXPECT_TRUE(each.content.starts_with(each.loaded)) << "bytes of another file";
        counts["files loaded"] += question.data.size() < 516;
    }
    send(
        hex("0004") + question.data.substr(2, 2),
        [=](bytes const& data) { answer_arrives(socket, data, peer); }, true);
}

// A file of which no call failed is there, byte for byte.
void network::upload_ends(transfer& each) {
    bool const is_whole = files[each.file].content == each.content;
    bool const may_be_lost = each.failures != call_failures;
    EXPECT_TRUE(is_whole || may_be_lost) << "an upload was lost";
    ++counts[is_whole ? "files stored" : "files not stored, for failed calls"];
    files.erase(each.file);
    ++each.block;  // No copies of the last one.
}

// Copies leave every two seconds until the block is acknowledged.
void network::send_block(transfer& each) {
    std::string const peer = each.peer;
    unsigned int const socket = each.socket;
    unsigned int const block = each.block;
    bytes const data =
        hex("0003") + big_endian(block, 2) +
        each.content.substr(std::min((block - 1) * size_t(512), each.content.size()), 512);
    send(
        data, [=](bytes const& wire) { answer_arrives(socket, wire, peer); }, true);
    at(sim::now() + 2, [this, peer, block] {
        auto const found = transfers.find(peer);
        if (found != transfers.end() && found->second.block == block) {
            send_block(found->second);
        }
    });
}

}  // namespace life
