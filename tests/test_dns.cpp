#include "sim/sim.h"

#include "config/settings.h"
#include "dns/dns_resolver.h"
#include "lib/str_format.h"

using namespace sim;

namespace {

str word(std::string const& text, int n) {
    return to_str(text).get_field(n, '/');
}

// "NAME/NUMBER/TYPE": the callback tells the number; 9 asks anew.
void request(std::string const& text) {
    void (*const note)(int) = [](int number) {
        say("end of " + std::to_string(number));
        number == 9 ? request("h.org") : void();
    };
    dns_services.request_dns(word(text, 0), dns_resolver::dns_type(word(text, 2).value()),
                             callback_argument(note, word(text, 1).value()));
}

// An answer about h.org, whose name is at offset 12; to the newest request if there is no id.
void arrives(std::string const& flags, std::string const& counts, std::string const& records,
             int id = 0, std::string const& from = "192.0.2.1") {
    unsigned int const to = unsigned(id ? id : dns_services.next_id - 1);
    int const fd = from.find(':') == std::string::npos ? dns_socket4 : dns_socket6;
    std::string const question = "01 68 03 6f7267 00 0001 0001";
    datagram_arrives_at(
        fd, big_endian(to, 2) + hex(flags + "0001" + counts + "0000" + question + records), from);
    run_for(0);
}

// 192.0.2.9, for 300 seconds
void good(str const& flags, int id, str const& from = "192.0.2.1") {
    arrives(of(flags), "0001 0000", "c00c 0001 0001 0000012c 0004 c0000209", id, of(from));
}

events const world = {
    {"ask", [](auto& text) { request(text); }},
    {"get", [](auto& text) { good(word(text, 0), word(text, 1).value()); }},
    {"from", [](auto& text) { good(word(text, 1), 0, word(text, 0)); }},
    {"next", [](auto& id) { dns_services.next_id = std::stoi(id); }},
    {"second", [](auto&) { static_dns_server4 = "[2001:db8::53]"; }},
    {"none", [](auto&) { static_dns_server1.clear(); }},
    {"dhcp", [](auto& text) { use_dhcp = to_str(text); }},
    {"dhcp6", [](auto& domain) { dynamic_dns6_domain = to_str(domain); }},
    {"add", [](auto& ttl) { dns_services.add_cache("h.org", "::9", std::stoi(ttl), {}); }},
    {"alias",
     [](auto& text) {
         dns_services.add_cache(word(text, 0), word(text, 1), 200, dns_resolver::type_cname);
     }},
    {"find",  // NAME/TYPE: its value, the seconds left, and where its aliases end
     [](auto& text) {
         str value;
         int seconds = 0;
         bool const is_known = dns_services.cache_lookup(
             word(text, 0), dns_resolver::dns_type(word(text, 1).value()), value, seconds);
         str const end = dns_services.resolve_alias(word(text, 0));
         say(of(str::sprintf("%S%s %d %s", is_known ? "" : "no ", value, seconds, end)));
     }},
};

class dns_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        use_dhcp = str::f;
        static_dns_server1 = "192.0.2.1";
        static_dns_domain = "org";
        dynamic_dns4_server1 = "192.0.2.3";
        dynamic_dns6_server4 = "[::5]";
        dynamic_dns4_domain = "4.org";
        interfaces["eth9"] = default_interface_index = 9;
    }
};

}  // namespace

TEST_F(dns_test, requests_are_sent_copied_shared_answered_or_given_up_like_this) {
    request(" nTp\t. Org.");
    EXPECT_BYTES(sent.at(0).data,
                 hex("0001 0100 0001 0000 0000 0000 03 6e7470 03 6f7267 00 0001 0001"));
    tell(
        world,
        {{"ask: ask:h/1 30 log",
          "0 0.5 1.5 3.5 7.5 11.5 15.5 A h.org to 192.0.2.1:53, 19.5 end of 1, 30 6 DNS: Cannot "
          "resolve empty DNS address, 9 DNS: Request A h"},
         // Equal requests share one query and end in order; ids wrap behind 65,535.
         {"next:65535 ask:h.org/1 ask:h.org/9 ask:h.org/2 ask:H.org/3/4 get:8183/77 find:h.org "
          "get:8183/65535 get:8183/65535 find:h.org get:8183/1",
          "0 A h.org to 192.0.2.1:53, AAAA h.org to 192.0.2.1:53, no  0 h.org, end of 1, end of 9, "
          "A h.org to 192.0.2.1:53, end of 2,  60 h.org, end of 3"},
         // The first listed server that gives a usable answer is the only one heard, until it
         // has fallen silent.
         {"second ask:h.org from:198.51.100.7/8185 ask:.d/0/3 from:2001:db8::53/8185 ask:x.org "
          "from:192.0.2.1/8180 from:2001:db8::54/8180 find:h.org from:2001:db8::53/8180 "
          "ask:b..d/0/1 from:2001:db8::53/8183 find:h.org/1 find:h.org ask:x.org/0/1 12",
          "0 A h.org to 192.0.2.1:53, A h.org to [2001:db8::53]:53, end of 0, NAPTR  to "
          "192.0.2.1:53, NAPTR  to [2001:db8::53]:53, end of 0, A x.org to [2001:db8::53]:53,  60 "
          "h.org, end of 0, SRV b to [2001:db8::53]:53, end of 0,  60 h.org, 192.0.2.9 300 h.org, "
          "0 0.5 1.5 3.5 7.5 SRV x.org to [2001:db8::53]:53, 11.5 SRV x.org to 192.0.2.1:53, SRV "
          "x.org to [2001:db8::53]:53"},
         // What is no standard response does nothing; an unusable one parks the request, until an
         // answer comes after all, or its id is needed.
         {"ask:h.org/1 get:0180 get:8980 0.5 get:8184 100 ask:h.org/2 find:h.org get:8180 "
          "ask:y.org get:8181 9 next:2 ask:z.org/3 get:8183 find:h.org",
          "0 0.5 A h.org to 192.0.2.1:53, 100.5 no  0 h.org, end of 1, end of 2, A y.org to "
          "192.0.2.1:53, 109.5 A z.org to 192.0.2.1:53, end of 3, 192.0.2.9 291 h.org"},
         {"none ask:k", "0 A k.org on eth9 to [ff02::1:3]:5355, A k.org to 224.0.0.252:5355"},
         {"dhcp:true ask:n dhcp: dhcp6:6.org ask:n",
          "0 A n.4.org to 192.0.2.3:53, A n.4.org to [::5]:53, A n.6.org to 192.0.2.3:53, A "
          "n.6.org to [::5]:53"},
         {"add:-1 59.99 find:h.org 0.01 find:h.org add:99 40 add:61 60.99 find:h.org 0.01 "
          "find:h.org",
          "59.99 ::9 0 h.org, 60 no  0 h.org, 160.99 ::9 0 h.org, 161 no  0 h.org"},
         // Aliases that lead in a circle end nowhere.
         {"add:99 alias:a.org/b.org alias:b.org/h alias:1.org/2.org alias:2.org/1.org "
          "alias:self.org/self.org find:a find:1.org find:self.org",
          "0 ::9 99 h,  0 ,  0 self.org"}});
}

TEST_F(dns_test, answers_fill_the_cache_like_this) {
    for (auto const& [flags, counts, records, found] :
         table<char const*, char const*, std::string, char const*>{
             {"8180", "0002 0000",
              "c00c 0001 0001 00000009 0004 c0000208  0148c00e 0001 0001 0000012c 0004 c0000209",
              "0 192.0.2.9 300 h.org, no  0 x.org, no  0 h.org"},
             {"8180", "0003 0000",
              "c00c 0010 0001 00000009 0004 74657874  0178c00e 0001 0001 0000005a 0002 c000"
              "c00c 001c 0001 00000063 0010 20010000000000000000000000000000",
              "0  60 h.org, 192.0.0.0 90 x.org, [2001::] 99 h.org"},
             // An alias answers any question, but not such a one, nor one of another class.
             {"8180", "0001 0000", "c00c 0005 0001 0000012c 0004 0178c00e", "0 0 0 no  0 x.org"},
             {"8180", "0002 0000",
              "c00c 0005 0001 00000009 0004 02c3a900  c00c 0001 0003 00000009 0004 c0000209",
              "0  60 h.org, no  0 x.org, no  0 h.org"},
             // Negative entries live as long as the zone's REFRESH, of the last authority record.
             {"8182", "0001 0002",
              "c00c 0001 0001 0000012c 0004 c0000209"
              "c00c 0006 0001 00000009 000a 00 00 00000001 0000ffff"
              "c00c 0002 0001 00000009 000e c00c 016ec00c 00000001 00001c20",
              "0  7200 h.org, no  0 x.org, no  0 h.org"}}) {
        SetUp();
        play(world, "ask:h.org");
        arrives(flags, counts, records);
        EXPECT_EQ(play(world, "find:h.org find:x.org find:h.org/4"), found) << records;
    }
}

TEST_F(dns_test, a_name_is_decoded_as_far_as_it_goes) {
    for (auto const& [message, name] : table<bytes, bytes>{
             {hex("03 41625a bf") + bytes(191, 'x') + '\0', "abz." + bytes(191, 'x')},
             {hex("01 61 c004 01 62 c008 c00a 03 6364"), "a.b.cd"},  // the rest is missing
             // The pointer's low byte is signed: before the message, and to 144.
             {hex("01 61 c090") + bytes(140, '\0') + hex("01 62 00"), "a."},
             {hex("01 61 c190") + bytes(140, '\0') + hex("01 62 00"), "a.b"}}) {
        EXPECT_EQ(of(dns_resolver::convert_address(to_str(message))), name) << to_hex(message);
    }
    for (char const* circle : {"01 61 c000", "02 6161 01 61 01 61 c003"}) {
        EXPECT_EQ(dns_resolver::convert_address(to_str(hex(circle))).length(), 256) << circle;
    }
}

TEST_F(dns_test, a_full_cache_refuses_new_names_until_others_expire_but_known_ones_never) {
    auto const add = [](int number, str const& value) {
        str const name = str(number, 5) + ".";
        dns_services.add_cache(name, value, 0, dns_resolver::type_a);
        return dns_services.cache.find(str("A ") + name);
    };
    int count = 0;
    while (count < 900 && add(count, "x")) {
        ++count;
    }
    EXPECT_TRUE(count > 400 && count < 900);
    EXPECT_EQ(add(7, str('y', 300))->value, str('y', 300));
    run_for(60);
    for (; count > 0; --count) {
        EXPECT_TRUE(add(1000 + count, "z")) << "all is free again";
    }
}
