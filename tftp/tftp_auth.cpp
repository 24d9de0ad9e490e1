// What an upload leads to when it is whole: a file, or access.
#include "config/config_file.h"
#include "config/settings.h"
#include "core/log.h"
#include "lib/descriptors.h"
#include "tftp/tftp_internal.h"

namespace {

str stored_private_key() {
    descriptors::spare_lent const lent;
    return str::read_file(tftp_private_key);
}

void finish_private_key(tftp_result& transfer) {
    if (transfer.is_damaged) {
        return;
    }
    str const stored = stored_private_key();
    if (stored.empty()) {
        transfer.append_file(transfer.incoming, true);
        tftp_enabled = true;
    } else if (stored == transfer.incoming) {
        tftp_enabled = true;
    }
}

str const blanks(" \t");

bool are_good_credentials(str text) {
    str user;
    str password;
    while (!text.empty()) {
        str const line = text.get_first_line();
        int const colon = line.find(":");
        if (colon < 0) {
            continue;
        }
        str const key = line.leftstr(colon).strip(blanks);
        str const value = line.substr(colon + 1).strip(blanks);
        if (key == "username") {
            user = value;
        } else if (key == "password") {
            password = value;
        }
    }
    return user == http_username1 && password == http_password1;
}

void finish_credentials(tftp_result const& transfer) {
    reload_settings();
    bool const succeeds = !transfer.is_damaged && are_good_credentials(transfer.incoming);
    log_text(5, succeeds ? "TFTP: Authentication succeeded" : "TFTP: Authentication failed");
    if (succeeds) {
        tftp_enabled = true;
    }
}

}  // namespace

void finish_upload(tftp_result& transfer) {
    if (transfer.file_name == tftp_private_key) {
        finish_private_key(transfer);
    } else if (transfer.file_name == tftp_credentials) {
        finish_credentials(transfer);
    } else {
        transfer.append_file(transfer.incoming, true);
    }
}
