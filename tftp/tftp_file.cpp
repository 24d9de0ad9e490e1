// The files of the transfers: one that is read a window at a time, one that is written under a
// temporary name.
#include "lib/descriptors.h"
#include "lib/str_format.h"
#include "tftp/tftp.h"
#include "tftp/tftp_internal.h"

#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

constinit int tftp_next_temp_number = 1;

namespace {

constexpr int window_size = 15 * 512;  // bytes: whole blocks that fit one block of the pool

// The size of a regular file; -1 for anything else. A file that tells none, as those in /proc,
// counts as endless: a transfer has 65,535 blocks at most.
int regular_size(char const* path) {
    struct stat status;
    if (stat(path, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > INT_MAX) {
        return -1;
    }
    return status.st_size == 0 ? INT_MAX : int(status.st_size);
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

void open_temporary_file(tftp_result& transfer) {
    str name = str::sprintf("tmp.%d", tftp_next_temp_number);
    ++tftp_next_temp_number;
    str::remove_file(name, true);  // One that a power cut left would keep its mode.
    transfer.temp_fd = descriptors::open_file(name.c_str(), O_CREAT | O_TRUNC | O_WRONLY,
                                              file_mode(transfer.file_name));
    if (transfer.temp_fd != -1) {
        transfer.temp_name = name;
    }
}

}  // namespace

bool open_file(tftp_result& transfer) {
    str path = transfer.file_name.slashes();
    transfer.unread = regular_size(path.c_str());  // first: a device may act upon being opened
    if (transfer.unread == -1) {
        return false;
    }
    transfer.file_fd = descriptors::open_file(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
    return transfer.file_fd != -1 && read_ahead(transfer) && !transfer.outgoing.empty();
}

bool read_ahead(tftp_result& transfer) {
    if (transfer.file_fd == -1 || !transfer.outgoing.empty()) {
        return true;
    }
    bool const is_endless = transfer.unread == INT_MAX;
    int const wanted = transfer.unread < window_size ? transfer.unread : window_size;
    str window(nullptr, wanted);
    int count = 0;
    ssize_t part = 0;
    while (count < wanted &&
           (part = read(transfer.file_fd, window.buffer() + count, size_t(wanted - count))) > 0) {
        count += int(part);
    }
    transfer.outgoing = window.leftstr(count);
    transfer.unread -= is_endless ? 0 : count;
    if (count < wanted || transfer.unread == 0) {
        descriptors::close(transfer.file_fd);
    }
    return count == wanted || (is_endless && part == 0);
}

tftp_result::~tftp_result() {
    descriptors::close(file_fd);
    discard_temporary_file();
}

void tftp_result::append_file(str& data, bool is_last) {
    if (!is_damaged) {
        write_temporary_file(data);
    }
    data.clear();
    if (is_last && !is_damaged) {
        name_file();
    }
    if (is_last || is_damaged) {
        discard_temporary_file();
    }
}

void tftp_result::write_temporary_file(str const& data) {
    if (temp_fd == -1) {
        open_temporary_file(*this);
    }
    is_damaged = temp_fd == -1 || !write_all(temp_fd, data);
}

// Synced first: the name must not outlive a power cut that the content does not.
void tftp_result::name_file() {
    (void)fsync(temp_fd);
    descriptors::close(temp_fd);
    if (str::rename_file(temp_name, file_name)) {
        temp_name.clear();
    }
}

void tftp_result::discard_temporary_file() {
    descriptors::close(temp_fd);
    if (!temp_name.empty()) {
        str::remove_file(temp_name, true);
        temp_name.clear();
    }
}
