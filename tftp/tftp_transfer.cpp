// The transfers: blocks, acknowledgements, timers.
#include "config/settings.h"
#include "core/log.h"
#include "lib/descriptors.h"
#include "lib/utils.h"
#include "tftp/tftp.h"
#include "tftp/tftp_internal.h"

namespace {

constexpr int block_size = 512;     // bytes, RFC 1350, 2
constexpr int header_length = 4;    // bytes of opcode and block
constexpr int message_max = 512;    // bytes of a foreign text in the log
constexpr int kept_max = 16000;     // bytes of an upload without access
constexpr int idle_limit = 60;      // seconds
constexpr int resend_interval = 1;  // seconds
constexpr int sends_max = 4;

void close_transfer(int socket) {
    if (tftp_ports.contains(socket)) {
        log_text(7, "TFTP: Close port");
        delete_transfer(socket);
    }
}

void arm_idle_timer(tftp_result& transfer) {
    transfer.idle_timer.callback(rtimestamp::s2ticks(idle_limit),
                                 callback_argument(close_transfer, transfer.socket));
}

str numbered_packet(tftp_opcode opcode, unsigned int block) {
    return utils::int2str(opcode, 2) + utils::int2str(block, 2);
}

void send_acknowledgement(tftp_result const& transfer, unsigned int block) {
    // One that is lost makes the peer repeat its block.
    (void)utils::send_udp_packet(transfer.socket, numbered_packet(tftp_acknowledgement, block));
}

void resend_timer_expires(int socket);

void transmit(tftp_result& transfer) {
    ++transfer.sends;
    (void)utils::send_udp_packet(transfer.socket, transfer.last_packet);  // A copy follows.
    transfer.retransmit_timer.callback(rtimestamp::s2ticks(resend_interval),
                                       callback_argument(resend_timer_expires, transfer.socket));
}

void resend_timer_expires(int socket) {
    tftp_result* const transfer = tftp_ports.find(socket);
    if (!transfer) {
        return;
    }
    if (transfer->sends < sends_max) {
        transmit(*transfer);
        return;
    }
    log_text(3, "TFTP: Retransmit timeout on %s", utils::readable_ip(transfer->peer));
    delete_transfer(socket);
}

void send_next_block(tftp_result& transfer) {
    str const data = transfer.outgoing.leftstr(block_size);
    transfer.outgoing = transfer.outgoing.substr(block_size);
    transfer.final = data.length() < block_size;
    arm_idle_timer(transfer);
    transfer.last_packet = numbered_packet(tftp_data, transfer.block) + data;
    transfer.sends = 0;
    transmit(transfer);
}

// Intended: numbers of 16 bits are compared with the full count, here and for data, so that a
// transfer stops at block 65536. Do not let the number wrap.
void acknowledged(tftp_result& transfer, unsigned int number) {
    if (number != transfer.block) {
        return;
    }
    if (transfer.final) {
        log_text(8, "TFTP: Transfer finished successfully");
        delete_transfer(transfer.socket);
    } else if (read_ahead(transfer)) {
        ++transfer.block;
        send_next_block(transfer);
    } else {
        delete_transfer(transfer.socket);  // The peer must not take a part for the whole.
    }
}

// Without access nobody may fill the memory.
void keep(tftp_result& transfer, str const& data) {
    int const room = tftp_enabled ? data.length() : kept_max - transfer.incoming.length();
    transfer.is_damaged |= data.length() > room;
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
    log_text(6, "TFTP: Receive %s (%d bytes)", transfer.file_name, transfer.incoming.length());
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
    log_text(level, "TFTP: Received error %d: %s", code, message.leftstr(message_max).rstrip('\0'));
    delete_transfer(transfer.socket);
}

}  // namespace

// Intended: the socket stays open. Do not close it; it goes when its place is needed.
void delete_transfer(int socket) {
    tftp_ports.erase_key(socket);
    descriptors::abandon(socket);
}

void start_read(tftp_result& transfer, tftp_result& opened) {
    transfer.file_fd = opened.file_fd;
    opened.file_fd = -1;
    transfer.unread = opened.unread;
    transfer.outgoing = opened.outgoing;
    send_next_block(transfer);
}

void start_write(tftp_result& transfer) {
    transfer.block = 0;
    arm_idle_timer(transfer);
    send_acknowledgement(transfer, 0);
}

void on_tftp_packet(tftp_result& transfer, str const& packet) {
    if (packet.length() < header_length || packet[0] != 0) {
        return;
    }
    int const number = int(utils::number_at(packet, 2, 2));
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
