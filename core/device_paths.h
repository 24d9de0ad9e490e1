// The fixed names of the device: its interface, its files, its defaults.
#pragma once

inline constexpr char wired_interface[] = "eth1";

inline constexpr char path_mac[] = "/nv/mac.txt";  // six hex pairs with ':' between
inline constexpr char default_mac[] = "02A0B7000001";
inline constexpr char path_base[] = "/nv/base.txt";  // firmware revision, first field
inline constexpr char path_base_type[] = "/nv/base-type.txt";
inline constexpr char path_serial[] = "/nv/serial.txt";
inline constexpr char path_start_script[] = "/nv/rc.vorn";
inline constexpr char mount_point_nv[] = "/nv";

// The Ethernet driver's link state and speed.
inline constexpr char path_link_status[] = "/proc/avalanche/cpmac_link";
inline constexpr char path_bindv6only[] = "/proc/sys/net/ipv6/bindv6only";
// The kernel's IPv6 addresses, one a line, 32 hex digits first.
inline constexpr char path_ipv6_addresses[] = "/proc/net/if_inet6";
inline constexpr char path_uptime[] = "/proc/uptime";
inline constexpr char path_random[] = "/dev/urandom";
