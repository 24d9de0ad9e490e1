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

// For a transfer that was just entered.
void start_read(tftp_result& transfer, str const& content);
void start_write(tftp_result& transfer);

// An upload is whole.
void finish_upload(tftp_result& transfer);
