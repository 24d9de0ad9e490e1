// The transfers: blocks, acknowledgements, timers, the temporary file.
#include "config/settings.h"
#include "core/log.h"
#include "lib/descriptors.h"
#include "lib/utils.h"
#include "tftp/tftp.h"
#include "tftp/tftp_internal.h"

#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

constinit int tftp_next_temp_number = 1;

namespace {

constexpr int block_size = 512;     // bytes
constexpr int header_length = 4;    // bytes of opcode and block
constexpr int message_max = 512;    // bytes of a foreign text in the log
constexpr int idle_limit = 60;      // seconds
constexpr int resend_interval = 1;  // seconds
constexpr int sends_max = 4;
constexpr int write_size = 32 * 1024;  // bytes that are worth a system call
// Bytes of an upload that are kept without access. Once all uploads together hold more than they
// may, only what credentials need is kept of each.
constexpr int kept_of_one = 1048576;
constexpr int kept_of_all = 4 * kept_of_one;
constexpr int kept_of_each = 4096;

// Intended: the socket stays open. Do not close it; it goes when its place is needed.
void delete_transfer(int socket) {
    tftp_ports.erase_key(socket);
    descriptors::abandon(socket);
}

void close_transfer(int socket) {
    if (!tftp_ports.contains(socket)) {
        return;
    }
    if (log_level >= 7) {
        log_add_message(7, "TFTP: Close port", str::null);
    }
    delete_transfer(socket);
}

void arm_idle_timer(tftp_result& transfer, rtimestamp const& now) {
    transfer.idle_timer.callback(now, rtimestamp::s2ticks(idle_limit),
                                 callback_argument(close_transfer, transfer.socket));
}

str numbered_packet(tftp_opcode opcode, unsigned int block) {
    return utils::int2str(static_cast<unsigned int>(opcode) << 16 | (block & 0xFFFF),
                          header_length);
}

void send_acknowledgement(tftp_result const& transfer, unsigned int block) {
    // One that is lost makes the peer repeat its block.
    (void)utils::send_udp_packet(transfer.socket, numbered_packet(tftp_acknowledgement, block));
}

void resend_timer_expires(int socket);

void transmit(tftp_result& transfer, rtimestamp const& now) {
    ++transfer.sends;
    (void)utils::send_udp_packet(transfer.socket, transfer.last_packet);  // A copy follows.
    transfer.retransmit_timer.callback(now, rtimestamp::s2ticks(resend_interval),
                                       callback_argument(resend_timer_expires, transfer.socket));
}

void resend_timer_expires(int socket) {
    tftp_result* const transfer = tftp_ports.find(socket);
    if (!transfer) {
        return;
    }
    if (transfer->sends < sends_max) {
        transmit(*transfer, rtimestamp::now());
        return;
    }
    if (log_level >= 3) {
        log_add_message(
            3, str::sprintf("TFTP: Retransmit timeout on %s", utils::readable_ip(transfer->peer)),
            str::null);
    }
    delete_transfer(socket);
}

void send_next_block(tftp_result& transfer) {
    str const data = transfer.outgoing.leftstr(block_size);
    transfer.outgoing = transfer.outgoing.substr(block_size);
    transfer.final = data.length() < block_size;
    transfer.last_packet = numbered_packet(tftp_data, transfer.block) + data;
    transfer.sends = 0;
    rtimestamp const now = rtimestamp::recent();
    arm_idle_timer(transfer, now);
    transmit(transfer, now);
}

// Intended: numbers of 16 bits are compared with the full count, here and for data, so that a
// transfer stops at block 65536. Do not let the number wrap.
void acknowledged(tftp_result& transfer, unsigned int number) {
    if (number != transfer.block) {
        return;
    }
    if (!transfer.final) {
        ++transfer.block;
        send_next_block(transfer);
        return;
    }
    if (log_level >= 8) {
        log_add_message(8, "TFTP: Transfer finished successfully", str::null);
    }
    delete_transfer(transfer.socket);
}

int kept_bytes() {
    int sum = 0;
    for (auto* each = tftp_ports.first(); each; each = tftp_ports.next(each)) {
        sum += each->value.incoming.length();
    }
    return sum;
}

// Without access nobody may fill the memory.
int room_for(tftp_result const& transfer, str const& data) {
    if (tftp_enabled) {
        return data.length();
    }
    int const kept = transfer.incoming.length();
    bool const is_tight = kept + data.length() > kept_of_each && kept_bytes() > kept_of_all;
    return (is_tight ? kept_of_each : kept_of_one) - kept;
}

void keep(tftp_result& transfer, str const& data) {
    int const room = room_for(transfer, data);
    if (data.length() > room) {
        transfer.is_damaged = true;
    }
    transfer.incoming += data.leftstr(room);
}

void store(tftp_result& transfer, str const& data) {
    keep(transfer, data);
    if (data.length() >= block_size || transfer.complete) {
        if (tftp_enabled) {
            transfer.append_file(transfer.incoming, false);
        }
        return;
    }
    if (log_level >= 6) {
        log_add_message(6,
                        str::sprintf("TFTP: Receive %s (%d bytes)", transfer.file_name,
                                     transfer.incoming.length()),
                        str::null);
    }
    transfer.complete = true;
    finish_upload(transfer);
}

void data_received(tftp_result& transfer, unsigned int number, str const& data) {
    if (number == transfer.block + 1) {
        transfer.block = number;
        store(transfer, data);
    }
    send_acknowledgement(transfer, number);
}

void error_received(tftp_result const& transfer, int code, str const& message) {
    int const level = code < 1 ? 9 : 5;
    if (log_level >= level) {
        log_add_message(level,
                        str::sprintf("TFTP: Received error %d: %s", code,
                                     message.leftstr(message_max).rstrip('\0')),
                        str::null);
    }
    delete_transfer(transfer.socket);
}

bool begins_with(str const& text, char const* prefix) {
    str const wanted(prefix);
    return text.leftstr(wanted.length()) == wanted;
}

mode_t file_mode(str const& name) {
    bool const is_program = begins_with(name, "ata-") || begins_with(name, "/nv/ata-");
    return is_program ? 0777 : 0666;
}

bool write_all(int fd, str const& data) {
    int offset = 0;
    while (offset < data.length()) {
        ssize_t const count = write(fd, data.cbuffer() + offset, size_t(data.length() - offset));
        if (count <= 0) {
            return false;
        }
        offset += int(count);
    }
    return true;
}

void discard_temporary_file(tftp_result& transfer) {
    transfer.unwritten.clear();
    if (transfer.temp_fd != -1) {
        close(transfer.temp_fd);
        transfer.temp_fd = -1;
    }
    if (!transfer.temp_name.empty()) {
        str::remove_file(transfer.temp_name, true);
        transfer.temp_name.clear();
    }
}

void open_temporary_file(tftp_result& transfer) {
    str name = str::sprintf("tmp.%d", tftp_next_temp_number);
    ++tftp_next_temp_number;
    str::remove_file(name, true);  // One that a power cut left would keep its mode.
    transfer.temp_fd = descriptors::open_file(name.c_str(), O_CREAT | O_TRUNC | O_WRONLY,
                                              file_mode(transfer.file_name));
    if (transfer.temp_fd >= 0) {
        transfer.temp_name = name;
    }
}

}  // namespace

tftp_result::~tftp_result() {
    discard_temporary_file(*this);
}

void tftp_result::append_file(str& data, bool is_last) {
    if (temp_fd == -1 && !is_damaged) {
        open_temporary_file(*this);
        is_damaged = temp_fd == -1;
    }
    unwritten += data;
    data.clear();
    if (!is_damaged && (is_last || unwritten.length() >= write_size)) {
        is_damaged = !write_all(temp_fd, unwritten);
        unwritten.clear();
    }
    if (is_damaged) {
        discard_temporary_file(*this);
        return;
    }
    if (is_last) {
        (void)fsync(temp_fd);  // The name must not outlive a power cut that the content does not.
        close(temp_fd);
        temp_fd = -1;
        if (str::rename_file(temp_name, file_name)) {
            temp_name.clear();
        }
        discard_temporary_file(*this);
    }
}

void start_read(tftp_result& transfer, str const& content) {
    transfer.outgoing = content;
    transfer.file_size = content.length();
    send_next_block(transfer);
}

void start_write(tftp_result& transfer) {
    transfer.block = 0;
    arm_idle_timer(transfer, rtimestamp::now());
    send_acknowledgement(transfer, 0);
}

void on_tftp_packet(tftp_result& transfer, str const& packet) {
    if (packet.length() < header_length || packet[0] != 0) {
        return;
    }
    int const number = utils::str2int(packet.substr(2, 2));
    switch (packet[1]) {
    case tftp_data:
        data_received(transfer, unsigned(number), packet.substr(header_length));
        break;
    case tftp_acknowledgement:
        acknowledged(transfer, unsigned(number));
        break;
    case tftp_error:
        error_received(transfer, number, packet.substr(header_length));
        break;
    default:
        break;
    }
}
