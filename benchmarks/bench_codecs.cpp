#include "benchmarks/measure.h"
#include "config/settings.h"
#include "dhcp/dhcp_packet.h"
#include "lib/utils.h"
#include "lldp/lldp.h"

namespace {

void fill_ack(dhcp_packet& packet) {
    packet.op = dhcp_packet::op_reply;
    packet.xid = "abcd";
    packet.yiaddr = utils::compact_ip("10.100.0.60");
    packet.chaddr = utils::hex2bin("02A0B7000001");
    packet.add_option(dhcp_packet::option_message_type, str::x_01);
    packet.add_option(dhcp_packet::option_server_id, utils::compact_ip("10.100.0.1"));
    packet.add_option(dhcp_packet::option_lease_time, utils::int2str(3600, 4));
    packet.add_option(dhcp_packet::option_subnet_mask, utils::compact_ip("255.255.255.0"));
    packet.add_option(dhcp_packet::option_router, utils::compact_ip("10.100.0.1"));
    packet.add_option(dhcp_packet::option_dns_server, utils::compact_ip("10.100.0.53"));
    packet.add_option(dhcp_packet::option_domain_name, "voice.example");
    packet.add_option(dhcp_packet::option_tftp_server, "provisioning.voice.example");
}

void build_dhcp(benchmark::State& state) {
    allocation_meter const meter(state);
    for (auto _ : state) {
        dhcp_packet packet;
        fill_ack(packet);
        str wire = packet.serialize();
        benchmark::DoNotOptimize(wire);
    }
}

void parse_dhcp(benchmark::State& state) {
    dhcp_packet ack;
    fill_ack(ack);
    str const wire = ack.serialize();
    allocation_meter const meter(state);
    for (auto _ : state) {
        dhcp_packet const packet(wire);
        benchmark::DoNotOptimize(packet.get_option(dhcp_packet::option_router));
    }
}

// Reads the device files that the frame announces, which are absent here.
void build_lldp(benchmark::State& state) {
    mac_addr = "02A0B7000001";
    lldp agent;
    agent.management_address = utils::compact_ip("10.100.0.60");
    allocation_meter const meter(state);
    for (auto _ : state) {
        agent.setup_packet();
        str frame = agent.packet.serialize();
        benchmark::DoNotOptimize(frame);
    }
}

void parse_lldp(benchmark::State& state) {
    mac_addr = "02A0B7000001";
    lldp agent;
    agent.setup_packet();
    str const frame = agent.packet.serialize();
    allocation_meter const meter(state);
    for (auto _ : state) {
        lldp_packet const packet(frame.substr(lldp_packet::ethernet_header_length));
        benchmark::DoNotOptimize(packet.get_tia_option(lldp_packet::tia_network_policy));
    }
}

BENCHMARK(build_dhcp)->Name("build DHCP message/dhcp_packet");
BENCHMARK(parse_dhcp)->Name("parse DHCP message/dhcp_packet");
BENCHMARK(build_lldp)->Name("build LLDP frame/lldp");
BENCHMARK(parse_lldp)->Name("parse LLDP frame/lldp_packet");

}  // namespace
