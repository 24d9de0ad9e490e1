#include "sim/sim.h"

#include "config/settings.h"
#include "dns/dns_resolver.h"
#include "lib/str_format.h"

#include <ctime>
#include <sstream>

using namespace sim;

namespace {

constexpr dns_resolver::dns_type type_a = dns_resolver::type_a;
constexpr dns_resolver::dns_type type_aaaa = dns_resolver::type_aaaa;

// The callback tells its number; the last one asks anew.
void request(std::string const& name, int number = 0, dns_resolver::dns_type type = type_a) {
    void (*const note)(int) = [](int ended) {
        say("end of " + std::to_string(ended));
        if (ended == 9) {
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

void arrives(bytes const& data, int id = dns_services.next_id - 1, std::string const& from = "") {
    int const fd = from.find(':') == std::string::npos ? dns_socket4 : dns_socket6;
    datagram_arrives_at(fd, big_endian(unsigned(id), 2) + data, from.empty() ? "192.0.2.1" : from);
    run_for(0);
}

// "192.0.2.9 300", with the seconds left; " 60" for a negative entry, "none" without any.
std::string known(std::string const& name, dns_resolver::dns_type type = type_a) {
    str value;
    int seconds = 0;
    bool const is_known = dns_services.cache_lookup(to_str(name), type, value, seconds);
    return is_known ? of(value) + " " + std::to_string(seconds) : "none";
}

events const world = {
    {"ask", [](auto& name) { request(name); }},
    {"ask1", [](auto& name) { request(name, 1); }},
    {"ask2", [](auto& name) { request(name, 2); }},
    {"ask9", [](auto& name) { request(name, 9); }},
    {"aaaa", [](auto& name) { request(name, 3, type_aaaa); }},
    {"srv", [](auto& name) { request(name, 4, dns_resolver::type_srv); }},
    {"good", [](auto& from) { arrives(good, dns_services.next_id - 1, from); }},
    {"refused", [](auto& from) { arrives(answer("h.org", 5), dns_services.next_id - 1, from); }},
    {"unusable", [](auto& from) { arrives(answer("h.org", 1), dns_services.next_id - 1, from); }},
    {"bad", [](auto& flags) { arrives(hex(flags) + good.substr(2)); }},
    {"known", [](auto& name) { say(known(name)); }},
    {"add",
     [](auto& ttl) { dns_services.add_cache("h.org", "192.0.2.9", std::stoi(ttl), type_a); }},
    {"alias",
     [](auto& text) {
         str const names = to_str(text);
         dns_services.add_cache(names.get_field(0, '='), names.get_field(1, '='), 200,
                                dns_resolver::type_cname);
     }},
    {"end", [](auto& name) { say(of(dns_services.resolve_alias(to_str(name)))); }},
    {"ids", [](auto& id) { dns_services.next_id = std::stoi(id); }},
    {"id", [](auto& id) { arrives(answer("h.org", 3), std::stoi(id)); }},
};

class dns_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        use_dhcp = str::f;
        static_dns_server1 = "192.0.2.1";
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
             {"b", 4, hex("01 62 07 6578616d706c65 03 6f7267 00 001c")},
             {"", 0, hex("01 62 07 6578616d706c65 03 6f7267 00 001c")}}) {
        request(name, 0, dns_resolver::dns_type(type));
        EXPECT_BYTES(sent.back().data, big_endian(name.empty() ? id : ++id, 2) +
                                           hex("01000001000000000000") + wanted + hex("0001"));
    }
}

TEST_F(dns_test, requests_are_copied_shared_answered_or_given_up_like_this) {
    for (auto const& [server2, script, story] : table<char const*, char const*, char const*>{
             {"", "ask1:h.org 30",
              "0 0.5 1.5 3.5 7.5 11.5 15.5 A h.org to 192.0.2.1:53, 19.5 end of 1"},
             // Equal requests share one query and end in order; ids wrap behind 65,535.
             {"",
              "ids:65535 ask1:h.org ask9:h.org ask2:h.org aaaa:H.org id:77 known:h.org id:65535 "
              "id:65535 known:h.org id:1",
              "0 A h.org to 192.0.2.1:53, AAAA h.org to 192.0.2.1:53, none, end of 1, end of 9, A "
              "h.org to 192.0.2.1:53, end of 2,  60, end of 3"},
             // The first listed server that gives a usable answer is the only one heard.
             {"[2001:db8::53]", "ask:h.org good:198.51.100.7 ask:x.org",
              "0 A h.org to 192.0.2.1:53, A h.org to [2001:db8::53]:53, end of 0, A x.org to "
              "192.0.2.1:53, A x.org to [2001:db8::53]:53"},
             {"[2001:db8::53]",
              "ask:h.org refused:2001:db8::53 known:h.org ask:x.org good:192.0.2.1 "
              "good:2001:db8::54 known:h.org good:2001:db8::53 known:h.org srv:x.org 12",
              "0 A h.org to 192.0.2.1:53, A h.org to [2001:db8::53]:53, end of 0,  60, A x.org to "
              "[2001:db8::53]:53,  60, end of 0, 192.0.2.9 300, 0 0.5 1.5 3.5 7.5 SRV x.org to "
              "[2001:db8::53]:53, 11.5 SRV x.org to 192.0.2.1:53, SRV x.org to [2001:db8::53]:53"},
             // What is no standard response does nothing; an unusable one parks the request, until
             // an answer comes after all, or its id is needed.
             {"", "ask1:h.org bad:0180 bad:8980 0.5 bad:8184 100 ask2:h.org known:h.org good",
              "0 0.5 A h.org to 192.0.2.1:53, 100.5 none, end of 1, end of 2"},
             {"", "ask1:h.org unusable 9 ids:1 ask2:third.org id:1",
              "0 A h.org to 192.0.2.1:53, 9 A third.org to 192.0.2.1:53, end of 2"}}) {
        SetUp();
        static_dns_server3 = server2;
        EXPECT_EQ(play(world, script), story) << script;
    }
}

TEST_F(dns_test, servers_and_default_domain_are_those_of_the_source_in_use) {
    static_dns_server1 = "::1";
    static_dns_server4 = "::2";
    dynamic_dns4_server1 = "192.0.2.3";
    dynamic_dns4_server4 = "192.0.2.4";
    dynamic_dns6_server2 = "[::5]";
    dynamic_dns4_domain = "4.org";
    default_interface_index = 2;
    std::string const learnt = " to 192.0.2.3:53, A n.6.org to 192.0.2.4:53, A n.6.org to [::5]:53";
    for (auto const& [dhcp, domain6, queries] : table<char const*, char const*, std::string>{
             {"false", "6.org", "0 A n.example.org to [::1]:53, A n.example.org to [::2]:53"},
             {"true", "6.org", "0 A n.6.org" + learnt},
             {"", "",
              "0 A n.4.org to 192.0.2.3:53, A n.4.org to 192.0.2.4:53, A n.4.org to "
              "[::5]:53"}}) {
        use_dhcp = dhcp;
        dynamic_dns6_domain = domain6;
        EXPECT_EQ(play(world, "ask:n"), queries);
    }
    SetUp();
    static_dns_server1.clear();
    default_interface_index = 2;
    play(world, "ask:m");
    dns_services.request_dns("k", type_a, callback_argument());
    EXPECT_EQ(sent.at(0).interface, "eth1");
    EXPECT_EQ(left(), "0 A k.example.org to [ff02::1:3]:5355, A k.example.org to 224.0.0.252:5355");
}

TEST_F(dns_test, answers_fill_the_cache_like_this) {
    for (auto const& [code, answers, authority, h, x] :
         table<unsigned int, char const*, char const*, char const*, char const*>{
             {0, "@ 1 9 c0000208 x.org 1 90 c000 H.Org 1 300 c0000209", "", "192.0.2.9 300",
              "192.0.0.0 90"},
             {0, "x.org 16 9 74657874 x.org 1 300 c0000209", "", " 60", "192.0.2.9 300"},
             {0, "@ 28 300 20010db8000000000000000000000009", "", " 60", "none"},
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
        EXPECT_EQ(known("h.org") + ", " + known("x.org"), std::string(h) + ", " + x) << answers;
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
    request("z.org");
    arrives(hex("8183 0001 0000 ffff 0000") + encoded("z.org") + hex("00010001"));
    EXPECT_EQ(known("z.org"), " 60") << "the nothing behind the end has no lifetime";
}

TEST_F(dns_test, a_name_is_decoded_as_far_as_it_goes) {
    bytes const long_label(191, 'x');
    bytes labels, text;  // 128 of them, which are 255 bytes
    for (int i = 0; i < 128; ++i) {
        labels += hex("0162");
        text += i ? ".b" : "b";
    }
    auto const chain = [](unsigned int pointers) {
        bytes result;
        for (unsigned int i = 1; i <= pointers; ++i) {  // The low byte is signed.
            result += big_endian(0xC000 + 2 * i + (2 * i >= 128 ? 256 : 0), 2);
        }
        return result + hex("01 61 00");
    };
    for (auto const& [message, name] : table<bytes, bytes>{
             {"", ""},
             {hex("c0"), ""},
             {hex("03 41625a 02 6465 00"), "abz.de"},
             {hex("bf") + long_label + hex("01 61 00"), long_label + ".a"},
             {hex("05 6162"), "ab"},  // the rest is missing
             {hex("01 61 c004 01 62 c008 c00a 01 63 00"), "a.b.c"},
             {hex("01 61 c004 c006 00"), "a."},  // pointers to the empty name
             // The pointer's low byte is signed: before the message, and to 144.
             {hex("01 61 c090") + bytes(140, '\0') + hex("01 62 00"), "a."},
             {hex("01 61 c190") + bytes(140, '\0') + hex("01 62 00"), "a.b"},
             {labels + '\0', text},
             {labels + hex("0163 0163"), text + ".c"},  // longer than 255 bytes: its end
             {chain(127), "a"},
             {chain(128), ""}}) {
        EXPECT_EQ(of(dns_resolver::convert_address(to_str(message))), name) << to_hex(message);
    }
    EXPECT_EQ(dns_resolver::convert_address(to_str(hex("01 61 c000"))).length(), 256) << "a circle";
}

TEST_F(dns_test, entries_live_their_time_and_aliases_end_or_are_found_to_be_a_circle) {
    EXPECT_EQ(
        play(world, "add:30 59.99 known:h.org 0.01 known:h.org add:61 60.99 known:h.org 0.01 "
                    "known:h.org add:50 40 add:-1 59.99 known:h.org 0.01 known:h.org"),
        "59.99 192.0.2.9 0, 60 none, 120.99 192.0.2.9 0, 121 none, 220.99 192.0.2.9 0, 221 none");
    static_dns_domain = "org";
    dns_services.add_cache("blank.org", "a.org x", 200, dns_resolver::type_cname);
    EXPECT_EQ(play(world, "alias:a.org=b.org alias:b.org=h alias:1.org=2.org alias:2.org=1.org "
                          "alias:self.org=self.org add:100 known:a.org end:a.org known:1.org "
                          "end:1.org known:self.org end:self.org known:blank.org end:blank.org"),
              "221 192.0.2.9 100, h,  0, ,  0, self.org, none, h");
    EXPECT_EQ(known("a.org", dns_resolver::type_cname), "b.org 200");
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
    EXPECT_TRUE(count > 400 && count < 900 && !add(count, "x"));
    EXPECT_EQ(add(7, str('y', 300))->value, str('y', 300));
    EXPECT_LT((str::allocated_size - before) / 1024, 100U) << "a chunk counts as one block there";
    run_for(60);
    EXPECT_EQ(dns_services.cache.count, 0);
    for (int i = 0; i < count; ++i) {
        EXPECT_TRUE(add(1000 + i, "z")) << "all is free again";
    }
}

TEST_F(dns_test, no_answer_costs_more_than_it_weighs_nor_allocates_in_the_long_run) {
    bytes labels, records;
    for (unsigned int i = 0; i < 32000; ++i) {  // Pointers lead to ever new starts, 2 apart.
        labels += i % 96 == 95 ? big_endian(0xC000 + 2 * (i % 8000) + 13, 2) : hex("bf01");
        records += i < 5000 ? hex("c00c 0005 0001 0000012c 0000") : "";
    }
    bytes const counts = hex("8180 ffff ffff ffff ffff");
    for (bytes const& data : {counts, counts + labels, counts + records.substr(0, 65000)}) {
        std::clock_t const start = std::clock();
        request("x.org");
        arrives(data);
        EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC) << data.size();
        dns_services.clear();
    }
    unsigned int allocated = 0;
    for (int i = 0; i < 300; ++i) {
        allocated = i == 100 ? str::allocated_size : allocated;
        play(world, "ask:h.org 2 good:192.0.2.1 400");
        log_records.clear();
    }
    EXPECT_EQ(str::allocated_size, allocated);
}
