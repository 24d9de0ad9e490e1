// The 802.1X supplicant of the agent: EAPOL version 1, EAP with Identity, Notification and
// MD5-Challenge.
//   EAPOL packet (IEEE 802.1X-2001, 7.5)     EAP packet (RFC 3748, 4)
//   offset  size  field                      offset  size  field
//        0     1  version: 1                      0     1  code
//        1     1  type: 0 EAP, 1 Start            1     1  identifier
//        2     2  length of the body              2     2  length, header included
//        4     -  body: EAP packets               4     1  type, of Request and Response
//                                                 5     -  data of the type
//   Data of an MD5-Challenge (RFC 3748, 5.4): length of the value (1 byte), value.
#include "config/settings.h"
#include "core/log.h"
#include "lib/hash.h"
#include "lib/packet_socket.h"
#include "lib/utils.h"
#include "lldp/lldp.h"

#include <sys/socket.h>

namespace {

constexpr int ether_type = 0x888E;
constexpr unsigned char group_address[] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x03};  // the PAE group

constexpr int ethernet_header_length = 14;
constexpr int eapol_header_length = 4;
constexpr int eap_header_length = 4;
constexpr int eapol_version = 1;
enum eapol_type { eapol_eap = 0, eapol_start = 1 };

enum eap_code { code_request = 1, code_response = 2, code_success = 3, code_failure = 4 };
enum eap_type {  // RFC 3748, 5
    type_identity = 1,
    type_notification = 2,
    type_nak = 3,
    type_md5_challenge = 4,
};

constexpr int starts_max = 3;         // as maxStart of IEEE 802.1X-2001
constexpr int start_interval = 1;     // seconds, where its startPeriod is 30
constexpr int challenge_length = 16;  // bytes; a shorter one gets no digest

str eapol_header(eapol_type type, int body_length) {
    return utils::int2str(eapol_version, 1) + utils::int2str(type, 1) +
           utils::int2str(unsigned(body_length), 2);
}

str md5_response(unsigned char identifier, str const& type_data) {
    str const challenge = type_data.substr(1, type_data[0]);
    log_text(7, "802.1X Challenge %h", challenge);
    str digest;
    if (challenge.length() >= challenge_length) {
        digest = auth_md5_bin(utils::int2str(identifier, 1) + ieee_802_1x_password + challenge);
    }
    return utils::int2str(unsigned(digest.length()), 1) + digest;
}

}  // namespace

void lldp::start_eapol() {
    if (eapol_fd == -1) {
        eapol_fd = packet_socket::open(SOCK_RAW, ether_type, interface_index);
        (void)multicast(eapol_fd, group_address, true);
    }
    counter = 0;
    state = state_eapol_start;
    resend_proc(name);
}

void lldp::eapol_tick() {
    int const old = counter;
    counter = old + 1;
    if (old >= starts_max) {
        start_lldp();
        return;
    }
    send_eap(eapol_header(eapol_start, 0));
    timer.callback(rtimestamp::s2ticks(start_interval), callback_argument(resend_proc, name));
}

void lldp::send_eap(str const& eapol) {
    str const destination(group_address, sizeof group_address);
    str const frame =
        destination + utils::hex2bin(mac_addr) + utils::int2str(ether_type, 2) + eapol;
    packet_socket::send(eapol_fd, ether_type, interface_index, destination, frame);
}

void lldp::send_eap_response(unsigned char identifier, unsigned char type, str const& data) {
    int const length = eap_header_length + 1 + data.length();
    send_eap(eapol_header(eapol_eap, length) + utils::int2str(code_response, 1) +
             utils::int2str(identifier, 1) + utils::int2str(unsigned(length), 2) +
             utils::int2str(type, 1) + data);
}

void lldp::process_eap(str const& frame) {
    log_text(8, "EAP: Received %h", frame);
    str const eapol = frame.substr(ethernet_header_length);
    if (eapol.length() < eapol_header_length || eapol[0] != eapol_version ||
        eapol[1] != eapol_eap) {
        return;
    }
    int const body_length = int(utils::number_at(eapol, 2, 2));
    str body = eapol.substr(eapol_header_length, body_length);
    if (body.length() < body_length) {
        return;
    }
    // Intended: from now on only the authenticator's word, or the link, leads to LLDP. Do not add
    // a timeout.
    timer.clear();
    state = state_eapol_authenticating;
    bool is_decided = false;
    while (body.length() >= eap_header_length && !is_decided) {
        int const length = int(utils::number_at(body, 2, 2));
        if (length < eap_header_length || length > body.length()) {
            return;
        }
        is_decided = process_eap_packet(body.leftstr(length));
        body = body.substr(length);
    }
}

// Whether it was the authenticator's verdict: what follows that in a frame does not count.
// Intended: a port that refuses the device does not keep it from trying the network.
bool lldp::process_eap_packet(str const& eap) {
    switch (eap[0]) {
    case code_request:
        answer_request(eap);
        return false;
    case code_success:
        log_text(7, "802.1X authentication done");
        start_lldp();
        return true;
    case code_failure:
        log_text(1, "802.1X authentication failed");
        start_lldp();
        return true;
    default:
        return false;
    }
}

void lldp::answer_request(str const& request) {
    unsigned char const identifier = request[1];
    str const type_data = request.substr(eap_header_length + 1);
    switch (request[4]) {
    case type_identity:
        send_eap_response(identifier, type_identity, ieee_802_1x_username);
        break;
    case type_notification:
        log_text(2, "802.1X notification: %s", type_data);
        send_eap_response(identifier, type_notification, str::null);
        break;
    case type_nak:
        break;
    case type_md5_challenge:
        send_eap_response(identifier, type_md5_challenge, md5_response(identifier, type_data));
        break;
    default:
        send_eap_response(identifier, type_nak, utils::int2str(type_md5_challenge, 1));
        break;
    }
}
