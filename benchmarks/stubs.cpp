// The kernel's clock stands still, and log records go nowhere: both sides of a comparison are
// measured without the kernel.
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <sys/times.h>
#include <sys/types.h>

extern "C" {

int __real_open(char const* path, int flags, mode_t mode);
ssize_t __real_write(int fd, void const* bytes, size_t size);

constexpr int log_descriptor = 1000;

clock_t __wrap_times(tms*) {
    return 4711;
}

int __wrap_open(char const* path, int flags, mode_t mode) {
    return strcmp(path, "net2app") == 0 ? log_descriptor : __real_open(path, flags, mode);
}

ssize_t __wrap_write(int fd, void const* bytes, size_t size) {
    return fd == log_descriptor ? ssize_t(size) : __real_write(fd, bytes, size);
}
}
