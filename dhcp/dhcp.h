// The DHCPv4 client of one interface (RFC 2131): obtains and keeps a lease, checks the address by
// ARP (RFC 5227), configures the interface and publishes what the server told.
//
// The LLDP agent creates, starts and stops clients, the main loop feeds them packets, timers drive
// the rest. A client begins on a packet socket, because the interface has no address yet, and
// moves to a UDP socket once bound.
#pragma once

#include "core/timeout.h"
#include "dhcp/dhcp_packet.h"
#include "lib/ip_port.h"
#include "lib/smap.h"

class dhcp {
public:
    enum state_type {
        state_init,
        state_selecting,
        state_requesting,
        state_rebinding,
        state_bound,
        state_renewing,
    };
    static char const* const state_names[];
    static smap<str, dhcp> clients;  // by interface name

    dhcp();
    dhcp(dhcp const&) = delete;
    dhcp& operator=(dhcp const&) = delete;
    ~dhcp();

    // For the owner. Starting a client that is bound on the interface changes nothing.
    void start(str const& interface_name);
    void stop();
    void clear();
    // Puts address, netmask, broadcast and default route on the interface, all binary; nothing
    // when they are there already. An empty broadcast is computed. Without arguments: takes the
    // address off the interface.
    void set(str const& ip, str const& mask, str const& broadcast, str const& router);
    void set();

    // For the main loop: what was read from `fd` and `arp_fd`.
    void process_data(str const& data);
    void process_arp(str const& frame);

    // For timers, by interface name.
    static void resend_proc(str const& interface_name);
    static void t1_callback(str const& interface_name);
    static void t2_callback(str const& interface_name);
    static void send_arp(str const& interface_name);

    state_type state = state_init;
    int fd = -1;            // packet or UDP socket; -1 when closed
    int arp_fd = -1;        // ARP packet socket; -1 when closed
    bool raw_mode = false;  // `fd` is the packet socket
    str interface;
    ip_port server;  // where messages go on the UDP socket
    timeout t1_timer;
    timeout t2_timer;
    rtimestamp request_time;  // of the last copy sent; base of `secs`
    str xid;
    str own_address;  // granted by the last ACK
    str subnet_mask;
    str routers;
    str offered_address;  // of the accepted offer
    str server_id;        // of the accepted offer
    str vendor_class;     // option 60
    str vendor_options;   // option 125
    dhcp_packet request;  // the last message built, kept for copies
    timeout resend_timer;
    int resend_interval = 0;    // seconds
    int arp_count = 0;          // frames sent in this round
    bool arp_done = false;      // the probe is over, announcements follow
    bool arp_conflict = false;  // the address is in use: no DISCOVER for now
    timeout arp_timer;
    str applied_ip;  // what `set` last put on the interface
    str applied_netmask;
    str applied_broadcast;
    str applied_gateway;
    int interface_index = 0;  // 0: not looked up yet

private:
    // States (dhcp.cpp).
    void change_state(state_type next);
    void goto_state(state_type next);
    void recv_reply(int type, dhcp_packet const& reply);
    void recv_dhcp_offer(dhcp_packet const& packet);
    void recv_dhcp_ack(dhcp_packet const& packet);
    void recv_dhcp_nack();
    void t1_expires();
    void t2_expires();

    // Messages (dhcp_messages.cpp).
    void send_dhcp_discover();
    void send_dhcp_request();
    void send_dhcp_decline();
    void begin_request(int message_type);
    void add_common_options();
    void repeat_request(bool on);
    void resend_request();
    void new_xid();

    // Conflict check (dhcp_arp.cpp).
    void start_arp_probe();
    void arp_tick();
    void send_arp_frame();
    void arp_result(bool conflict);
    void stop_arp();

    // Lease (dhcp_lease.cpp).
    void set_timers(dhcp_packet const& ack);
    void apply_lease(dhcp_packet const& ack);
    void log_lease() const;

    // Sockets (dhcp_socket.cpp).
    void create_raw_socket();
    void create_udp_socket();
    void send_dhcp_packet();
    int lookup_interface_index();
};
