#include "sim/sim.h"

#include "config/settings.h"
#include "dns/dns_resolver.h"
#include "lib/str_format.h"
#include "lib/utils.h"

#include <ctime>
#include <sstream>

using namespace sim;

namespace {

constexpr dns_resolver::dns_type type_a = dns_resolver::type_a;
constexpr dns_resolver::dns_type type_aaaa = dns_resolver::type_aaaa;
constexpr dns_resolver::dns_type type_cname = dns_resolver::type_cname;

std::vector<int> finished;  // numbers of the requests, in the order of their callbacks

void request(std::string const& name, dns_resolver::dns_type type = type_a, int number = 0) {
    void (*const note)(int) = [](int ended) {
        finished.push_back(ended);
        if (ended == 1000) {
            request("h.org");
        }
    };
    dns_services.request_dns(to_str(name), type, callback_argument(note, number));
}

bytes encoded(std::string const& name) {
    bytes data;
    std::istringstream labels(name);
    for (std::string label; std::getline(labels, label, '.');) {
        data += big_endian(unsigned(label.size()), 1) + label;
    }
    return data + '\0';
}

// Records from "OWNER TYPE TTL DATA", the data in hex, one after the other; "@" is the name in the
// question.
bytes records(std::string const& text, unsigned int& count) {
    bytes data;
    std::istringstream fields(text);
    std::string owner, value;
    for (unsigned int type = 0, ttl = 0; fields >> owner >> type >> ttl >> value; ++count) {
        data += (owner == "@" ? hex("c00c") : encoded(owner)) + big_endian(type, 2) + hex("0001") +
                big_endian(ttl, 4) + big_endian(unsigned(value.size() / 2), 2) + hex(value);
    }
    return data;
}

// An answer for type A, without its id.
bytes answer(std::string const& name, unsigned int code, std::string const& answers = "",
             std::string const& authority = "") {
    unsigned int counts[2] = {};
    bytes const sections = records(answers, counts[0]) + records(authority, counts[1]);
    return big_endian(0x8180 + code, 2) + hex("0001") + big_endian(counts[0], 2) +
           big_endian(counts[1], 2) + hex("0000") + encoded(name) + hex("0001 0001") + sections;
}

bytes const good = answer("h.org", 0, "@ 1 300 c0000209");

void arrives(bytes const& data, int id = dns_services.next_id - 1,
             std::string const& from = "192.0.2.1") {
    int const fd = from.find(':') == std::string::npos ? dns_socket4 : dns_socket6;
    datagram_arrives_at(fd, big_endian(unsigned(id), 2) + data, from);
    run_for(0);
}

// Whom queries were sent to since the last look.
std::string queried() {
    std::string text;
    for (packet const& each : take_sent()) {
        text += each.to + " ";
    }
    return text;
}

// "192.0.2.9 300", with the seconds left; " 60" for a negative entry, "none" without any.
std::string known(std::string const& name, dns_resolver::dns_type type = type_a) {
    str value;
    int seconds = 0;
    bool const is_known = dns_services.cache_lookup(to_str(name), type, value, seconds);
    return is_known ? of(value) + " " + std::to_string(seconds) : "none";
}

class dns_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        finished.clear();
        use_dhcp = str::f;
        static_dns_server1 = "192.0.2.1";
        static_dns_server3 = "[2001:db8::53]";
        static_dns_domain = "example.org";
    }
};

}  // namespace

TEST_F(dns_test, a_query_has_these_bytes) {
    unsigned int id = 0;
    for (auto const& [name, type, wanted] : table<std::string, int, bytes>{
             {"nTp.Org", 0, hex("03 6e7470 03 6f7267 00 0001")},
             {" b\t. c.d.", 1, hex("01 62 01 63 01 64 00 0021")},
             {"b..d", 2, hex("01 62 00 0001")},
             {".d", 3, hex("00 0023")},
             {"b", 4, hex("01 62 07 6578616d706c65 03 6f7267 00 001c")}}) {
        request(name, dns_resolver::dns_type(type));
        EXPECT_EQ(sent.back().data,
                  big_endian(++id, 2) + hex("01000001000000000000") + wanted + hex("0001"));
    }
    take_sent();
    request("");
    EXPECT_EQ(sent.size(), 0U);
}

TEST_F(dns_test, equal_requests_share_a_query_and_end_in_order) {
    dns_services.next_id = 65535;
    request("h.org", type_a, 1);
    request("h.org", type_a, 1000);  // Its callback makes a new request.
    request("h.org", type_a, 2);
    request("h.org", type_aaaa, 3);
    EXPECT_EQ(sent.size(), 4U);  // to two servers
    EXPECT_EQ(sent[0].data.substr(0, 2) + sent[2].data.substr(0, 2), hex("ffff 0001"));
    arrives(answer("x.org", 0, "@ 1 300 c0000209"), 77);  // cached, but not a request's
    arrives(answer("y.org", 3), 77);
    EXPECT_EQ(known("x.org") + ", " + known("y.org"), "192.0.2.9 300, none");
    arrives(answer("h.org", 3), 65535);
    arrives(answer("h.org", 3), 65535);
    EXPECT_EQ(finished, (std::vector<int>{1, 1000, 2}));
    EXPECT_EQ(dns_services.requests.count, 2);
}

TEST_F(dns_test, servers_and_default_domain_are_those_of_the_source_in_use) {
    static_dns_server1 = "::1";
    static_dns_server4 = "::2";
    dynamic_dns4_server1 = "192.0.2.3";
    dynamic_dns4_server4 = "192.0.2.4";
    dynamic_dns6_server2 = "[::5]";
    dynamic_dns4_domain = "4.org";
    for (auto const& [dhcp, dhcp6_domain, key, servers] :
         table<char const*, char const*, char const*, char const*>{
             {"false", "6.org", "A ntp.example.org", "[::1]:53 [2001:db8::53]:53 [::2]:53 "},
             {"true", "6.org", "A ntp.6.org", "192.0.2.3:53 192.0.2.4:53 [::5]:53 "},
             {"", "", "A ntp.4.org", "192.0.2.3:53 192.0.2.4:53 [::5]:53 "}}) {
        use_dhcp = dhcp;
        dynamic_dns6_domain = dhcp6_domain;
        request("ntp");
        EXPECT_TRUE(dns_services.pending.find(key)) << key;
        EXPECT_EQ(queried(), servers);
    }
}

TEST_F(dns_test, a_listed_server_that_answers_is_the_only_one_heard_from_then_on) {
    for (auto const& [code, from, best] : table<unsigned int, char const*, char const*>{
             {0, "198.51.100.7", ""},  // used, but not listed
             {1, "192.0.2.1", ""},     // not usable
             {5, "2001:db8::53", "20010db8000000000000000000000053"}}) {
        SetUp();
        request("h.org");
        arrives(answer("h.org", code), 1, from);
        EXPECT_EQ(to_hex(of(dns_resolver::best_server)), best);
        EXPECT_EQ(known("h.org"), code == 1 ? "none" : " 60");
    }
    take_sent();
    request("h.org");
    for (char const* from : {"192.0.2.1", "2001:db8::54", "2001:db8::53"}) {
        EXPECT_EQ(known("h.org"), " 60") << from;
        arrives(good, 2, from);
    }
    EXPECT_EQ(known("h.org") + ", " + queried(), "192.0.2.9 300, [2001:db8::53]:53 ");
}

TEST_F(dns_test, what_is_no_usable_answer_changes_nothing_or_parks_the_request) {
    for (auto const& [flags, copies] :
         table<char const*, size_t>{{"0180", 7}, {"8980", 7}, {"8184", 1}, {"8181", 1}}) {
        SetUp();
        request("h.org", type_a, 1);
        arrives(hex(flags) + good.substr(2));
        run_until(100);
        EXPECT_EQ(sent.size(), 2 * copies) << flags;
        EXPECT_EQ(finished.size(), copies == 7 ? 1U : 0U) << flags;
        EXPECT_EQ(known("h.org"), "none");
    }
    request("h.org", type_a, 2);
    EXPECT_EQ(sent.size(), 2U);
    arrives(good);  // after all
    EXPECT_EQ(finished, (std::vector<int>{1, 2}));
    request("other.org");
    arrives(answer("other.org", 1));
    dns_services.next_id = 2;  // after 65534 others
    request("third.org", type_a, 3);
    arrives(answer("third.org", 3));
    EXPECT_EQ(finished, (std::vector<int>{1, 2, 3})) << "the parked one makes way";
}

TEST_F(dns_test, answers_fill_the_cache_like_this) {
    for (auto const& [code, answers, authority, h, x] :
         table<unsigned int, char const*, char const*, char const*, char const*>{
             {0, "@ 1 9 c0000208 x.org 1 90 c000 H.Org 1 300 c0000209", "", "192.0.2.9 300",
              "192.0.0.0 90"},
             {0, "x.org 16 9 74657874 x.org 1 300 c0000209", "", " 60", "192.0.2.9 300"},
             {0, "@ 5 300 0178c00e", "", "none", "none"},  // An alias answers any question.
             {0, "@ 5 300 02c3a900", "", " 60", "none"},   // but not such a one
             // Negative entries live as long as the zone's REFRESH, of the last authority record.
             {3, "@ 1 300 c0000209", "@ 6 9 016e00016e000000000100000e100000000000000000", " 3600",
              "none"},
             {5, "", "@ 6 9 0000000000010000ffff @ 2 9 c00c016ec00c0000000100001c20", " 7200",
              "none"}}) {
        SetUp();
        request("h.org");
        arrives(answer("h.org", code, answers, authority));
        EXPECT_EQ(known("h.org"), h);
        EXPECT_EQ(known("x.org"), x);
    }
    SetUp();
    bytes chaos = good;
    request("h.org");
    arrives(chaos.replace(chaos.size() - 11, 1, "\x03"));  // class
    EXPECT_EQ(known("h.org"), " 60");
    arrives(good);
    request("h.org");
    arrives(answer("h.org", 3));
    EXPECT_EQ(known("h.org"), "192.0.2.9 300") << "what is known stays";
    arrives(answer("h.org", 0, "@ 28 99 20010db8000000000000000000000009"));
    EXPECT_EQ(known("h.org", type_aaaa), "[2001:db8::9] 99");
}

TEST_F(dns_test, a_name_is_decoded_as_far_as_it_goes) {
    bytes const long_label(191, 'x');
    for (auto const& [message, name] :
         table<bytes, bytes>{{"", ""},
                             {hex("03 41625a 02 6465 00"), "abz.de"},
                             {hex("bf") + long_label + hex("01 61 00"), long_label + ".a"},
                             {hex("05 6162"), "ab"},  // the rest is missing
                             {hex("01 61 c004 01 62 c008 c00a 01 63 00"), "a.b.c"},
                             {hex("01 61 c004 c006 00"), "a."},  // pointers to the empty name
                             // The pointer's low byte is signed: before the message, and to 144.
                             {hex("01 61 c090") + bytes(140, '\0') + hex("01 62 00"), "a."},
                             {hex("01 61 c190") + bytes(140, '\0') + hex("01 62 00"), "a.b"}}) {
        EXPECT_EQ(of(dns_resolver::convert_address(to_str(message))), name) << to_hex(message);
    }
    bytes labels;  // 128 of them, which are 255 bytes
    bytes text;
    for (int i = 0; i < 128; ++i) {
        labels += hex("0162");
        text += i ? ".b" : "b";
    }
    for (auto const& [message, name] :
         table<bytes, bytes>{{labels + '\0', text},
                             {labels + hex("0163 0163"), text + ".c"},
                             {bytes("\x3f") + bytes(63, 'x') + hex("bf") + bytes(191, 'y') +
                                  hex("bf") + bytes(191, 'z') + hex("0161 00"),
                              bytes(63, 'x') + '.' + bytes(191, 'y') + '.' + bytes(191, 'z')}}) {
        EXPECT_EQ(of(dns_resolver::convert_address(to_str(message))), name)
            << "a name ends once it is longer than 255 bytes";
    }
    EXPECT_EQ(dns_resolver::convert_address(to_str(hex("01 61 c000"))).length(), 256) << "a circle";
    EXPECT_EQ(of(dns_resolver::convert_address(to_str(hex("c0")))), "");
    for (int const pointers : {127, 128}) {
        bytes chain;
        for (int i = 1; i < pointers; ++i) {
            chain += big_endian(0xC000 + 2 * unsigned(i) + (2 * i >= 128 ? 256 : 0), 2);
        }
        chain += big_endian(0xC000 + 2 * unsigned(pointers) + 256, 2) + hex("01 61 00");
        EXPECT_EQ(of(dns_resolver::convert_address(to_str(chain))), pointers == 127 ? "a" : "");
    }
}

TEST_F(dns_test, an_entry_lives_its_time_but_a_minute_at_least) {
    for (auto const& [ttl, lifetime] : table<int, int>{{30, 60}, {61, 61}, {-1, 60}}) {
        dns_services.add_cache("h.org", "before", 50, type_a);
        run_for(40);
        dns_services.add_cache("h.org", "192.0.2.9", ttl, type_a);
        run_for(lifetime - 0.01);
        EXPECT_EQ(known("h.org"), "192.0.2.9 0");
        run_for(0.01);
        EXPECT_EQ(known("h.org"), "none") << ttl;
    }
}

TEST_F(dns_test, aliases_are_followed_to_their_end_or_found_to_be_a_circle) {
    for (auto const& [name, target] : table<char const*, char const*>{{"a.org", "b.org"},
                                                                      {"b.org", "c"},
                                                                      {"1.org", "2.org"},
                                                                      {"2.org", "1.org"},
                                                                      {"self.org", "self.org"},
                                                                      {"blank.org", "a.org x"}}) {
        dns_services.add_cache(name, target, 200, type_cname);
    }
    dns_services.add_cache("c.example.org", "192.0.2.9", 100, type_a);
    for (auto const& [name, address, end] :
         table<char const*, char const*, char const*>{{"a.org", "192.0.2.9 100", "c"},
                                                      {"1.org", " 0", ""},
                                                      {"self.org", " 0", "self.org"},
                                                      {"blank.org", "none", "c"}}) {
        EXPECT_EQ(known(name), address) << name;
        EXPECT_EQ(of(dns_services.resolve_alias(name)), end) << name;
    }
    EXPECT_EQ(known("a.org", type_cname), "b.org 200");
}

TEST_F(dns_test, a_full_cache_refuses_new_names_until_others_expire_but_known_ones_never) {
    unsigned int const before = str::allocated_size;
    auto const add = [](int number, str const& value) {
        str const name = str::sprintf("%05d.", number);
        dns_services.add_cache(name, value, 60 + number / 1000 * 60, type_a);
        return dns_services.cache.find(str("A ") + name);
    };
    int count = 0;
    while (add(count, "x")) {
        ++count;
    }
    EXPECT_GT(count, 400);
    EXPECT_LT(count, 900);
    EXPECT_FALSE(add(count, "x"));
    EXPECT_EQ(add(7, str('y', 300))->value, str('y', 300));
    EXPECT_LT((str::allocated_size - before) / 1024, 100U) << "a chunk counts as one block there";
    run_for(60);
    EXPECT_EQ(dns_services.cache.count, 0);
    for (int i = 0; i < count; ++i) {
        EXPECT_TRUE(add(1000 + i, "z")) << "all is free again";
    }
}

TEST_F(dns_test, no_answer_costs_more_than_it_weighs) {
    bytes labels;  // their starts lie 2 apart, pointers lead to ever new ones
    for (unsigned int i = 0; i < 32000; ++i) {
        labels += i % 96 == 95 ? big_endian(0xC000 + 2 * (i % 8000) + 13, 2) : hex("bf01");
    }
    bytes const counts = hex("8180 ffff ffff ffff ffff");
    bytes records;
    while (records.size() < 65000) {
        records += hex("c00c 0005 0001 0000012c 0000");
    }
    for (bytes const& data : {counts, counts + labels, counts + records}) {
        std::clock_t const start = std::clock();
        request("x.org");
        arrives(data);
        EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC) << data.size();
        dns_services.clear();
    }
    request("h.org");
    arrives(hex("8183 0001 0000 ffff 0000") + good.substr(10, 11));
    EXPECT_EQ(known("h.org"), " 60") << "the nothing behind the end has no lifetime";
}

TEST_F(dns_test, damaged_answers_neither_crash_nor_cost_memory) {
    bytes const whole = answer("a.b.org", 0,
                               "@ 5 300 0163c00e c.b.org 5 300 c00c @ 1 300 c0000209 "
                               "@ 28 300 20010db8000000000000000000000009",
                               "@ 6 300 c00cc00e0000000100000e10");
    int round = 0;
    expect_survives_damage(whole, [&](bytes const& damaged) {
        request("a.b.org", type_aaaa);
        bytes const flags = ++round % 4 ? hex("8180") : bytes();  // Else few would be read.
        arrives(flags + damaged.substr(std::min(flags.size(), damaged.size())));
        known("c.b.org", type_aaaa);
        dns_services.resolve_alias("a.b.org");
        dns_services.call_and_delete(dns_services.next_id - 1);  // It may be parked.
        if (round % 20 == 0) {
            dns_services.clear();
        }
        log_records.clear();
    });
}

TEST_F(dns_test, queries_copies_and_answers_allocate_nothing_in_the_long_run) {
    timeout timer;
    void (*const ask)(int) = [](int) { request("h.org"); };
    expect_allocates_nothing([&] {
        timer.callback(0, callback_argument(ask, 0));
        run_for(2);
        arrives(answer("h.org", 0, "@ 5 300 0162c00e b.org 1 300 c0000209"));
        ASSERT_EQ(known("h.org"), "192.0.2.9 300");
        run_for(400);
    });
}
