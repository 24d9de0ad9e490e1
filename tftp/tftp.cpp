// The listening sockets and the requests that come there.
#include "tftp/tftp.h"

#include "config/settings.h"
#include "core/log.h"
#include "lib/descriptors.h"
#include "lib/utils.h"
#include "tftp/tftp_internal.h"

#include <climits>
#include <sys/select.h>
#include <unistd.h>

constinit smap<int, tftp_result> tftp_ports;
constinit int fd_tftp4 = -1;
constinit int fd_tftp6 = -1;

namespace {

constexpr int listening_port = 69;  // RFC 1350, 4

constexpr int descriptors_each = 2;  // of a transfer: its socket and a file
constexpr int reserved_descriptors = 64;

// Uploads side by side without access: more would let strangers fill the memory.
constexpr int uploads_max = 16;
constinit int uploads_begun = 0;

enum error_code { error_file_not_found = 1, error_access_violation = 2 };

void send_error(int socket, ip_port const& to, error_code code, char const* message) {
    str const packet =
        utils::int2str(tftp_error, 2) + utils::int2str(code, 2) + message + str::x_00;
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
    return (tftp_ports.count + 1) * descriptors_each > usable - reserved_descriptors;
}

// Without access a further upload takes the place of the oldest one.
void make_room_for_upload() {
    tftp_result const* oldest = nullptr;
    int uploads = 0;
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        int const number = each->value.upload_number;
        uploads += number > 0;
        if (number > 0 && (!oldest || number < oldest->upload_number)) {
            oldest = &each->value;
        }
    }
    if (uploads >= uploads_max) {
        delete_transfer(oldest->socket);
    }
}

// nullptr when there is no socket for it.
tftp_result* new_transfer(ip_port const& peer, str const& name) {
    if (is_crowded()) {
        return nullptr;
    }
    int const socket = utils::open_udp_client(0, peer, default_interface_index);
    if (socket == -1) {
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
        log_text(7, "TFTP: Message repetition, dropping read request for %s", name);
        return;
    }
    tftp_result opened;
    opened.file_name = name;
    if (!open_file(opened)) {
        log_text(6, "TFTP: File %s not found", name);
        send_error(socket, from, error_file_not_found, "File Not Found");
        return;
    }
    if (log_level >= 6) {
        log_add_message(
            6, str::sprintf("TFTP: Request for %s from %s", name, utils::readable_ip(from)),
            str::null);
    }
    if (tftp_result* const transfer = new_transfer(from, name)) {
        start_read(*transfer, opened);
    }
}

void write_requested(int socket, str const& packet, ip_port const& from) {
    str const name = requested_name(packet);
    if (!tftp_enabled && name != tftp_private_key && name != tftp_credentials) {
        refuse(socket, from);
        return;
    }
    log_text(7, "TFTP: Open port for writing");
    if (!tftp_enabled) {
        make_room_for_upload();
    }
    if (tftp_result* const transfer = new_transfer(from, name)) {
        transfer->upload_number = ++uploads_begun;
        start_write(*transfer);
    }
}

}  // namespace

void init_tftp() {
    fd_tftp4 = utils::open_udp_socket(listening_port, false);
    fd_tftp6 = utils::open_udp_socket(listening_port, true);
}

void close_tftp() {
    descriptors::close(fd_tftp4);
    descriptors::close(fd_tftp6);
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
