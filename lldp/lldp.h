// The LLDP-MED agent of one wired interface: announces the base station, learns the voice VLAN
// from the switch's network policy, creates the VLAN interface and starts the address clients.
//
// With a user name in the settings it first authenticates at the switch port (IEEE 802.1X): it
// sends EAPOL-Start at 0, 1 and 2 seconds and turns to LLDP when the authenticator has decided,
// either way, or at 3 seconds when there is none.
//
// In LLDP frames leave at 0, 1 and 2 seconds. At 3 seconds, or when a policy arrives before, the
// address clients start; from then on a frame leaves every 30 seconds.
#pragma once

#include "core/timeout.h"
#include "lib/smap.h"
#include "lldp/lldp_packet.h"

class lldp {
public:
    enum state_type {
        state_idle = 0,
        state_eapol_start = 1,           // nobody has answered yet
        state_eapol_authenticating = 2,  // the authenticator has the word
        state_lldp = 3,
    };

    static smap<str, lldp> clients;  // by interface name

    lldp() = default;
    lldp(lldp const&) = delete;
    lldp& operator=(lldp const&) = delete;
    ~lldp();

    // For the owner: begins from the top, also when it runs already.
    void start(str const& ifname);
    // The sockets and the VLAN interface stay.
    void stop();
    // Whether the settings give a static address that can be used; DHCP is the answer otherwise.
    static bool has_static_address();
    // Tells every agent the address to announce, binary; it goes out with the next frame.
    static void set_management_address(str const& address);

    // For the main loop: a frame read from `lldp_fd`, one from `eapol_fd`.
    void process_lldp(str const& frame);
    void process_eap(str const& frame);

    // For the timer, by interface name: one tick.
    static void resend_proc(str const& ifname);

    void start_eapol();
    void start_lldp();
    void start_dhcp();
    void setup_packet();  // builds what is announced
    // Joins (or leaves) a multicast group of 6 bytes; the result of the system call.
    int multicast(int socket, unsigned char const* mac, bool add);
    // Sends one EAPOL packet; one that holds an EAP Response of that type.
    void send_eap(str const& eapol);
    void send_eap_response(unsigned char identifier, unsigned char type, str const& data);

    state_type state = state_idle;
    int eapol_fd = -1;  // -1 when closed
    int lldp_fd = -1;   // -1 when closed
    int interface_index = 0;
    str name;
    str management_address;  // binary; empty until known
    lldp_packet packet;      // the last one announced
    timeout timer;
    int counter = 0;     // ticks of the current phase
    int voice_vlan = 0;  // from the switch, else from the settings; 0: none
    int voice_priority = 0;
    int voice_dscp = 0;
    bool dhcp_started = false;

private:
    void tick();
    void eapol_tick();
    void lldp_tick();
    bool process_eap_packet(str const& eap);
    void answer_request(str const& request);
    void send_frame();
    unsigned int policy_word() const;
    str setup_vlan_interface() const;
    void start_ipv4(str const& interface_name);
};
