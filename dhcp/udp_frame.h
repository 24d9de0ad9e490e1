// The IPv4 and UDP headers of the messages that the DHCPv4 client sends and receives on its packet
// socket, while the interface has no address.
//   IPv4 (RFC 791, 3.1)                      UDP (RFC 768)
//   offset  size  field                      offset  size  field
//        0     1  version 4, 5 words: 0x45       20     2  source port
//        1     1  type of service: 0             22     2  destination port
//        2     2  total length                   24     2  length
//        4     4  identification, fragment: 0    26     2  checksum, over a pseudo-header,
//        8     1  TTL: 128                                 header and message
//        9     1  protocol: 17, UDP              28     -  message
//       10     2  header checksum
//       12     4  source: 0.0.0.0
//       16     4  destination: 255.255.255.255
#pragma once

#include "lib/str.h"

namespace udp_frame {

// The packet that broadcasts a message of the client.
str with_headers(str const& message);
bool is_for_client(str const& packet);
// What follows the headers. An IPv4 header without options is taken for granted.
str message_of(str const& packet);

}  // namespace udp_frame
