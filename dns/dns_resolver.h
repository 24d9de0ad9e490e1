// The caching stub resolver (RFC 1034, 5.3.1; messages as in RFC 1035, 4).
//
// A caller looks into the cache and, on a miss, asks for the name; its callback runs when the
// request is over, answered or not, and looks into the cache again. Equal requests share one
// query. Queries go to every configured server until one has answered, from then on to that one
// alone; without any server to the link-local multicast groups (RFC 4795).
//   offset  size  field
//        0     2  id
//        2     2  flags: 80 00 response, 78 00 opcode, 01 00 recursion desired, 00 0F RCODE
//        4     2  entries in the question section: name, type, class
//        6     2  records in the answer section: name, type, class, TTL, length, data
//        8     2  records in the authority section
//       10     2  records in the additional section
#pragma once

#include "core/timeout.h"
#include "lib/ip_port.h"
#include "lib/linked_list.h"
#include "lib/smap.h"

class dns_resolver {
public:
    enum dns_type { type_a = 0, type_srv = 1, type_cname = 2, type_naptr = 3, type_aaaa = 4 };

    struct dns_cache_entry {
        str value;  // name, or address as text, IPv6 in brackets; empty: known not to exist
        timeout timer;
    };

    struct dns_request {
        int id = 0;
        linked_list<callback_argument> callbacks;
        str name;  // in full
        dns_type type = type_a;
        str packet;     // the query, kept for copies
        int count = 0;  // copies sent
        timeout timer;
    };

    constexpr dns_resolver() = default;

    // Asks for a name of a type. The callback runs once, when the request is over; never for an
    // empty name.
    void request_dns(str const& name, dns_type type, callback_argument const& callback);

    // Whether the cache has an entry for a name, aliases followed. `value` is empty when the name
    // is known not to exist, or when its aliases form a circle.
    bool cache_lookup(str const& name, dns_type type, str& value, int& seconds_left) const;
    bool cache_lookup(str const& name, dns_type type, str& value) const;
    // The end of the name's chain of aliases, as far as the cache knows it.
    str resolve_alias(str const& name) const;
    // Empties the cache.
    void clear();

    // For the main loop: a datagram from either socket.
    void on_pdu_available(str const& packet, ip_port const& from);

    // For timers.
    static void resend_request(int id);
    static void unregister_entry(str const& key);

    // Parses one response into the cache; false when it is not usable.
    bool process_answer(str const& packet, int id);
    // Keeps a value for `ttl` seconds, 60 at least. When the cache has its full size no new key is
    // taken, but a known one is always brought up to date.
    void add_cache(str const& name, str const& value, int ttl, dns_type type);
    // Sends a packet to every active server.
    void broadcast_request(str const& packet);
    // Ends a request and runs its callbacks.
    void call_and_delete(int id);
    // The name at the start of a message, in lower case.
    static str convert_address(str const& packet);

    static str best_server;  // the one that answered last, binary; empty: none known

    smap<int, dns_request> requests;   // by id
    smap<str, int> pending;            // id by cache key
    smap<str, dns_cache_entry> cache;  // by type, blank, name
    int next_id = 1;

private:
    static str const& type_name(dns_type type);
    static str cache_key(dns_type type, str const& name);
    // The name, completed by the default domain when it has no dot.
    static str qualified(str const& name);
    dns_cache_entry const* find_entry(str const& name, dns_type type, bool& is_circle) const;
    str build_query(int id, str const& name, dns_type type) const;

    int cache_size = 0;  // bytes of the pool that all entries take
};

extern dns_resolver dns_services;
extern int dns_socket4;  // -1 until the first query
extern int dns_socket6;

// The domain that completes names without a dot.
str get_dns_domain();
// Sends one query; the result of the system call, or the negative descriptor without a socket.
int dns_send_proc(ip_port const& to, str const& packet);
