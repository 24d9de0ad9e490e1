// Sets the system clock by SNTP (RFC 4330). Three clients run side by side, one a source of a
// server: settings, DHCPv4, DHCPv6. The first to be answered is selected, and only it is used
// until it no longer answers.
//   offset  size  field of the message (RFC 4330, 4)
//        0     1  leap indicator (2 bits), version (3), mode (3)
//        1    23  stratum, poll, precision, root delay and dispersion, reference
//       24     8  originate timestamp: seconds since 1900, fraction
//       32     8  receive timestamp
//       40     8  transmit timestamp
#pragma once

#include "core/timeout.h"
#include "dns/dns_resolver.h"

class ntp_client {
public:
    ntp_client();

    // Another server, which is asked at once.
    void use_server(str const& server_text);
    // One attempt: asks the server, or for its address first. Nothing without a server.
    void start_client();
    void send_ntp_packet(str const& server_text);
    // Counts an attempt and arms the next one.
    void schedule_next();
    // For the main loop: a datagram from `socket`.
    void process_packet(str const& packet);

    int socket = -1;    // -1 until the first request
    str server;         // address or name, with a port if need be
    int index = 0;      // in `ntp`
    bool ipv6 = false;  // the last request went to an IPv6 address
    int attempts = 0;   // without an answer
    timeout timer;
    int questions = 0;  // to the resolver since a time request, the end of a try or another server

private:
    bool is_other_selected() const;
    void resolve_and_send(str const& address);
    void request_name(str const& name, dns_resolver::dns_type type);
};

constexpr int ntp_count = 3;
enum ntp_source { ntp_from_settings = 0, ntp_from_dhcp4 = 1, ntp_from_dhcp6 = 2 };
extern ntp_client ntp[ntp_count];
extern int selected_ntp_client;
extern bool ntp_server_selected;
extern bool manual_ntp_started;

void init_ntp();
// Starts the client of the setting `ntp_server`, the first time it is called.
int start_manual_ntp_server();
// For timers and the resolver: `start_client` on one client, if there is such an index.
void restart_ntp_client(int index);
