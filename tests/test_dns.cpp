#include "sim/sim.h"

#include "config/settings.h"
#include "core/link_monitor.h"
#include "dns/dns_resolver.h"
#include "lib/utils.h"

#include <cerrno>
#include <cmath>
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

// From "OWNER TYPE TTL DATA", the data in hex; "@" is the name in the question.
bytes record(std::string const& text) {
    std::istringstream fields(text);
    std::string owner, data;
    unsigned int type = 0, ttl = 0;
    fields >> owner >> type >> ttl >> data;
    return (owner == "@" ? hex("c00c") : encoded(owner)) + big_endian(type, 2) + hex("0001") +
           big_endian(ttl, 4) + big_endian(unsigned(data.size() / 2), 2) + hex(data);
}

// An answer for type A, without its id.
bytes answer(std::string const& name, unsigned int code, lines const& answers,
             lines const& authority = {}) {
    bytes data =
        big_endian(0x8180 + code, 2) + hex("0001") + big_endian(unsigned(answers.size()), 2) +
        big_endian(unsigned(authority.size()), 2) + hex("0000") + encoded(name) + hex("0001 0001");
    for (lines const* section : {&answers, &authority}) {
        for (std::string const& each : *section) {
            data += record(each);
        }
    }
    return data;
}

void arrives(bytes const& data, int id = dns_services.next_id - 1,
             std::string const& from = "192.0.2.1") {
    int const fd = from.find(':') == std::string::npos ? dns_socket4 : dns_socket6;
    datagram_arrives_at(fd, big_endian(unsigned(id), 2) + data, from);
    run_for(0);
}

// Queries sent since the last look: "500 192.0.2.1:53, ...", in ms since the moment.
std::string queries(double since = 0) {
    std::string text;
    for (packet const& each : take_sent()) {
        text += (text.empty() ? "" : ", ") + std::to_string(std::lround((each.at - since) * 1000)) +
                " " + each.to + (each.interface.empty() ? "" : " on " + each.interface);
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

// --- Requests ---

TEST_F(dns_test, a_query_has_these_bytes) {
    unsigned int id = 0;
    for (auto const& [name, type, wanted] : table<std::string, int, bytes>{
             {"nTp.Org", 0, hex("03 6e7470 03 6f7267 00 0001 0001")},
             {" b\t. c.d.", 1, hex("01 62 01 63 01 64 00 0021 0001")},
             {"b..d", 2, hex("01 62 00 0001 0001")},
             {".d", 3, hex("00 0023 0001")},
             {"b." + bytes(300, 'x'), 7, hex("01 62 2c") + bytes(300, 'x') + hex("00 0001 0001")},
             {"b", 4, hex("01 62 07 6578616d706c65 03 6f7267 00 001c 0001")}}) {
        request(name, dns_resolver::dns_type(type));
        EXPECT_EQ(sent.back().data, big_endian(++id, 2) + hex("01000001000000000000") + wanted);
    }
    EXPECT_EQ(count_logged("9 DNS: Request A nTp.Org"), 1);
    take_sent();
    request("");
    EXPECT_EQ(count_logged("6 DNS: Cannot resolve empty DNS address") + int(sent.size()), 1);
}

TEST_F(dns_test, a_name_without_a_dot_belongs_to_the_default_domain) {
    for (auto const& [dhcp, fixed, dhcp4, dhcp6, key] :
         table<char const*, char const*, char const*, char const*, char const*>{
             {"false", "s.org", "4.org", "6.org", "A ntp.s.org"},
             {"false", "", "4.org", "6.org", "A ntp"},
             {"true", "s.org", "4.org", "6.org", "A ntp.6.org"},
             {"", "s.org", "4.org", "", "A ntp.4.org"}}) {
        SetUp();
        use_dhcp = dhcp;
        static_dns_domain = fixed;
        dynamic_dns4_domain = dhcp4;
        dynamic_dns6_domain = dhcp6;
        request("ntp");
        EXPECT_TRUE(dns_services.pending.find(key)) << key;
    }
}

TEST_F(dns_test, copies_are_sent_on_schedule_until_a_request_is_given_up) {
    std::string wanted;
    for (bool const has_best : {true, false}) {
        for (int const at : {0, 500, 1500, 3500, 7500, 11500, 15500}) {
            wanted += (wanted.empty() ? "" : ", ") + std::to_string(at) + " 192.0.2.1:53";
            wanted +=
                has_best && at < 11500 ? "" : ", " + std::to_string(at) + " [2001:db8::53]:53";
        }
        double const start = now();
        dns_resolver::best_server = has_best ? to_str(hex("c0000201")) : str::null;
        request("h.org");
        run_until(start + 11.49);
        EXPECT_EQ(dns_resolver::best_server.empty(), !has_best);
        run_until(start + 19.49);
        for (packet const& each : sent) {
            EXPECT_EQ(each.data, sent[0].data);
        }
        EXPECT_EQ(queries(start), wanted);
        EXPECT_EQ(finished.size(), 0U);
        run_until(start + 19.5);
        EXPECT_EQ(finished.size(), 1U);
        SetUp();
        wanted.clear();
    }
    fail("socket", EMFILE);
    request("h.org");
    run_until(19.49);
    EXPECT_EQ(finished.size(), 0U);
    run_until(1000);
    EXPECT_EQ(finished.size(), 1U) << "without sockets, too";
    dns_resolver::resend_request(1);
    EXPECT_EQ(count_logged("1 DNS: Resending packet 1 not found"), 1);
}

TEST_F(dns_test, equal_requests_share_a_query_and_end_in_order) {
    dns_services.next_id = 65535;
    request("h.org", type_a, 1);
    request("h.org", type_a, 1000);  // Its callback makes a new request.
    request("h.org", type_a, 2);
    request("h.org", type_aaaa, 3);
    EXPECT_EQ(sent.size(), 4U);  // to two servers
    EXPECT_EQ(sent[0].data.substr(0, 2) + sent[2].data.substr(0, 2), hex("ffff 0001"));
    arrives(answer("x.org", 0, {"@ 1 300 c0000209"}), 77);  // cached, but not a request's
    arrives(answer("y.org", 3, {}), 77);
    EXPECT_EQ(finished.size(), 0U);
    EXPECT_EQ(known("x.org") + ", " + known("y.org"), "192.0.2.9 300, none");
    arrives(answer("h.org", 3, {}), 65535);
    arrives(answer("h.org", 3, {}), 65535);
    EXPECT_EQ(finished, (std::vector<int>{1, 1000, 2}));
    EXPECT_EQ(dns_services.requests.count, 2);
}

// --- Servers ---

TEST_F(dns_test, queries_go_to_the_servers_of_the_source_in_use) {
    str* const servers[] = {&static_dns_server1, &static_dns_server4, &dynamic_dns4_server1,
                            &dynamic_dns4_server4, &dynamic_dns6_server2};
    std::string const multicast = "0 [ff02::1:3]:5355 on eth1.7, 0 224.0.0.252:5355";
    for (auto const& [dhcp, values, wanted] : table<char const*, lines, std::string>{
             {"false", {"192.0.2.1", "::2", "192.0.2.3"}, "0 192.0.2.1:53, 0 [::2]:53"},
             {"true",
              {"::1", "", "192.0.2.3", "192.0.2.4", "[::5]"},
              "0 192.0.2.3:53, 0 192.0.2.4:53, 0 [::5]:53"},
             {"", {"192.0.2.1", "", "", "", "[::5]"}, "0 [::5]:53"},
             {"true", {"192.0.2.1", "::2"}, multicast},
             {"false", {"", "", "192.0.2.3"}, multicast}}) {
        SetUp();
        use_dhcp = dhcp;
        static_dns_server3.clear();
        for (size_t i = 0; i < 5; ++i) {
            *servers[i] = i < values.size() ? values[i].c_str() : "";
        }
        default_interface_index = 2;
        request("opens.sockets");
        interfaces["eth1.7"] = default_interface_index = 9;
        take_sent();
        request("h.org");
        EXPECT_EQ(queries(), wanted);
    }
}

TEST_F(dns_test, a_listed_server_that_answers_is_the_only_one_heard_from_then_on) {
    for (auto const& [code, from, best] : table<unsigned int, char const*, char const*>{
             {0, "198.51.100.7", ""},  // used, but not listed
             {1, "192.0.2.1", ""},     // not usable
             {5, "2001:db8::53", "20010db8000000000000000000000053"}}) {
        SetUp();
        request("h.org");
        arrives(answer("h.org", code, {}), 1, from);
        EXPECT_EQ(to_hex(of(dns_resolver::best_server)) + (code == 1 ? "" : " 60"),
                  best + (code == 1 ? "" : known("h.org")));
    }
    take_sent();
    request("h.org");
    for (char const* from : {"192.0.2.1", "198.51.100.7", "2001:db8::54", "2001:db8::53"}) {
        EXPECT_EQ(known("h.org"), " 60") << from;
        arrives(answer("h.org", 0, {"@ 1 300 c0000209"}), 2, from);
    }
    EXPECT_EQ(known("h.org") + ", " + queries(), "192.0.2.9 300, 0 [2001:db8::53]:53");
}

// --- Answers ---

TEST_F(dns_test, what_is_no_usable_answer_changes_nothing_or_parks_the_request) {
    bytes const good = answer("h.org", 0, {"@ 1 300 c0000209"});
    for (auto const& [flags, is_parked] : table<char const*, bool>{
             {"0180", false}, {"8980", false}, {"8181", true}, {"8184", true}, {"818f", true}}) {
        SetUp();
        request("h.org", type_a, 1);
        arrives(hex(flags) + good.substr(2));
        take_sent();
        run_until(1);
        EXPECT_EQ(sent.size(), is_parked ? 0U : 2U) << flags;
        run_until(100);
        EXPECT_EQ(finished.size(), is_parked ? 0U : 1U) << flags;
        EXPECT_EQ(known("h.org"), "none");
    }
    take_sent();
    request("h.org", type_a, 2);
    EXPECT_EQ(sent.size(), 0U);
    arrives(good);  // after all
    EXPECT_EQ(finished, (std::vector<int>{1, 2}));
    request("other.org");
    arrives(answer("other.org", 1, {}));
    dns_services.next_id = 2;  // after 65534 others
    request("third.org", type_a, 3);
    arrives(answer("third.org", 3, {}));
    EXPECT_EQ(finished, (std::vector<int>{1, 2, 3})) << "the parked one makes way";
}

TEST_F(dns_test, answers_fill_the_cache_like_this) {
    std::string const soa = " 026e73c00c c00c 00000001 ";  // up to the serial number
    for (auto const& [code, answers, authority, h, x] :
         table<unsigned int, lines, lines, char const*, char const*>{
             {0,
              {"@ 1 9 c0000208", "x.org 1 90 c000", "H.Org 1 300 c0000209"},
              {},
              "192.0.2.9 300",
              "192.0.0.0 90"},
             {0, {"x.org 16 9 74657874", "x.org 1 300 c0000209"}, {}, " 60", "192.0.2.9 300"},
             {0, {"@ 5 300 0178c00e"}, {}, "none", "none"},  // An alias answers any question.
             {0, {"@ 5 300 02c3a900"}, {}, " 60", "none"},   // but not such a one
             {0, {"@ 28 99 20010db8000000000000000000000009"}, {}, " 60", "none"},
             // Negative entries live as long as the zone's REFRESH, of the last authority record.
             {3,
              {"@ 1 300 c0000209"},
              {"@ 6 9 016e00016e000000000100000e100000000000000000"},
              " 3600",
              "none"},
             {5,
              {},
              {"@ 6 9 0000000000010000ffff", "@ 2 9 c00c016ec00c0000000100001c20"},
              " 7200",
              "none"},
             {2, {}, {"@ 6 9 000000000001ffffffff"}, " 60", "none"},
             {0, {}, {}, " 60", "none"}}) {
        SetUp();
        request("h.org");
        arrives(answer("h.org", code, answers, authority));
        EXPECT_EQ(known("h.org"), h);
        EXPECT_EQ(known("x.org"), x);
        EXPECT_EQ(known("H.org"), "none") << "names count in lower case only";
        EXPECT_EQ(count_logged("1 DNS: Received invalid address specification"),
                  answers == lines{"@ 5 300 02c3a900"});
    }
    request("h.org", type_aaaa);
    arrives(answer("h.org", 0, {"@ 28 99 20010db8000000000000000000000009"}));
    EXPECT_EQ(known("h.org", type_aaaa), "[2001:db8::9] 99");
    bytes chaos = answer("h.org", 0, {"@ 1 300 c0000209"});
    request("h.org");
    arrives(chaos.replace(chaos.size() - 11, 1, "\x03"));  // class
    EXPECT_EQ(known("h.org"), " 60");
    arrives(answer("h.org", 0, {"@ 1 300 c0000209"}));
    request("h.org");
    arrives(answer("h.org", 3, {}));
    EXPECT_EQ(known("h.org"), "192.0.2.9 300") << "what is known stays";
}

TEST_F(dns_test, a_name_is_decoded_as_far_as_it_goes) {
    bytes const long_label(191, 'x');
    for (auto const& [message, name] :
         table<bytes, bytes>{{"", ""},
                             {hex("03 41625a 02 6465 00"), "abz.de"},
                             {hex("bf") + long_label + hex("01 61 00"), long_label + ".a"},
                             {hex("05 6162"), "ab"},  // the rest is missing
                             {hex("01 61 05"), "a."},
                             {hex("01 61 c004 01 62 c008 c00a 01 63 00"), "a.b.c"},
                             {hex("01 61 c004 c006 00"), "a."},  // pointers to the empty name
                             // The pointer's low byte is signed: before the message, and to 144.
                             {hex("01 61 c090") + bytes(140, '\0') + hex("01 62 00"), "a."},
                             {hex("01 61 c190") + bytes(140, '\0') + hex("01 62 00"), "a.b"}}) {
        EXPECT_EQ(of(dns_resolver::convert_address(to_str(message))), name) << to_hex(message);
    }
    for (char const* circle : {"c0", "c000", "01 61 c000", "01 61 c004 01 62 c000", "c002 c000"}) {
        EXPECT_LE(dns_resolver::convert_address(to_str(hex(circle))).length(), 8) << circle;
    }
}

// --- The cache ---

TEST_F(dns_test, an_entry_lives_its_time_but_a_minute_at_least) {
    for (auto const& [ttl, lifetime] :
         table<int, int>{{0, 60}, {30, 60}, {61, 61}, {86400, 86400}, {-1, 60}}) {
        dns_services.add_cache("h.org", "before", 50, type_a);
        run_for(40);
        dns_services.add_cache("h.org", "192.0.2.9", ttl, type_a);
        EXPECT_EQ(known("h.org"), "192.0.2.9 " + std::to_string(lifetime));
        run_for(lifetime - 0.01);
        EXPECT_EQ(known("h.org"), "192.0.2.9 0");
        run_for(0.01);
        EXPECT_EQ(known("h.org"), "none") << ttl;
    }
    for (char const* status : {"eth1 : port : up", "eth1 : port : down"}) {
        dns_services.add_cache("h.org", "192.0.2.9", 300, type_a);
        files["/proc/avalanche/cpmac_link"].content = status;
        link_monitor("eth1");
        EXPECT_EQ(known("h.org") == "none", status[14] == 'd') << status;
    }
}

TEST_F(dns_test, aliases_are_followed_to_their_end_or_found_to_be_a_circle) {
    for (auto const& [name, target] : table<char const*, char const*>{{"a.org", "b.org"},
                                                                      {"b.org", "c"},
                                                                      {"1.org", "2.org"},
                                                                      {"2.org", "1.org"},
                                                                      {"self.org", "self.org"},
                                                                      {"blank.org", "b.org x"},
                                                                      {"nothing.org", ""}}) {
        dns_services.add_cache(name, target, 200, type_cname);
    }
    dns_services.add_cache("c.example.org", "192.0.2.9", 100, type_a);
    for (auto const& [name, address, alias, end] :
         table<char const*, char const*, char const*, char const*>{
             {"a.org", "192.0.2.9 100", "b.org 200", "c"},
             {"c", "192.0.2.9 100", "none", "c"},
             {"1.org", " 0", "2.org 200", ""},
             {"self.org", " 0", "self.org 200", "self.org"},
             {"blank.org", "none", "b.org x 200", "c"},
             {"nothing.org", "none", " 200", ""}}) {
        EXPECT_EQ(known(name), address) << name;
        EXPECT_EQ(known(name, type_cname), alias) << name;
        EXPECT_EQ(of(dns_services.resolve_alias(name)), end) << name;
    }
}

TEST_F(dns_test, the_cache_refuses_more_than_four_megabytes) {
    auto const add = [](int number, int size) {
        str const name = str::sprintf("%04d.", number);
        dns_services.add_cache(name, str('x', size - 7), 60, type_a);  // a key of 7 bytes
        return dns_services.cache.find(str("A ") + name) != nullptr;
    };
    for (int i = 0; i < 63; ++i) {
        EXPECT_TRUE(add(i, 65536)) << i;
    }
    run_for(30);
    EXPECT_FALSE(add(63, 65537));
    EXPECT_TRUE(add(63, 65536));
    EXPECT_FALSE(add(64, 8));
    run_for(30);
    EXPECT_TRUE(add(64, 63 * 65536)) << "others have expired";
    dns_services.clear();
    EXPECT_TRUE(add(64, 4 * 1024 * 1024));
}

// --- Robustness ---

TEST_F(dns_test, an_answer_full_of_long_chains_takes_less_than_a_second) {
    bytes chain;  // each link leads to the next, the last to the question
    for (unsigned int target = 0x25; chain.size() < 8000; target += 2) {
        chain += big_endian(0xC000 + target + (target & 0x80) * 2, 2);  // The low byte is signed.
    }
    lines records(4000, "@ 5 300 c023");
    records[0] = "@ 16 0 " + to_hex(chain) + "c00c";
    bytes data = answer("x.org", 0, records);
    for (size_t at = data.size(); at > 8040; at -= 14) {
        data.replace(at - 14, 2, hex("c023"));
    }
    EXPECT_LT(data.size(), 65506U) << "fits a datagram";
    request("x.org");
    std::clock_t const start = std::clock();
    arrives(data);
    EXPECT_EQ(known("x.org", type_cname), "x.org 300");
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC);
}

TEST_F(dns_test, damaged_answers_neither_crash_nor_cost_memory) {
    bytes const good = answer("a.b.org", 0,
                              {"@ 5 300 0163c00e", "c.b.org 5 300 c00c", "@ 1 300 c0000209",
                               "@ 28 300 20010db8000000000000000000000009"},
                              {"@ 6 300 c00cc00e0000000100000e10"});
    int round = 0;
    expect_survives_damage(good, [&](bytes const& damaged) {
        request("a.b.org", type_aaaa);
        bytes const flags = ++round % 4 ? hex("8180") : bytes();  // Else few would be read.
        arrives(flags + damaged.substr(std::min(flags.size(), damaged.size())));
        for (char const* name : {"a.b.org", "c.b.org", "b", ""}) {
            known(name, type_aaaa);
            dns_services.resolve_alias(name);
        }
        dns_services.call_and_delete(dns_services.next_id - 1);  // It may be parked.
        if (round % 20 == 0) {
            dns_services.clear();
        }
        take_sent();
        log_records.clear();
    });
}

TEST_F(dns_test, queries_copies_and_answers_allocate_nothing_in_the_long_run) {
    timeout timer;
    void (*const ask)(int) = [](int) { request("h.org"); };
    unsigned int allocated = 0;
    for (int i = 0; i < 1000; ++i) {
        if (i == 100) {  // warm
            allocated = str::allocated_size;
            allocations = 0;
        }
        timer.callback(0, callback_argument(ask, 0));
        run_for(2);
        arrives(answer("h.org", 0, {"@ 5 300 0162c00e", "b.org 1 300 c0000209"}));
        ASSERT_EQ(known("h.org"), "192.0.2.9 300");
        run_for(400);
        take_sent();
        log_records.clear();
        finished.clear();
    }
    EXPECT_EQ(str::allocated_size, allocated);
    EXPECT_EQ(allocations, 0);
}
