// The listening sockets and the requests that come there.
#include "tftp/tftp.h"

#include "config/settings.h"
#include "core/log.h"
#include "lib/utils.h"
#include "tftp/tftp_internal.h"

#include <climits>
#include <initializer_list>
#include <sys/select.h>
#include <unistd.h>

constinit smap<int, tftp_result> tftp_ports;
constinit int fd_tftp4 = -1;
constinit int fd_tftp6 = -1;

namespace {

constexpr int listening_port = 69;  // RFC 1350, 4

constexpr int reserved_descriptors = 64;

// Block numbers have 16 bits: nothing behind 65,536 blocks of 512 bytes can be sent.
constexpr int file_size_max = 65536 * 512;

constexpr int held_by_reads_max = 16 * 1024 * 1024;  // bytes; one read alone may hold more

enum error_code { error_file_not_found = 1, error_access_violation = 2 };

void send_error(int socket, ip_port const& to, error_code code, char const* message) {
    str packet = utils::int2str(tftp_error, 2) + utils::int2str(code, 2) + str(message);
    packet += '\0';
    (void)utils::send_udp_packet(socket, to, packet, default_interface_index);  // It asks again.
}

void refuse(int socket, ip_port const& to) {
    send_error(socket, to, error_access_violation, "Authentication Required");
}

// The bytes up to the first 0; empty when no path can be so long.
str requested_name(str const& packet) {
    str const name = packet.substr(2);
    int length = 0;
    while (length < name.length() && name[length] != 0) {
        ++length;
    }
    return length < PATH_MAX ? name.leftstr(length) : str::null;
}

bool is_repetition(ip_port const& from, str const& name) {
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        tftp_result const& transfer = each->value;
        if (transfer.peer.adr == from.adr && transfer.peer.port == from.port &&
            transfer.file_name == name) {
            return true;
        }
    }
    return false;
}

// Transfers leave some descriptors to the rest of the daemon, however many are asked for.
bool is_crowded() {
    long const descriptors_max = sysconf(_SC_OPEN_MAX);
    long const usable = descriptors_max < FD_SETSIZE ? descriptors_max : FD_SETSIZE;
    return tftp_ports.count >= usable - reserved_descriptors;
}

// Whether a file of that size has room beside those that are being read.
bool has_room_for(int size) {
    long long held = 0;
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        held += each->value.file_size;
    }
    return held == 0 || held + size <= held_by_reads_max;
}

// nullptr when there is no socket for it.
tftp_result* new_transfer(ip_port const& peer, str const& name) {
    if (is_crowded()) {
        return nullptr;
    }
    int const socket = utils::open_udp_client(0, peer, default_interface_index);
    if (socket < 0) {
        return nullptr;
    }
    tftp_result& transfer = tftp_ports.find_or_insert(socket);
    transfer.peer = peer;
    transfer.socket = socket;
    transfer.file_name = name;
    return &transfer;
}

void read_requested(int socket, str const& packet, ip_port const& from) {
    if (!tftp_enabled) {
        refuse(socket, from);
        return;
    }
    str const name = requested_name(packet);
    if (is_repetition(from, name)) {
        if (log_level >= 7) {
            log_add_message(
                7, str::sprintf("TFTP: Message repetition, dropping read request for %s", name),
                str::null);
        }
        return;
    }
    str const content = str::read_regular_file(name, file_size_max);
    if (content.empty()) {
        if (log_level >= 6) {
            log_add_message(6, str::sprintf("TFTP: File %s not found", name), str::null);
        }
        send_error(socket, from, error_file_not_found, "File Not Found");
        return;
    }
    if (log_level >= 6) {
        log_add_message(
            6, str::sprintf("TFTP: Request for %s from %s", name, utils::readable_ip(from)),
            str::null);
    }
    if (!has_room_for(content.length())) {
        return;  // It asks again.
    }
    if (tftp_result* const transfer = new_transfer(from, name)) {
        start_read(*transfer, content);
    }
}

void write_requested(int socket, str const& packet, ip_port const& from) {
    str const name = requested_name(packet);
    if (!tftp_enabled && !(name == tftp_private_key) && !(name == tftp_credentials)) {
        refuse(socket, from);
        return;
    }
    if (log_level >= 7) {
        log_add_message(7, "TFTP: Open port for writing", str::null);
    }
    if (tftp_result* const transfer = new_transfer(from, name)) {
        start_write(*transfer);
    }
}

}  // namespace

void init_tftp() {
    fd_tftp4 = utils::open_udp_socket(listening_port, false);
    fd_tftp6 = utils::open_udp_socket(listening_port, true);
}

void close_tftp() {
    for (int* fd : {&fd_tftp4, &fd_tftp6}) {
        if (*fd != -1) {
            utils::close_udp_socket(*fd);
            *fd = -1;
        }
    }
}

void on_tftp_packet(int socket, str const& packet, ip_port const& from) {
    if (packet.length() < 2 || packet[0] != 0) {
        return;
    }
    switch (packet[1]) {
    case tftp_read_request:
        read_requested(socket, packet, from);
        break;
    case tftp_write_request:
        write_requested(socket, packet, from);
        break;
    default:
        break;
    }
}
