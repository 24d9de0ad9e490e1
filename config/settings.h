// The variables that the configuration file sets, and the state that subsystems share.
#pragma once

#include "lib/str.h"

// Settings; see setting_container::init for their names in the file. Texts are empty, numbers 0
// and switches off unless said otherwise.
extern str base_name;             // DHCP host name; "vorn-q7"
extern str asset_id;              // announced by LLDP-MED
extern str ieee_802_1x_username;  // empty: no 802.1X
extern str ieee_802_1x_password;
extern str use_dhcp;  // "false": static address
extern str ip_adr;
extern str netmask;
extern str gateway;
extern str static_dns_server1;
extern str static_dns_server2;
extern str static_dns_server3;
extern str static_dns_server4;
extern str static_dns_domain;
extern int vlan_id;    // 1 to 4095; used when the switch announces none
extern int vlan_prio;  // 0 to 7
extern str ntp_server;
extern bool tftp_enabled;
extern str http_username1;
extern str http_password1;

// In no file.
extern bool system_ipv4;             // true
extern bool system_ipv6;             // true
extern int default_interface_index;  // the interface on which the address clients run; 0: none

// Learnt at run time; texts, empty until then.
extern str mac_addr;  // twelve hex digits
extern str assigned_ip_adr;
extern str assigned_server;  // the DHCPv4 server
extern str assigned_option_66;
extern str assigned_option_67;
extern str dynamic_dns4_server1;
extern str dynamic_dns4_server2;
extern str dynamic_dns4_server3;
extern str dynamic_dns4_server4;
extern str dynamic_dns4_domain;
extern str dynamic_dns6_server1;
extern str dynamic_dns6_server2;
extern str dynamic_dns6_server3;
extern str dynamic_dns6_server4;
extern str dynamic_dns6_domain;

extern str const c_0_0_0_0;  // the unspecified IPv4 address, four bytes
