// SNTP replies to three clients, and the answers about the names of their servers. The variant of
// a step is the client. Kinds:
//   0 a reply   1 a reply of the right length   2 a server, which is asked
//   3 the last query is answered by these records   4 by this address   5 by this response code
//   6 a call fails
#include "fuzz/fuzz.h"

#include "config/settings.h"
#include "ntp/ntp_client.h"

using namespace sim;

namespace {

bytes last_query;

void reply(ntp_client const& client, bytes const& data) {
    if (client.socket != -1) {
        datagram_arrives_at(client.socket, data, client.ipv6 ? "2001:db8::9" : "192.0.2.9");
    }
}

void name_server_says(unsigned int code, unsigned int count, bytes const& records) {
    for (packet const& each : take_sent()) {
        last_query = each.to.ends_with(":53") ? each.data : last_query;
    }
    if (dns_socket4 != -1 && last_query.size() > 12) {
        datagram_arrives_at(dns_socket4, last_query.substr(0, 2) + big_endian(0x8180 | code, 2) +
                                             hex("0001") + big_endian(count, 2) + bytes(4, '\0') +
                                             last_query.substr(12) + records);
    }
}

}  // namespace

void fuzz::begin() {
    last_query.clear();
    use_dhcp = str::f;
    static_dns_server1 = "192.0.2.1";
    ntp_server = "pool.ntp.org";
    start_manual_ntp_server();
    start_manual_ntp_server();
}

void fuzz::take(step const& each) {
    ntp_client& client = ntp[each.variant % ntp_count];
    bytes const& data = each.data;
    switch (each.kind) {
    case 0: reply(client, data); break;
    case 1: reply(client, (data + bytes(48, '\0')).substr(0, 48)); break;
    case 2:
        client.server = to_str(data);
        client.start_client();
        break;
    case 3: name_server_says(0, 1 + data.size() / 40U, data); break;
    case 4: {
        bool const is_a = last_query.size() < 3 || last_query.end()[-3] == 1;
        name_server_says(0, 1,
                         hex(is_a ? "c00c 0001 0001 0000003c" : "c00c 001c 0001 0000003c") +
                             big_endian(unsigned(data.size()), 2) + data);
        break;
    }
    case 5: name_server_says(number(data, 0) & 15, 0, ""); break;
    default: fail_some_call(data); break;
    }
}
