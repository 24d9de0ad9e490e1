// Helpers that several subsystems use: addresses and sockets, text and numbers.
// Addresses are binary, in network order, in a str; texts are used at the edges only.
#pragma once

#include "lib/ip_port.h"
#include "lib/smap.h"
#include "lib/str.h"
#include "lib/str_list.h"

#include <netinet/in.h>

// Names of the transports as they stand in endpoint texts.
class transport_type {
public:
    enum code { udp = 1, tcp = 2, tls = 3 };
    static str const c_udp;
    static str const c_tcp;
    static str const c_tls;
};

namespace utils {

// --- Addresses (utils_address.cpp) ---

// Text to 4 or 16 bytes; never fails: what is missing or no number counts as 0. Brackets are
// accepted around either.
str compact_ip(str const& text);
// Binary to text; any length but 4 and 16 is "0.0.0.0". `brackets` puts IPv6 in "[" and "]".
str readable_ip(str const& adr, bool brackets);
str readable_ip(ip_port const& endpoint);
str readable_ip(int transport, ip_port const& endpoint);
// Whether the text is a host name rather than an address.
bool need_dns(str const& text);
bool conv4(ip_port const& endpoint, sockaddr_in& address);
bool conv6(ip_port const& endpoint, sockaddr_in6& address);

// The lowest `count` bytes of a number, big-endian.
str int2str(unsigned int value, int count);
// All bytes as one big-endian number, of which the last four count; 0 for none.
int str2int(str const& bytes);
// The big-endian number in `size` bytes at `offset`; bytes outside read as zero.
unsigned int number_at(str const& bytes, int offset, int size);
// Four bytes at `offset`; 0 when they do not all lie inside.
unsigned int str2ulong(str const& bytes, int offset);

// Twelve hex digits from "/nv/mac.txt", or the default.
str get_mac_addr();

// --- Sockets (utils_socket.cpp): descriptors, negative when there is none ---

// Copies an interface name, cut to what the kernel takes, into a zeroed array of IFNAMSIZ bytes
// or more.
void copy_interface_name(char* destination, str const& name);
int open_udp_socket(int port, bool ipv6);
void close_udp_socket(int fd);
// Bound to `port` and connected to `peer`; a link-local peer is reached by the interface.
int open_udp_client(int port, ip_port const& peer, int interface_index);
void set_nonblocking(int fd);
// The socket receives and sends on that interface alone.
void bind_to_device(int fd, str const& interface);
// IPv6 multicast leaves the socket by that interface.
void set_multicast_interface(int fd, int interface_index);
// The results are those of the system call; 0 for empty data, which is not sent. A link-local peer
// is reached by the interface, if there is one.
int send_udp_packet(int fd, ip_port const& peer, str const& data, int interface_index = 0);
int send_udp_packet(int fd, str const& data);
// One packet, or nothing. `peer` changes only with a packet of the right family.
str recv_raw_packet(int fd);
str recv_udp_packet4(int fd, ip_port& peer);
str recv_udp_packet6(int fd, ip_port& peer);
ip_port local_endpoint(int fd, bool ipv6);
int open_tcp_listener(int port, bool ipv6);
int connect_tcp(ip_port const& peer);
int accept_tcp4(int fd);
int accept_tcp6(int fd);
int recv_tcp(int fd, unsigned char* bytes, int size);  // count, or the negated errno
str recv_tcp(int fd);
int send_tcp(int fd, str& data);  // `data` keeps what is still to be sent

// --- Text and numbers (utils_text.cpp) ---

int rand();
str generate_randstr(int count);          // random bytes
unsigned int hex2dec(str const& digits);  // 0 when any byte is no hex digit
str hex2bin(str const& digits);           // null when a pair is not hex; an odd digit is ignored
str bin2hex(str const& bytes, bool upper);
str binbignum(unsigned long long value, int digits);       // big-endian, digits / 2 bytes
str padding(str const& s, int count, unsigned char byte);  // exactly `count` bytes
int get_leading_whitespace(str const& s);
// Offset behind the first empty line; 0 when there is none yet.
int get_body_pos(str const& message);
str get_via_adr(str const& hostport);
str get_via_port(str const& hostport);
// The non-empty pieces between separators.
// Intended: a separator above 0x7F never matches, as in str::get_field.
str_list split_list(str const& text, char separator);

}  // namespace utils

sset<str> split_set(str const& text, char separator);
str uptime_text();  // empty when "/proc/uptime" cannot be read
// 0 when there is no such interface.
int get_interface_index(str const& name);
