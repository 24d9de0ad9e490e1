// The TFTP server (RFC 1350, without options): lets a management system read and write files.
// Every transfer is binary, whatever its mode says.
//
// While access (the setting `tftp_enabled`) is off, two uploads are taken all the same, since they
// turn it on: "auth.txt" with user name and password, and the device's private key.
//   opcode (2 bytes)           behind it
//   1 read, 2 write request    file name, 0, mode, 0
//   3 data                     block (2 bytes), 0 to 512 bytes
//   4 acknowledgement          block (2 bytes)
//   5 error                    code (2 bytes), message, 0
#pragma once

#include "core/timeout.h"
#include "lib/ip_port.h"
#include "lib/smap.h"

// One transfer.
class tftp_result {
public:
    tftp_result() = default;
    tftp_result(tftp_result const&) = delete;
    tftp_result& operator=(tftp_result const&) = delete;
    ~tftp_result();  // an unfinished write leaves nothing behind

    // Adds to the temporary file, which is opened first if need be, and empties `data`. At last the
    // file gets its name. What cannot be written is dropped, and so is then the whole file.
    void append_file(str& data, bool is_last);

    ip_port peer;
    int socket = 0;  // connected to the peer; key in `tftp_ports`
    str outgoing;    // of a read: what was read ahead and is still to be sent
    timeout idle_timer;
    timeout retransmit_timer;
    str last_packet;         // data, for copies
    int sends = 0;           // of the last packet
    unsigned int block = 1;  // read: being sent; write: last received
    bool final = false;      // the block being sent is the last one
    str file_name;           // as requested
    str incoming;            // of a write: not yet written
    bool complete = false;   // the last block of a write has come
    int temp_fd = -1;        // temporary file; -1 when closed
    str temp_name;
    int file_fd = -1;         // of a read: the file; -1 once all of it was read ahead
    int unread = 0;           // of a read: bytes of the file behind `outgoing`
    int upload_number = 0;    // of a write: higher than that of any before; 0: a read
    bool is_damaged = false;  // part of an upload was dropped: it never counts

private:
    void write_temporary_file(str const& data);
    void name_file();
    void discard_temporary_file();
};

extern smap<int, tftp_result> tftp_ports;  // by socket
extern int fd_tftp4;                       // the listening sockets; -1 when closed
extern int fd_tftp6;
extern int tftp_next_temp_number;

void init_tftp();
// Closes the listening sockets; transfers go on.
void close_tftp();

// For the main loop: a packet from a listening socket, or from a transfer's.
void on_tftp_packet(int socket, str const& packet, ip_port const& from);
void on_tftp_packet(tftp_result& transfer, str const& packet);
