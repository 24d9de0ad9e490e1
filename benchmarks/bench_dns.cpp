#include "benchmarks/measure.h"
#include "dns/dns_resolver.h"
#include "lib/str_format.h"
#include "lib/utils.h"

#include <ares.h>
#include <ldns/ldns.h>
#include <map>
#include <string>

namespace {

constexpr int id = 1;

str label(char const* text) {
    str const bytes(text);
    return str(static_cast<unsigned char>(bytes.length()), 1) + bytes;
}

str pointer_to(unsigned int offset) {
    return utils::int2str(0xC000 + offset, 2);
}

str record(str const& owner, unsigned int type, str const& data) {
    return owner + utils::int2str(type, 2) + utils::int2str(1, 2) + utils::int2str(3600, 4) +
           utils::int2str(unsigned(data.length()), 2) + data;
}

str message(str const& question_type, unsigned int answers, str const& records) {
    str const header = utils::int2str(id, 2) + utils::int2str(0x8180, 2) + utils::int2str(1, 2) +
                       utils::int2str(answers, 2) + str('\0', 4);
    str const name = label("time") + label("voice") + label("example") + str::x_00;
    return header + name + question_type + utils::int2str(1, 2) + records;
}

// time.voice.example is an alias of clock.voice.example, which has two addresses.
str alias_answer() {
    str const question = pointer_to(12);
    str const zone = pointer_to(17);
    str const alias_target = label("clock") + zone;
    // The target stands in the first record's data: 12 + 20 + 4 + 12 bytes from the start.
    str const target = pointer_to(48);
    return message(utils::int2str(1, 2), 3,
                   record(question, 5, alias_target) +
                       record(target, 1, utils::compact_ip("10.100.0.123")) +
                       record(target, 1, utils::compact_ip("10.100.0.124")));
}

str ipv6_answer() {
    return message(utils::int2str(28, 2), 1,
                   record(pointer_to(12), 28, utils::compact_ip("2001:db8:100::123")));
}

template<str (*answer)()>
void parse_own(benchmark::State& state) {
    str const packet = answer();
    str value;
    dns_services.process_answer(packet, id);
    if (!dns_services.cache_lookup("time.voice.example", dns_resolver::type_a, value) &&
        !dns_services.cache_lookup("time.voice.example", dns_resolver::type_aaaa, value)) {
        state.SkipWithError("the answer was not understood");
    }
    allocation_meter const meter(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(dns_services.process_answer(packet, id));
    }
    dns_services.clear();
}

template<str (*answer)()>
void parse_cares(benchmark::State& state) {
    str const packet = answer();
    bool const is_ipv4 = packet.length() == alias_answer().length();
    allocation_meter const meter(state);
    for (auto _ : state) {
        hostent* host = nullptr;
        int const status =
            is_ipv4
                ? ares_parse_a_reply(packet.buffer(), packet.length(), &host, nullptr, nullptr)
                : ares_parse_aaaa_reply(packet.buffer(), packet.length(), &host, nullptr, nullptr);
        if (status != ARES_SUCCESS) {
            state.SkipWithError("the answer was not understood");
        }
        ares_free_hostent(host);
    }
}

template<str (*answer)()>
void parse_ldns(benchmark::State& state) {
    str const packet = answer();
    allocation_meter const meter(state);
    for (auto _ : state) {
        ldns_pkt* parsed = nullptr;
        if (ldns_wire2pkt(&parsed, packet.buffer(), size_t(packet.length())) != LDNS_STATUS_OK) {
            state.SkipWithError("the answer was not understood");
        }
        ldns_pkt_free(parsed);
    }
}

str host_name(int n) {
    return str::sprintf("host%05d.voice.example", n);
}

// A name whose address stands under its alias, among as many entries.
void look_up_own(benchmark::State& state) {
    int const count = int(state.range(0));
    for (int i = 0; i < count; ++i) {
        dns_services.add_cache(host_name(i * 7919 % count), "10.100.0.1", 3600,
                               dns_resolver::type_a);
    }
    dns_services.add_cache("time.voice.example", host_name(count / 2), 3600,
                           dns_resolver::type_cname);
    str const name("time.voice.example");
    str value;
    allocation_meter const meter(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(dns_services.cache_lookup(name, dns_resolver::type_a, value));
    }
    if (!(value == "10.100.0.1")) {
        state.SkipWithError("the address was not found");
    }
    dns_services.clear();
}

void look_up_map(benchmark::State& state) {
    int const count = int(state.range(0));
    std::map<std::string, std::string> cache;
    for (int i = 0; i < count; ++i) {
        cache.emplace(std::string("A ") + host_name(i).c_str(), "10.100.0.1");
    }
    cache.emplace("CNAME time.voice.example", host_name(count / 2).c_str());
    std::string const name = "time.voice.example";
    allocation_meter const meter(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(cache.find("A " + name));
        auto const alias = cache.find("CNAME " + name);
        benchmark::DoNotOptimize(cache.find("A " + alias->second));
    }
}

BENCHMARK(parse_own<alias_answer>)->Name("DNS answer, CNAME and 2 A/process_answer");
BENCHMARK(parse_cares<alias_answer>)->Name("DNS answer, CNAME and 2 A/c-ares");
BENCHMARK(parse_ldns<alias_answer>)->Name("DNS answer, CNAME and 2 A/ldns");
BENCHMARK(parse_own<ipv6_answer>)->Name("DNS answer, AAAA/process_answer");
BENCHMARK(parse_cares<ipv6_answer>)->Name("DNS answer, AAAA/c-ares");
BENCHMARK(parse_ldns<ipv6_answer>)->Name("DNS answer, AAAA/ldns");
BENCHMARK(look_up_own)->Name("alias look-up/cache_lookup")->Arg(10)->Arg(100)->Arg(500);
BENCHMARK(look_up_map)->Name("alias look-up/3 x std::map")->Arg(10)->Arg(100)->Arg(500);

}  // namespace
