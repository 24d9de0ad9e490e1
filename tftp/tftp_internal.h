// What the sources of the TFTP server share.
#pragma once

#include "tftp/tftp.h"

enum tftp_opcode {
    tftp_read_request = 1,
    tftp_write_request = 2,
    tftp_data = 3,
    tftp_acknowledgement = 4,
    tftp_error = 5,
};

constexpr char tftp_private_key[] = "/nv/privatekey.txt";
constexpr char tftp_credentials[] = "auth.txt";

// Opens the file that a read asks for and reads its beginning ahead. False when there is none, or
// nothing in it.
bool open_file(tftp_result& transfer);
// Reads on when all that was read ahead has been sent. False when the file cannot be read any
// more, or has become shorter.
bool read_ahead(tftp_result& transfer);

// For a transfer that was just entered. A read takes over the file that `opened` holds.
void start_read(tftp_result& transfer, tftp_result& opened);
void start_write(tftp_result& transfer);
// Ends a transfer.
void delete_transfer(int socket);

// An upload is whole.
void finish_upload(tftp_result& transfer);
