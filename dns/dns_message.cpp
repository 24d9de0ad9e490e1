// Queries and answers.
#include "dns/dns_resolver.h"

#include "core/log.h"
#include "dns/dns_name.h"
#include "lib/utils.h"

namespace {

constexpr int header_length = 12;
constexpr int question_tail = 4;  // type, class
constexpr int record_head = 10;   // type, class, TTL, length: between name and data
constexpr unsigned int flag_recursion_desired = 0x0100;
constexpr unsigned int class_internet = 1;
constexpr int default_negative_lifetime = 60;  // seconds

enum record_type {  // RFC 1035, 3.2.2; RFC 3596, 2.1; RFC 2782; RFC 3403
    record_a = 1,
    record_cname = 5,
    record_aaaa = 28,
    record_srv = 33,
    record_naptr = 35,
};

enum rcode {  // RFC 1035, 4.1.1
    rcode_no_error = 0,
    rcode_server_failure = 2,
    rcode_name_error = 3,
    rcode_refused = 5,
};

unsigned int query_type(dns_resolver::dns_type type) {
    switch (type) {
    case dns_resolver::type_srv:
        return record_srv;
    case dns_resolver::type_naptr:
        return record_naptr;
    case dns_resolver::type_aaaa:
        return record_aaaa;
    case dns_resolver::type_a:
    case dns_resolver::type_cname:  // The alias comes with the address.
        break;
    }
    return record_a;
}

bool is_usable(int response_code) {
    return response_code == rcode_no_error || response_code == rcode_server_failure ||
           response_code == rcode_name_error || response_code == rcode_refused;
}

bool has_both_top_bits_in_a_byte(str const& text) {
    for (int i = 0; i < text.length(); ++i) {
        if ((text[i] & 0xC0) == 0xC0) {
            return true;
        }
    }
    return false;
}

// One resource record, RFC 1035, 4.1.3.
struct dns_record {
    str owner;
    unsigned int type;
    unsigned int record_class;
    int ttl;  // seconds
    int data_offset;
    str data;
};

// Leaves `offset` behind the record.
dns_record read_record(str const& packet, name_reader const& names, int& offset) {
    dns_record record;
    record.owner = names.read(offset);
    record.type = utils::number_at(packet, offset, 2);
    record.record_class = utils::number_at(packet, offset + 2, 2);
    record.ttl = static_cast<int>(utils::number_at(packet, offset + 4, 4));
    int const length = int(utils::number_at(packet, offset + 8, 2));
    record.data_offset = offset + record_head;
    record.data = packet.substr(record.data_offset, length);
    offset = record.data_offset + length;
    return record;
}

// The lifetime of negative entries from an authority record, whose type is not looked at. Leaves
// `offset` behind it.
// Intended: the SOA's REFRESH. Do not take MINIMUM (RFC 2308, 5).
int read_authority(str const& packet, name_reader const& names, int& offset) {
    names.skip(offset);
    int const length = int(utils::number_at(packet, offset + 8, 2));
    int behind_names = offset + record_head;
    offset = behind_names + length;
    names.skip(behind_names);
    names.skip(behind_names);
    return static_cast<int>(utils::number_at(packet, behind_names + 4, 4));
}

struct dns_question {
    str name;
    unsigned int type = 0;
};

// Keeps what an answer record says in the cache. Whether it answers the question.
bool keep_record(dns_resolver& resolver, dns_record const& record, name_reader const& names,
                 dns_question const& question) {
    bool const about_question = record.owner == question.name;
    switch (record.type) {
    case record_a: {
        str const address = utils::padding(record.data, 4, 0);
        resolver.add_cache(record.owner, utils::readable_ip(address, false), record.ttl,
                           dns_resolver::type_a);
        return about_question && question.type == record_a;
    }
    case record_aaaa: {
        str const address = record.data.leftstr(ip_port::ipv6_length);
        resolver.add_cache(record.owner, utils::readable_ip(address, true), record.ttl,
                           dns_resolver::type_aaaa);
        return about_question && question.type == record_aaaa;
    }
    case record_cname: {
        int offset = record.data_offset;
        str const target = names.read(offset);
        if (has_both_top_bits_in_a_byte(target)) {
            log_text(1, "DNS: Received invalid address specification");
            return false;
        }
        resolver.add_cache(record.owner, target, record.ttl, dns_resolver::type_cname);
        return about_question;
    }
    default:
        return false;
    }
}

// Calls `read_one` for each of the entries that a section claims. Behind the end of the packet all
// of them read as the same nothing, so that one stands for the rest.
template<class function>
void read_section(str const& packet, unsigned int count, int const& offset, function read_one) {
    bool is_behind_end = false;
    while (count > 0 && !is_behind_end) {
        is_behind_end = offset >= packet.length();
        read_one();
        --count;
    }
}

}  // namespace

str dns_resolver::build_query(int id, str const& name, dns_type type) const {
    str query = utils::int2str(unsigned(id), 2) + utils::int2str(flag_recursion_desired, 2) +
                utils::int2str(1, 2) + utils::int2str(0, 6);
    for (str rest = name; !rest.empty();) {
        int const dot = rest.find(".");
        str const label = (dot < 0 ? rest : rest.leftstr(dot)).strip(str::lws);
        if (label.empty()) {
            break;  // What is behind two dots in a row does not count.
        }
        query += utils::int2str(unsigned(label.length()), 1);
        query += label.tolower();
        rest = dot < 0 ? str::null : rest.substr(dot + 1);
    }
    query += utils::int2str(0, 1);
    query += utils::int2str(query_type(type), 2);
    query += utils::int2str(class_internet, 2);
    return query;
}

str dns_resolver::convert_address(str const& packet) {
    int offset = 0;
    return name_reader(packet).read(offset);
}

bool dns_resolver::process_answer(str const& packet, int id) {
    bool const is_standard_response = (packet[2] & 0xF8) == 0x80;
    if (!is_standard_response) {
        return false;
    }
    dns_request* const request = requests.find(id);
    if (request) {
        request->timer.clear();
    }
    int const response_code = packet[3] & 0x0F;
    if (!is_usable(response_code)) {
        // Intended: the request has lost its timer and stays for good. Do not complete it.
        return false;
    }
    name_reader const names(packet);
    int offset = header_length;
    dns_question question;
    read_section(packet, utils::number_at(packet, 4, 2), offset, [&] {
        question.name = names.read(offset);
        question.type = utils::number_at(packet, offset, 2);
        offset += question_tail;
    });
    bool answered = false;
    read_section(packet, utils::number_at(packet, 6, 2), offset, [&] {
        dns_record const record = read_record(packet, names, offset);
        if (response_code == rcode_no_error && record.record_class == class_internet) {
            answered |= keep_record(*this, record, names, question);
        }
    });
    int negative_lifetime = default_negative_lifetime;
    read_section(packet, utils::number_at(packet, 8, 2), offset,
                 [&] { negative_lifetime = read_authority(packet, names, offset); });
    str known;
    if (!answered && request && !cache_lookup(question.name, request->type, known)) {
        add_cache(question.name, str::null, negative_lifetime, request->type);
    }
    return true;
}
