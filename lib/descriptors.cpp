#include "lib/descriptors.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/filter.h>
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
    (void)::close(descriptors::abandoned.head->value);
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
            (void)::close(fd);
        } else if (fd >= 0 || !table_is_full()) {
            return fd;
        }
        if (!close_oldest_abandoned()) {
            return -1;
        }
    }
}

void descriptors::close(int& fd) {
    if (fd != -1) {
        int const closed = fd;
        fd = -1;
        (void)::close(closed);
    }
}

void descriptors::abandon(int socket) {
    constexpr int queue_max = 4096;  // datagrams: more than a receive buffer can hold
    sock_filter drop_all[] = {BPF_STMT(BPF_RET | BPF_K, 0)};
    sock_fprog const filter = {1, drop_all};
    (void)setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
    unsigned char byte;
    for (int left = queue_max; left > 0; --left) {
        bool const is_empty = recvfrom(socket, &byte, 1, MSG_DONTWAIT, nullptr, nullptr) < 0 &&
                              errno != ECONNREFUSED;  // a late ICMP error comes before the data
        if (is_empty) {
            break;
        }
    }
    abandoned.append(socket);
}

descriptors::spare_lent::spare_lent() {
    descriptors::close(spare);
}

descriptors::spare_lent::~spare_lent() {
    spare = open_socket(AF_INET, SOCK_DGRAM, 0);
}
