#include "lib/descriptors.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

constinit linked_list<int> descriptors::abandoned;
constinit int descriptors::spare = -1;

namespace {

bool close_oldest_abandoned() {
    if (!descriptors::abandoned.head) {
        return false;
    }
    close(descriptors::abandoned.head->value);
    descriptors::abandoned.remove_first();
    return true;
}

bool table_is_full() {
    return errno == EMFILE || errno == ENFILE;
}

}  // namespace

int descriptors::open_file(char const* path, int flags, mode_t mode) {
    for (;;) {
        int const fd = open(path, flags, mode);
        if (fd >= 0 || !table_is_full() || !close_oldest_abandoned()) {
            return fd;
        }
    }
}

int descriptors::open_socket(int domain, int type, int protocol) {
    for (;;) {
        int const fd = socket(domain, type, protocol);
        bool const is_too_large = fd >= FD_SETSIZE;
        if (is_too_large) {
            close(fd);
        } else if (fd >= 0 || !table_is_full()) {
            return fd;
        }
        if (!close_oldest_abandoned()) {
            return -1;
        }
    }
}

void descriptors::abandon(int fd) {
    abandoned.append(fd);
}

descriptors::spare_lent::spare_lent() {
    if (spare != -1) {
        close(spare);
        spare = -1;
    }
}

descriptors::spare_lent::~spare_lent() {
    spare = open_socket(AF_INET, SOCK_DGRAM, 0);
}
