#include "lldp/lldp_packet.h"

#include "config/settings.h"
#include "lib/utils.h"

unsigned char const lldp_packet::group_address[6] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E};

namespace {

constexpr int header_length = 2;
constexpr int type_shift = 9;
constexpr unsigned int length_mask = 0x1FF;

str tia_prefix(int subtype) {
    return str(0x00, 0x12, 0xBB, static_cast<unsigned char>(subtype));
}

}  // namespace

lldp_packet::lldp_packet(str const& data) {
    str rest = data;
    while (rest.length() >= header_length) {
        unsigned int const header = utils::number_at(rest, 0, header_length);
        int const type = int(header >> type_shift);
        int const length = int(header & length_mask);
        if (type == tlv_end) {
            return;
        }
        add_option(type, rest.substr(header_length, length));
        rest = rest.substr(header_length + length);
    }
}

void lldp_packet::add_tia_option(int subtype, str const& value) {
    add_option(tlv_organization, tia_prefix(subtype) + value);
}

str lldp_packet::get_tia_option(int subtype) const {
    str const prefix = tia_prefix(subtype);
    for (option_list::node const* each = options.head; each; each = each->next) {
        str const& value = each->value;
        if (each->code == tlv_organization && value.leftstr(prefix.length()) == prefix) {
            return value.substr(prefix.length());
        }
    }
    return str::null;
}

str lldp_packet::serialize() const {
    str frame(group_address, sizeof group_address);
    frame += utils::hex2bin(mac_addr);
    frame += utils::int2str(ether_type, 2);
    for (option_list::node const* each = options.head; each; each = each->next) {
        str const& value = each->value;
        unsigned int const header = (unsigned(each->code) << type_shift) + unsigned(value.length());
        frame += utils::int2str(header, header_length);
        frame += value;
    }
    frame += utils::int2str(tlv_end, header_length);
    return frame;
}
