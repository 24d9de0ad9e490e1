// What hurts a reader of foreign bytes: a few shapes for each, in the size of a frame and in the
// largest that its socket lets through, a hundred different ones in a row.
#include "readers.h"

#include "dns/dns_resolver.h"

#include <algorithm>
#include <sstream>

using namespace sim;

namespace {

// "TIMES WORD..., TIMES WORD..., ...": words are bytes in hex; * fills the packet. n is the number
// of the packet.
struct shape {
    reader_number where;
    char const* name;
    std::string text;
};

std::string const dns = "1 0000 8180 0000 ffff ffff ffff";   // behind the flags, claims of records
std::string const region = dns + " 00 0010 0001 00000000 ";  // their first holds what others name
std::string const alias = " 0005 0001 00015180 ";
std::string const address = " 0001 0001 00015180 ";
std::string const message = "1 02010600, 12 00, 1 c0000232, 24 00, 64 340103, "
                            "1 63825363 3604c0000201 3501 offer_or_ack, ";
std::string const frame = "1 4500000000000000 4011 0000 c0000201 ffffffff 0043 0044 00000000, ";
std::string const reply6 = "1 07000000 0003 0028 49414944 0000000000000000 0005 0018, 24 01, ";
std::string const eapol = "18 00, ";

shape const shapes[] = {
    {reader_dns, "overlapping labels", region + "037c, 350 bf41, 96 to2, * c017" + alias + "0000"},
    {reader_dns, "chains of pointers", region + "01fc, 127 0161 to4, * c017" + alias + "0000"},
    {reader_dns, "claims alone", dns + ", * 00"},
    {reader_dns, "aliases", dns + ", * 08 name 00" + alias + "000a 08 next_name 00"},
    {reader_dns, "ascending names", dns + ", * 08 name 00" + address + "0000"},
    {reader_dns, "one owner", region + "000a 08 last_name 00, * c017" + address + "0000"},
    {reader_dns, "noise", "* random"},
    {reader_dhcp_frame, "options 52", frame + message + "* 340103"},
    {reader_dhcp_frame, "empty options", frame + message + "* 0c00"},
    {reader_dhcp_frame, "noise", "* random"},
    {reader_dhcp, "options 52", message + "* 340103"},
    {reader_dhcp, "empty options", message + "* 0c00"},
    {reader_dhcp, "noise", message + "* random"},
    {reader_arp, "conflict", "1 0001080006040002 02a0b7999999 c0000232, * 00"},
    {reader_arp, "noise", "* random"},
    {reader_dhcp6, "long identifiers", "1 02000000 0002 7000, 28672 aa, 1 0003 7000, * aa"},
    {reader_dhcp6, "long address option", "1 07000000 0003 ffff 49414944 n n, * 00050000"},
    {reader_dhcp6, "empty options", reply6 + "* 00ee0000"},
    {reader_dhcp6, "name servers", reply6 + "1 0017 0100, 128 random n, * 00"},
    {reader_dhcp6, "domain", reply6 + "1 0018 ffff, * 04 n n"},
    {reader_lldp, "empty TLVs", "14 00, * fe00"},
    {reader_lldp, "policies", "14 00, 1 fe08 0012bb02 0140 n, * 0800"},
    {reader_lldp, "noise", "14 00, * random"},
    {reader_eapol, "Requests", eapol + "* 0107000501"},
    {reader_eapol, "challenges", eapol + "* 0107 0016 04 10 n n n n n n n n"},
    {reader_eapol, "notifications", eapol + "* 0107000502"},
    {reader_eapol, "Successes", eapol + "* 03070004"},
    {reader_ntp, "reply", "* 1c"},
    {reader_tftp_request, "name to read", "1 0001, * 6e"},
    {reader_tftp_request, "longest name", "1 0001, 4000 6e, * 00"},
    {reader_tftp_request, "name to write", "1 0002, * 6e"},
    {reader_tftp_request, "read", "1 0001 6c6f6e6700 n, 1400 00"},
    {reader_tftp_request, "noise", "* random"},
    {reader_tftp_transfer, "data", "1 0003 0000, * 64"},
    {reader_tftp_transfer, "error", "1 0005 0000, * 65"},
};

bytes last_cached() {
    bytes name;
    for (auto* each = dns_services.cache.first(); each; each = dns_services.cache.next(each)) {
        name = of(each->key).starts_with("A ") ? of(each->key).substr(2) : name;
    }
    return name;
}

bytes pointer(unsigned int target) {
    return big_endian(0xC000 + target + (target & 0x80) * 2, 2);  // The low byte is signed.
}

bytes word(std::string const& text, unsigned int i, unsigned int n) {
    static std::minstd_rand random(1);
    return text == "n"              ? big_endian(n, 2)
           : text == "random"       ? bytes(1, char(random() >> 8))
           : text == "offer_or_ack" ? bytes(1, n % 2 ? '\5' : '\2')
           : text == "name"         ? to_hex(big_endian(n << 16 | i, 4))
           : text == "next_name"    ? to_hex(big_endian(n << 16 | (i + 1), 4))
           : text == "last_name"    ? last_cached()
           : text == "to2"          ? pointer(23 + 2 * (i + 1))
                                    : pointer(23 + 4 * (i + 1));
}

bytes built(shape const& each, size_t size, unsigned int n) {
    bytes data;
    std::istringstream items(each.text);
    for (std::string item, times, text; std::getline(items, item, ',');) {
        std::istringstream fields(item);
        fields >> times;
        size_t const left = times == "*" ? size : std::stoul(times);
        std::vector<std::pair<std::string, bytes>> words;
        while (fields >> text) {
            bool const is_hex = std::all_of(text.begin(), text.end(), isxdigit);
            words.emplace_back(is_hex ? "" : text, is_hex ? hex(text) : "");
        }
        for (unsigned int i = 0; i < left && data.size() < size; ++i) {
            for (auto const& [name, fixed] : words) {
                data += name.empty() ? fixed : word(name, i, n);
            }
        }
    }
    return data.substr(0, size);
}

class hostile_test : public sim::test {};

}  // namespace

TEST_F(hostile_test, no_packet_costs_more_than_it_may) {
    for (size_t const size : {size_t(1472), datagram_max}) {
        for (shape const& each : shapes) {
            reader const& where = readers[each.where];
            if (size > where.size_max) {
                continue;
            }
            SCOPED_TRACE(std::string(where.name) + ", " + each.name + ", " + std::to_string(size));
            if (each.text.find("last_name") == std::string::npos) {  // That needs the full cache.
                TearDown();
                SetUp();
                first_descriptor = 20;
                where.begin();
            }
            meter watch;
            int const count = size < 2000 ? 100 : each.where == reader_dns ? 3 : 24;
            for (int n = 0; n < count; ++n) {
                where.await();
                where.arrive(where.fitted(built(each, size, unsigned(n))));
                watch.expect_cheap(
                    size, [] { run_for(0); }, where.beyond);
            }
        }
    }
}
