#include "config/settings.h"

str base_name("vorn-q7");
constinit str asset_id;
constinit str ieee_802_1x_username;
constinit str ieee_802_1x_password;
constinit str use_dhcp;
constinit str ip_adr;
constinit str netmask;
constinit str gateway;
constinit str static_dns_server1;
constinit str static_dns_server2;
constinit str static_dns_server3;
constinit str static_dns_server4;
constinit str static_dns_domain;
constinit int vlan_id = 0;
constinit int vlan_prio = 0;
str ntp_server("pool.ntp.org");
constinit bool tftp_enabled = false;
str http_username1("admin");
str http_password1("bluefern");

constinit bool system_ipv4 = true;
constinit bool system_ipv6 = true;
constinit int default_interface_index = 0;

constinit str mac_addr;
constinit str assigned_ip_adr;
constinit str assigned_server;
constinit str assigned_option_66;
constinit str assigned_option_67;
constinit str dynamic_dns4_server1;
constinit str dynamic_dns4_server2;
constinit str dynamic_dns4_server3;
constinit str dynamic_dns4_server4;
constinit str dynamic_dns4_domain;
constinit str dynamic_dns6_server1;
constinit str dynamic_dns6_server2;
constinit str dynamic_dns6_server3;
constinit str dynamic_dns6_server4;
constinit str dynamic_dns6_domain;

str const c_0_0_0_0(0, 0, 0, 0);
