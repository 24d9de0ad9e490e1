#include "dhcp6/dhcp6_packet.h"

#include "lib/utils.h"

char const dhcp6_packet::server_address[] = "ff02::1:2";

namespace {

constexpr int header_length = 4;  // that of an option is as long
constexpr int id_length = 3;

}  // namespace

bool dhcp6_packet::option_reader::next() {
    if (options.length() - offset < header_length) {
        return false;
    }
    code = int(utils::number_at(options, offset, 2));
    int const length = int(utils::number_at(options, offset + 2, 2));
    value = options.substr(offset + header_length, length);
    offset += header_length + length;
    return true;
}

void dhcp6_packet::parse(str const& wire) {
    bool const is_whole = wire.length() >= header_length;
    header = is_whole ? wire.leftstr(header_length) : str::null;
    options = is_whole ? wire.substr(header_length) : str::null;
}

str dhcp6_packet::get_option(int code, int index) const {
    option_reader reader(options);
    while (reader.next()) {
        if (reader.code == code && index-- == 0) {
            return reader.value;
        }
    }
    return str::null;
}

void dhcp6_packet::set_type_id(int type, str const& id) {
    header = utils::int2str(unsigned(type), 1) + id.leftstr(id_length);
    options.clear();
}

void dhcp6_packet::add_option(int code, str const& value) {
    options += utils::int2str(unsigned(code), 2);
    options += utils::int2str(unsigned(value.length()), 2);
    options += value;
}
