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

// Reads zeros past the end.
int number16(str const& packet, int offset) {
    return packet[offset] << 8 | packet[offset + 1];
}
unsigned int number32(str const& packet, int offset) {
    return unsigned(number16(packet, offset)) << 16 | unsigned(number16(packet, offset + 2));
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

// The lifetime of negative entries from an authority record, whose type is not looked at.
// Intended: the SOA's REFRESH. Do not take MINIMUM (RFC 2308, 5).
int read_authority(str const& packet, name_reader const& names, int& offset) {
    names.skip(offset);
    int const length = number16(packet, offset + 8);
    offset += record_head;
    int behind_names = offset;
    names.skip(behind_names);
    names.skip(behind_names);
    offset += length;
    return static_cast<int>(number32(packet, behind_names + 4));
}

}  // namespace

str dns_resolver::build_query(int id, str const& name, dns_type type) const {
    str query = utils::int2str(unsigned(id), 2) + utils::int2str(flag_recursion_desired, 2) +
                utils::int2str(1, 2) + str('\0', 6);
    for (str rest = name; !rest.empty();) {
        int const dot = rest.find(".");
        str const label = (dot < 0 ? rest : rest.leftstr(dot)).strip(str::lws);
        if (label.empty()) {
            break;  // What is behind two dots in a row does not count.
        }
        query += static_cast<unsigned char>(label.length());
        query += label.tolower();
        rest = dot < 0 ? str::null : rest.substr(dot + 1);
    }
    query += '\0';
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
    name_reader names(packet);
    int offset = header_length;
    str question;
    int question_type = 0;
    for (int n = number16(packet, 4); n > 0; --n) {
        question = names.read(offset);
        question_type = number16(packet, offset);
        offset += question_tail;
    }
    bool answered = false;
    for (int n = number16(packet, 6); n > 0; --n) {
        answered |= process_record(packet, names, offset, response_code == rcode_no_error, question,
                                   question_type);
    }
    int negative_lifetime = default_negative_lifetime;
    for (int n = number16(packet, 8); n > 0; --n) {
        negative_lifetime = read_authority(packet, names, offset);
    }
    str known;
    if (!answered && request && !cache_lookup(question, request->type, known)) {
        add_cache(question, str::null, negative_lifetime, request->type);
    }
    return true;
}

// Reads one record of the answer section into the cache, if the answer is usable, and leaves
// `offset` behind it. Whether it answers the question.
bool dns_resolver::process_record(str const& packet, name_reader& names, int& offset, bool usable,
                                  str const& question, int question_type) {
    str const owner = names.read(offset);
    int const type = number16(packet, offset);
    bool const is_internet = number16(packet, offset + 2) == class_internet;
    int const ttl = static_cast<int>(number32(packet, offset + 4));
    int const length = number16(packet, offset + 8);
    int data_offset = offset + record_head;
    offset = data_offset + length;
    if (!usable || !is_internet) {
        return false;
    }
    str const data = packet.substr(data_offset, length);
    bool const about_question = owner == question;
    switch (type) {
    case record_a:
        add_cache(owner, utils::readable_ip(utils::padding(data, 4, 0), false), ttl, type_a);
        return about_question && question_type == record_a;
    case record_aaaa:
        add_cache(owner, utils::readable_ip(data.leftstr(ip_port::ipv6_length), true), ttl,
                  type_aaaa);
        return about_question && question_type == record_aaaa;
    case record_cname: {
        str const target = names.read(data_offset);
        if (has_both_top_bits_in_a_byte(target)) {
            if (log_level >= 1) {
                log_add_message(1, "DNS: Received invalid address specification", str::null);
            }
            return false;
        }
        add_cache(owner, target, ttl, type_cname);
        return about_question;
    }
    default:
        return false;
    }
}
