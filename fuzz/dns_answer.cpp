// DNS answers, the cache and its aliases. Kinds of a step:
//   0 a datagram   1 with the id of the last request   2 and as a standard response
//   3 a name is asked for   4 a name is looked up   5 default domain, source of the servers
//   6 a call fails   7 the cache is emptied
#include "fuzz/fuzz.h"

#include "config/settings.h"
#include "dns/dns_resolver.h"
#include "lib/utils.h"

using namespace sim;

namespace {

constexpr dns_resolver::dns_type types[] = {dns_resolver::type_a, dns_resolver::type_aaaa,
                                            dns_resolver::type_srv, dns_resolver::type_naptr};

void ignore_end(int) {}

void arrives(bytes const& data, unsigned int variant) {
    char const* const from = variant == 0   ? "192.0.2.1"
                             : variant == 1 ? "2001:db8::53"
                                            : "192.0.2.77";
    int const fd = variant == 1 ? dns_socket6 : dns_socket4;
    if (fd != -1) {
        datagram_arrives_at(fd, data, from);
    } else {
        dns_services.on_pdu_available(to_str(data), {utils::compact_ip(from), 53});
    }
}

// A name has an end, whether aliases lead to it or in a circle.
void look_up(str const& name) {
    str value;
    int seconds_left;
    for (dns_resolver::dns_type type : types) {
        bool const is_known = dns_services.cache_lookup(name, type, value);
        EXPECT_EQ(dns_services.cache_lookup(name, type, value, seconds_left), is_known);
        EXPECT_TRUE(is_known || value.empty());
    }
    str const end = dns_services.resolve_alias(name);
    EXPECT_TRUE(dns_services.resolve_alias(end) == end) << of(name);
}

// Counts of up to 511: to read the nothing behind the end 65,535 times is slow, and no news.
bytes with_small_counts(bytes answer) {
    for (size_t i = 4; i < 12 && i < answer.size(); i += 2) {
        answer[i] = char(answer[i] & 1);
    }
    return answer;
}

void choose_servers(bytes const& domain, bool by_dhcp) {
    use_dhcp = by_dhcp ? str::t : str::f;
    (by_dhcp ? dynamic_dns4_domain : static_dns_domain) = to_str(domain);
    dynamic_dns4_server1 = fuzz::number(domain, 0) & 1 ? "192.0.2.1" : "";
}

}  // namespace

void fuzz::begin() {
    use_dhcp = str::f;
    static_dns_server1 = "192.0.2.1";
    static_dns_server3 = "[2001:db8::53]";
    static_dns_domain = "example.org";
}

void fuzz::take(step const& each) {
    bytes answer = each.data;
    answer = each.kind >= 1 ? patched(answer, 0, big_endian(unsigned(dns_services.next_id) - 1, 2))
                            : answer;
    answer = each.kind >= 2 ? patched(answer, 2, hex("8180")) : answer;
    switch (each.kind) {
    case 3:
        dns_services.request_dns(to_str(each.data), types[each.variant],
                                 callback_argument(ignore_end, 0));
        break;
    case 4: look_up(to_str(each.data)); break;
    case 5: choose_servers(each.data, each.variant & 1); break;
    case 6: fail_some_call(each.data); break;
    case 7: dns_services.clear(); break;
    default: arrives(with_small_counts(answer), each.variant); break;
    }
    for (auto* one = dns_services.cache.first(); one; one = dns_services.cache.next(one)) {
        EXPECT_TRUE(one->value.timer.active);
    }
}
