// The DHCPv6 client of one interface (RFC 3315): asks for an address, or, where the interface has
// a global one from router advertisements, for configuration alone, and publishes what the server
// told.
//
// The LLDP agent creates, starts and stops clients, the main loop tells them that a datagram
// waits, timers drive the rest.
#pragma once

#include "core/timeout.h"
#include "dhcp6/dhcp6_packet.h"
#include "lib/ip_port.h"
#include "lib/smap.h"

class dhcp6 {
public:
    enum state_t {
        state_initial,
        state_solicit,
        state_request,
        state_bound,
        state_renew,
        state_rebind,
        state_stateless,
        state_failed,
    };
    static char const* const state_names[];
    static smap<str, dhcp6> clients;  // by interface name

    dhcp6() = default;
    dhcp6(dhcp6 const&) = delete;
    dhcp6& operator=(dhcp6 const&) = delete;
    ~dhcp6();

    // For the owner. The state stays: a bound client that is started again renews.
    void start(str const& interface_name);
    // The socket and the address stay.
    void stop();

    // For the main loop: reads one datagram from `fd` and handles it.
    void process_data();

    // For timers, by interface name.
    static void renew_callback(str const& interface_name);
    static void resend_callback(str const& interface_name);

    void goto_state(state_t next);
    // Arms the renewal timers, in seconds; 0 stands for the default, 0xFFFFFFFF for never.
    void register_renew(unsigned int t1, unsigned int t2);

    int fd = -1;              // UDP socket; -1 until the first message
    int interface_index = 0;  // found by `start`
    dhcp6_packet message;     // the last one sent
    timeout resend_timer;
    int retry_count = 0;  // copies of `message`
    str interface;
    str client_duid;        // DUID-LL (RFC 3315, 9.4)
    ip_port server;         // the group of all servers
    rtimestamp start_time;  // base of the elapsed time
    str iaid;               // 4 bytes
    str ia_na;              // of the accepted ADVERTISE, as received
    str server_id;          // of the accepted ADVERTISE
    str xid;                // 3 bytes
    str address;            // last put on the interface, 16 bytes
    state_t state = state_initial;
    timeout renew_timer;   // the delay of the start, T1, the wait after FAILED
    timeout rebind_timer;  // T2

private:
    // States (dhcp6.cpp).
    void recv_advertise(dhcp6_packet const& advertise);
    void renew_timer_expires();
    void resend_timer_expires();
    void begin();

    // Messages (dhcp6_messages.cpp).
    void new_exchange();
    void send_message();
    void build_solicit();
    void build_for_server(int type);
    void build_information_request();
    void add_elapsed_time();
    void make_duid();
    void make_iaid();
    bool open_socket();

    // Reply (dhcp6_reply.cpp).
    void recv_reply(dhcp6_packet const& reply);
    void process_ia_na(str const& granted);
    void set_address();
    static void publish_dns_servers(str const& addresses);
};
