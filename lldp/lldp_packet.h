// One LLDP data unit (IEEE 802.1AB-2009, 8 and 9), with the LLDP-MED TLVs of ANSI/TIA-1057, 10.2.
//   offset  size  field
//        0     6  destination 01:80:c2:00:00:0e, nearest bridge
//        6     6  source, our hardware address
//       12     2  EtherType 88 CC
//       14     -  TLVs: 16 bits with type (7) and length (9), then the value
//      end     2  End of LLDPDU: 00 00
#pragma once

#include "lib/option_list.h"

class lldp_packet {
public:
    enum tlv_type {  // IEEE 802.1AB-2009, 8.4.1
        tlv_end = 0,
        tlv_chassis_id = 1,
        tlv_port_id = 2,
        tlv_time_to_live = 3,  // seconds
        tlv_port_description = 4,
        tlv_system_name = 5,
        tlv_system_description = 6,
        tlv_system_capabilities = 7,
        tlv_management_address = 8,
        tlv_organization = 127,  // organisation (3 bytes), its subtype (1), information
    };

    enum tia_subtype {  // ANSI/TIA-1057, 10.2.1
        tia_capabilities = 1,
        tia_network_policy = 2,
        tia_hardware_revision = 5,
        tia_firmware_revision = 6,
        tia_software_revision = 7,
        tia_serial_number = 8,
        tia_manufacturer = 9,
        tia_model = 10,
        tia_asset_id = 11,
    };

    // The network policy: application type (1 byte), then 24 bits (ANSI/TIA-1057, 10.2.3).
    enum application_type {
        application_voice = 1,
        application_guest_voice = 3,
        application_softphone_voice = 5,
    };
    static constexpr unsigned int policy_unknown = 0x800000;
    static constexpr unsigned int policy_tagged = 0x400000;
    static constexpr int policy_vlan_shift = 9;      // 12 bits
    static constexpr int policy_priority_shift = 6;  // 3 bits; below it 6 bits of DSCP

    static bool is_valid_vlan(int vlan, int priority) {
        return vlan >= 1 && vlan <= 4095 && priority >= 0 && priority <= 7;
    }

    static constexpr int ether_type = 0x88CC;
    static constexpr int ethernet_header_length = 14;
    static unsigned char const group_address[6];

    lldp_packet() = default;
    // Parses what follows the Ethernet header. A truncated TLV keeps what there is.
    explicit lldp_packet(str const& data);

    void add_option(int type, str const& value) { options.append(type, value); }
    // A TLV of the Telecommunications Industry Association.
    void add_tia_option(int subtype, str const& value);
    // The information of the first TIA TLV of a subtype; empty when there is none.
    str get_tia_option(int subtype) const;
    str serialize() const;  // the whole frame, not padded

    option_list options;
};
