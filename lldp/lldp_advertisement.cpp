// What the base station announces.
#include "config/settings.h"
#include "core/device_paths.h"
#include "lib/str_format.h"
#include "lib/utils.h"
#include "lldp/lldp.h"

namespace {

#define SOFTWARE_REVISION "9.9.52XXX"
constexpr char port_description[] = "NET";
constexpr char system_description[] = "vorn q7, SW " SOFTWARE_REVISION;
constexpr char hardware_revision[] = "Rev. 1";
constexpr char manufacturer[] = "Brakwell Devices AG";
constexpr char model[] = "q7";

constexpr int time_to_live = 120;                            // seconds
constexpr unsigned int chassis_subtype_network_address = 5;  // IEEE 802.1AB-2009, 8.5.2.2
constexpr unsigned int port_subtype_mac_address = 3;         // 8.5.3.2
constexpr unsigned int interface_subtype_unknown = 1;        // 8.5.9.5
constexpr unsigned int capability_telephone = 0x0020;        // 8.5.8.1
constexpr unsigned int med_capabilities = 0x0023;  // capabilities, network policy, inventory
constexpr unsigned int device_type_endpoint_3 = 3;
constexpr int inventory_length_max = 32;  // ANSI/TIA-1057, 10.2.6

// IEEE 802.3 MAC/PHY configuration and status (IEEE 802.1AB-2009, annex F.2).
constexpr unsigned int autonegotiation_enabled = 0x03;  // and supported
constexpr unsigned int advertised_modes = 0x6600;
enum mau_type {  // RFC 4836, dot3MauType
    mau_unknown = 0,
    mau_10baset_half = 10,
    mau_10baset_full = 11,
    mau_100basetx_half = 15,
    mau_100basetx_full = 16,
};

unsigned int address_family(str const& address) {  // IANA address family numbers
    return address.length() == ip_port::ipv6_length ? 2 : 1;
}

str chassis_id(str const& management_address) {
    str const& address = management_address.empty() ? c_0_0_0_0 : management_address;
    return utils::int2str(chassis_subtype_network_address, 1) +
           utils::int2str(address_family(address), 1) + address;
}

// Intended: the address string length is 5 for IPv6, too. Do not compute it.
str management_address_value(str const& address) {
    constexpr unsigned int string_length = 5;
    str const no_number_no_oid = utils::int2str(0, 5);
    return utils::int2str(string_length, 1) + utils::int2str(address_family(address), 1) + address +
           utils::int2str(interface_subtype_unknown, 1) + no_number_no_oid;
}

str system_name() {
    return str::sprintf("Brakwell_%s:%s:%s", mac_addr.substr(6, 2), mac_addr.substr(8, 2),
                        mac_addr.substr(10, 2));
}

str text_behind_equals(str const& field) {
    return field.get_rest(1, "=").strip(str::lws);
}

mau_type mau_type_of_line(str const& line) {
    str const details = line.get_rest(4, str::space);
    int const speed = text_behind_equals(details.get_field(1, ",")).value();
    bool const full = text_behind_equals(details.get_field(2, ",")).icmp("Full");
    switch (speed) {
    case 10:
        return full ? mau_10baset_full : mau_10baset_half;
    case 100:
        return full ? mau_100basetx_full : mau_100basetx_half;
    default:
        return mau_unknown;
    }
}

// The driver's lines read "eth1: port 1: UP link=1, speed=100, duplex=full"; the last one that is
// up counts.
mau_type operational_mau_type() {
    mau_type type = mau_unknown;
    str rest = str::read_file(path_link_status);
    while (!rest.empty()) {
        str const line = rest.get_first_line();
        if (line.get_field(3, str::space) == "UP") {
            type = mau_type_of_line(line);
        }
    }
    return type;
}

str mac_phy_status() {
    str const prefix(0x00, 0x12, 0x0F, 0x01);
    return prefix + utils::int2str(autonegotiation_enabled, 1) +
           utils::int2str(advertised_modes, 2) + utils::int2str(operational_mau_type(), 2);
}

unsigned int tagged_policy(int vlan, int priority) {
    return (unsigned(vlan) << lldp_packet::policy_vlan_shift) +
           (unsigned(priority) << lldp_packet::policy_priority_shift) + lldp_packet::policy_tagged;
}

}  // namespace

unsigned int lldp::policy_word() const {
    if (management_address.empty()) {
        return lldp_packet::policy_unknown;
    }
    unsigned int word = 0;
    if (lldp_packet::is_valid_vlan(voice_vlan, voice_priority)) {
        word = tagged_policy(voice_vlan, voice_priority);
    } else if (lldp_packet::is_valid_vlan(vlan_id, vlan_prio)) {
        word = tagged_policy(vlan_id, vlan_prio);
    }
    return word | unsigned(voice_dscp);
}

void lldp::setup_packet() {
    (void)str::read_file(path_base_type);  // Intended: no TLV carries it. Do not add one.
    packet.options.clear();
    packet.add_option(lldp_packet::tlv_chassis_id, chassis_id(management_address));
    packet.add_option(lldp_packet::tlv_port_id,
                      utils::int2str(port_subtype_mac_address, 1) + utils::hex2bin(mac_addr));
    packet.add_option(lldp_packet::tlv_time_to_live, utils::int2str(time_to_live, 2));
    packet.add_option(lldp_packet::tlv_port_description, port_description);
    packet.add_option(lldp_packet::tlv_system_name, system_name());
    packet.add_option(lldp_packet::tlv_system_description, system_description);
    packet.add_option(lldp_packet::tlv_system_capabilities,
                      utils::int2str(capability_telephone, 2) +
                          utils::int2str(capability_telephone, 2));
    if (!management_address.empty()) {
        packet.add_option(lldp_packet::tlv_management_address,
                          management_address_value(management_address));
    }
    packet.add_option(lldp_packet::tlv_organization, mac_phy_status());
    packet.add_tia_option(lldp_packet::tia_capabilities,
                          utils::int2str(med_capabilities, 2) +
                              utils::int2str(device_type_endpoint_3, 1));
    packet.add_tia_option(lldp_packet::tia_network_policy,
                          utils::int2str(lldp_packet::application_voice, 1) +
                              utils::int2str(policy_word(), 3));
    packet.add_tia_option(lldp_packet::tia_hardware_revision, hardware_revision);
    packet.add_tia_option(
        lldp_packet::tia_firmware_revision,
        str::read_file(path_base).get_field(0, ' ').leftstr(inventory_length_max));
    packet.add_tia_option(lldp_packet::tia_software_revision, SOFTWARE_REVISION);
    packet.add_tia_option(lldp_packet::tia_serial_number,
                          str::read_file(path_serial).leftstr(inventory_length_max));
    packet.add_tia_option(lldp_packet::tia_manufacturer, manufacturer);
    packet.add_tia_option(lldp_packet::tia_model, model);
    packet.add_tia_option(lldp_packet::tia_asset_id, asset_id.leftstr(inventory_length_max));
}
