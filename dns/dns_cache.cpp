// What was answered, for as long as it counts.
#include "dns/dns_resolver.h"

#include "config/settings.h"

constinit dns_resolver dns_services;

namespace {

constexpr int shortest_lifetime = 60;       // seconds
constexpr int cache_size_max = 256 * 1024;  // bytes: far above any honest need, a dozen entries

str const type_names[] = {"A", "SRV", "CNAME", "NAPTR", "AAAA"};
constexpr int type_count = int(sizeof type_names / sizeof *type_names);

// Bytes of the pool that so many bytes of data take.
int block_bytes(int size) {
    return size == 0 ? 0 : str::get_bin_size(str::find_bin(size)) + str::header_size;
}

int entry_bytes(str const& key, str const& value) {
    return block_bytes(sizeof(smap<str, dns_resolver::dns_cache_entry>::element)) +
           block_bytes(sizeof(timeout_queue::element)) + block_bytes(key.length()) +
           block_bytes(value.length());
}

}  // namespace

str get_dns_domain() {
    if (use_dhcp == str::f) {
        return static_dns_domain;
    }
    return dynamic_dns6_domain.empty() ? dynamic_dns4_domain : dynamic_dns6_domain;
}

str dns_resolver::qualified(str const& name) {
    bool const has_dot = !name.get_field(1, str(".")).empty();
    str const domain = get_dns_domain();
    return has_dot || domain.empty() ? name : name + "." + domain;
}

str const& dns_resolver::type_name(dns_type type) {
    return type >= 0 && type < type_count ? type_names[type] : str::null;
}

str dns_resolver::cache_key(dns_type type, str const& name) {
    return type_name(type) + " " + name;
}

void dns_resolver::add_cache(str const& name, str const& value, int ttl, dns_type type) {
    str const key = cache_key(type, name);
    dns_cache_entry* entry = cache.find(key);
    if (!entry) {
        if (cache_size + entry_bytes(key, value) > cache_size_max) {
            return;
        }
        entry = &cache.insert(key);
        cache_size += entry_bytes(key, str::null);
    }
    cache_size += block_bytes(value.length()) - block_bytes(entry->value.length());
    entry->value = value;
    int const lifetime = ttl > shortest_lifetime ? ttl : shortest_lifetime;
    entry->timer.callback(rtimestamp::s2ticks(lifetime), callback_argument(unregister_entry, key));
}

void dns_resolver::unregister_entry(str const& key) {
    if (dns_cache_entry const* const entry = dns_services.cache.find(key)) {
        dns_services.cache_size -= entry_bytes(key, entry->value);
        dns_services.cache.erase_key(key);
    }
}

void dns_resolver::clear() {
    cache.clear();
    cache_size = 0;
}

// The entry for a name, aliases followed. nullptr when there is none. `is_circle` tells when the
// aliases never end: a walk longer than the cache meets a name twice.
dns_resolver::dns_cache_entry const* dns_resolver::find_entry(str const& name, dns_type type,
                                                              bool& is_circle) const {
    str current = name;
    is_circle = false;
    for (int steps = 0; steps <= cache.count; ++steps) {
        current = qualified(current);
        if (dns_cache_entry const* const entry = cache.find(cache_key(type, current))) {
            return entry;
        }
        dns_cache_entry const* const alias =
            type == type_cname ? nullptr : cache.find(cache_key(type_cname, current));
        if (!alias || alias->value.empty()) {
            return nullptr;
        }
        current = alias->value;
    }
    is_circle = true;
    return nullptr;
}

bool dns_resolver::cache_lookup(str const& name, dns_type type, str& value,
                                int& seconds_left) const {
    bool is_circle;
    dns_cache_entry const* const entry = find_entry(name, type, is_circle);
    value = entry ? entry->value : str::null;
    seconds_left = entry ? entry->timer.seconds() : 0;
    return entry || is_circle;
}

bool dns_resolver::cache_lookup(str const& name, dns_type type, str& value) const {
    bool is_circle;
    dns_cache_entry const* const entry = find_entry(name, type, is_circle);
    value = entry ? entry->value : str::null;
    return entry || is_circle;
}

str dns_resolver::resolve_alias(str const& name) const {
    str result = name;
    str alias;
    for (int steps = 0; cache_lookup(result, type_cname, alias); ++steps) {
        if (steps > cache.count) {
            return str::null;  // a circle
        }
        str const target = alias.get_field(0, str::space);
        if (target == result) {
            break;
        }
        result = target;
    }
    return result;
}
