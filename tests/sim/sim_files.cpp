// Files, the log pipe, power cuts, and the table of descriptors.
#include "sim/calls.h"

#include "lib/utils.h"

#include <csignal>
#include <cstdarg>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// The C library's own functions, for what is real.
extern "C" {
int __real_close(int);
int __real_fstat(int, struct stat*);
int __real_mkdir(char const*, mode_t);
int __real_open(char const*, int, ...);
ssize_t __real_read(int, void*, size_t);
int __real_stat(char const*, struct stat*);
int __real_unlink(char const*);
ssize_t __real_write(int, void const*, size_t);
}

namespace sim {

std::map<std::string, file> files;
std::vector<bytes> log_records;
std::map<int, descriptor> descriptors;
lines journal;
int first_descriptor;
int descriptors_max;
bool nv_is_apart;
long long bytes_written = 0;
bool power_is_out;

namespace {

struct failure {
    int error;
    int good_calls;  // left
    int bad_calls;   // left
};
std::map<std::string, failure, std::less<>> failures;  // by call
int calls_to_cut;                                      // that write, before the power goes

bool fails_to_write(char const* call) {
    power_is_out |= calls_to_cut-- == 0;
    return fails(call);
}

bool is_simulated(std::string const& path) {
    return path[0] != '/' || path.starts_with("/nv") || path.starts_with("/proc") ||
           path.starts_with("/dev");
}

bool folder_exists(std::string const& path) {
    size_t const slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 || files.count(path.substr(0, slash));
}

int tell(std::string const& path, struct stat* status) {
    file const& examined = files[path];
    bool const hides_size = path.starts_with("/proc") || path.starts_with("/dev");
    mode_t const kinds[] = {S_IFREG, S_IFDIR, S_IFIFO};
    *status = {};
    status->st_mode = examined.mode | kinds[examined.kind];
    status->st_size = examined.size_told >= 0 ? examined.size_told
                      : hides_size            ? 0
                                              : long(examined.content.size());
    return 0;
}

std::string decoded(bytes const& record) {
    auto const number = [&](int i) { return utils::number_at(to_str(record), i, 2); };
    size_t const text_end = 14 + number(12);
    std::string const line = std::to_string(number(8)) + " " + record.substr(14, number(12));
    EXPECT_EQ(number(2), record.size() - 4) << to_hex(record);
    return text_end == record.size() ? line : line + " | " + record.substr(text_end + 4);
}

}  // namespace

int refuse(int error) {
    errno = error;
    return -1;
}

bool fails(char const* call) {
    auto const found = failures.find(call);
    bool const is_bad =
        found != failures.end() && found->second.good_calls-- <= 0 && found->second.bad_calls-- > 0;
    errno = power_is_out ? EIO : is_bad ? found->second.error : errno;
    return power_is_out || is_bad;
}

void fail(std::string const& call, int error, int good_calls, int bad_calls) {
    failures[call] = {error, good_calls, bad_calls};
}

void repair() {
    failures.clear();
}

void cut_power(int good_calls) {
    calls_to_cut = good_calls;
    sync();  // The wrapped one: what is there now stays.
}

bool power_returns() {
    for (auto& [path, each] : files) {
        each.content = each.synced;
    }
    calls_to_cut = -1;
    return std::exchange(power_is_out, false);
}

descriptor* find(int fd) {
    return descriptors.count(fd) ? &descriptors[fd] : nullptr;
}

descriptor* usable(int fd, char const* call) {
    errno = EBADF;
    return find(fd) && !fails(call) ? find(fd) : nullptr;
}

int add(descriptor const& fresh) {
    if (open_descriptors() >= descriptors_max) {
        return refuse(EMFILE);
    }
    int fd = first_descriptor;
    while (find(fd)) {
        ++fd;
    }
    static unsigned int opened = 0;
    descriptors[fd] = fresh;
    descriptors[fd].number = ++opened;
    return fd;
}

int open_descriptors() {
    return int(descriptors.size());
}

lines take_journal() {
    return std::exchange(journal, {});
}

lines take_log() {
    lines log;
    std::transform(log_records.begin(), log_records.end(), std::back_inserter(log), decoded);
    log_records.clear();
    return log;
}

int count_logged(std::string const& line) {
    return int(std::count_if(log_records.begin(), log_records.end(),
                             [&](bytes const& record) { return decoded(record) == line; }));
}

void reset_world() {
    reset_clock();
    reset_network();
    descriptors.clear();
    failures.clear();
    journal.clear();
    log_records.clear();
    files = {
        {"/nv", {"", file::folder}}, {"/proc", {"", file::folder}}, {"net2app", {"", file::pipe}}};
    first_descriptor = 300;
    descriptors_max = 1024;
    nv_is_apart = false;
    power_is_out = false;
    calls_to_cut = -1;
}

}  // namespace sim

using namespace sim;

extern "C" {

int __wrap_open(char const* path, int flags, ...) {
    if (!is_simulated(path)) {
        return __real_open(path, flags, 0600);
    }
    bool const writes = (flags & O_ACCMODE) == O_WRONLY;
    bool const is_there = files.count(path) || ((flags & O_CREAT) && folder_exists(path));
    descriptor fresh;
    fresh.path = path;
    int const fd = (writes ? fails_to_write("open") : fails("open")) ? -1
                   : is_there                                        ? add(fresh)
                                                                     : refuse(ENOENT);
    if (fd == -1) {
        return -1;
    }
    file& opened = files[path];
    if (opened.kind == file::pipe) {
        EXPECT_TRUE(flags & O_NONBLOCK) << "opening may wait for the reader";
    } else {
        journal.push_back((writes ? "write " : "read ") + fresh.path);
    }
    if (flags & O_TRUNC) {
        va_list arguments;
        va_start(arguments, flags);
        opened = {"", opened.kind, -1, va_arg(arguments, unsigned int)};
        va_end(arguments);
    }
    return fd;
}

int __wrap_close(int fd) {
    if (descriptors.erase(fd)) {
        return 0;
    }
    if (fd >= 0 && fd <= 2) {
        journal.push_back("close " + std::to_string(fd));
        return 0;
    }
    return __real_close(fd);
}

ssize_t __wrap_read(int fd, void* data, size_t size) {
    descriptor* const source = find(fd);
    if (!source) {
        return __real_read(fd, data, size);
    }
    bytes const& content = files[source->path].content;
    size_t const start = std::min(source->offset, content.size());
    if (fails("read")) {
        return -1;
    }
    bool const tells_no_size = source->path.starts_with("/proc");  // and comes in pieces
    source->offset =
        start + content.copy(static_cast<char*>(data),
                             tells_no_size ? std::min<size_t>(size, 1000) : size, start);
    return ssize_t(source->offset - start);
}

ssize_t __wrap_write(int fd, void const* data, size_t size) {
    descriptor const* const target = find(fd);
    if (!target) {
        return __real_write(fd, data, size);
    }
    file& written = files[target->path];
    bool const is_log = written.kind == file::pipe;
    if (is_log ? fails("write log") : fails_to_write("write")) {
        return -1;
    }
    is_log ? log_records.push_back(raw(data, size)) : void(written.content += raw(data, size));
    bool const is_kept = !target->path.starts_with("/proc") && !target->path.starts_with("tmp.");
    bytes_written += is_kept && !is_log ? ssize_t(size) : 0;
    return ssize_t(size);
}

int __wrap_stat(char const* path, struct stat* status) {
    return !is_simulated(path) ? __real_stat(path, status)
           : fails("stat")     ? -1
           : files.count(path) ? tell(path, status)
                               : refuse(ENOENT);
}

int __wrap_fstat(int fd, struct stat* status) {
    descriptor const* const opened = find(fd);
    return !opened ? __real_fstat(fd, status) : fails("fstat") ? -1 : tell(opened->path, status);
}

int __wrap_fchmod(int fd, mode_t mode) {
    files[find(fd)->path].mode = mode & 07777;
    return fails_to_write("fchmod") ? -1 : 0;
}

int __wrap_mkdir(char const* path, mode_t mode) {
    if (!is_simulated(path)) {
        return __real_mkdir(path, mode & 0777);
    }
    if (files.count(path) || fails_to_write("mkdir")) {
        return refuse(EEXIST);
    }
    files[path] = {"", file::folder, -1, mode & 07777};
    journal.push_back(std::string("mkdir ") + path);
    return 0;
}

int __wrap_unlink(char const* path) {
    return !is_simulated(path)        ? __real_unlink(path)
           : fails_to_write("unlink") ? -1
           : files.erase(path)        ? 0
                                      : refuse(ENOENT);
}

int __wrap_rename(char const* from, char const* to) {
    if (fails_to_write("rename")) {
        return -1;
    }
    bool const crosses = nv_is_apart && !strncmp(from, "/nv", 3) != !strncmp(to, "/nv", 3);
    if (crosses || !files.count(from) || !folder_exists(to)) {
        return refuse(crosses ? EXDEV : ENOENT);
    }
    files[to] = files[from];
    files.erase(from);
    return 0;
}

int __wrap_fsync(int fd) {
    file& synced = files[find(fd)->path];
    journal.push_back("fsync " + find(fd)->path);
    bool const is_good = !fails_to_write("fsync");
    synced.synced = is_good ? synced.content : synced.synced;
    return is_good ? 0 : -1;
}

void __wrap_sync() {
    journal.emplace_back("sync");
    for (auto& [path, each] : files) {
        each.synced = each.content;
    }
}

int __wrap_umount(char const* path) {
    journal.push_back(std::string("umount ") + path);
    return 0;
}

int __wrap_reboot(int command) {
    journal.push_back("reboot " + to_hex(big_endian(unsigned(command), 4)));
    return 0;
}

sighandler_t __wrap_signal(int number, sighandler_t handler) {
    journal.push_back((handler == SIG_IGN ? "ignore signal " : "signal ") + std::to_string(number));
    return SIG_DFL;
}

}  // extern "C"
