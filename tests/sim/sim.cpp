#include "sim/sim.h"

#include "core/main_loop.h"
#include "core/timeout.h"
#include "lib/utils.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <linux/if_packet.h>
#include <linux/if_vlan.h>
#include <linux/sockios.h>
#include <list>
#include <memory>
#include <net/if.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/times.h>
#include <unistd.h>
#include <utility>

// The C library's own functions, for what is real.
extern "C" {
int __real_close(int);
int __real_fstat(int, struct stat*);
void* __real_malloc(size_t);
int __real_fchmod(int, mode_t);
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
std::map<std::string, int> interfaces;
std::map<std::string, std::string> configured;
std::vector<packet> sent;
int handler_ms;
bool is_broadcast;
bool expects_all_watched;
int first_descriptor;
int descriptors_max;
bool nv_is_apart;
long long bytes_written = 0;
int allocations = 0;
unsigned int clock_ticks_offset = 0;
bool last_ticks_fail = false;

namespace {

struct message {
    bytes data;
    bytes from;  // a socket address
};

struct descriptor {
    std::string path;  // of a file; empty for a socket
    size_t offset = 0;
    int domain = 0;
    int type = 0;
    int port = 0;             // EtherType of a packet socket
    int interface_index = 0;  // of a packet socket
    std::string device;       // SO_BINDTODEVICE
    bytes peer;               // a socket address, when connected
    lines flags;              // options and multicast groups
    std::string multicast_interface;
    unsigned int number = 0;  // of all ever opened
    std::list<message> incoming;

    bool has(std::string const& flag) const {
        return std::find(flags.begin(), flags.end(), flag) != flags.end();
    }
};

constexpr long long epoch_ms = 1700000000000;  // of the wall clock, when the program begins

long long clock_ms = 0;  // never goes back: the daemon counts the wraps of times()
long long case_start_ms = 0;
lines journal;
std::vector<std::unique_ptr<descriptor>> descriptors;  // by number; nullptr when closed
int descriptors_open = 0;
struct failure {
    int error;
    int good_calls;  // left
    int bad_calls;   // left
};
std::map<std::string, failure, std::less<>> failures;  // by call
bool counting_allocations = false;
std::multimap<long long, std::function<void()>> events;  // by ms
std::vector<int> selected = {0, 0};                      // count, wait, descriptors

int refuse(int error) {
    errno = error;
    return -1;
}

bool fails(char const* call) {
    auto const found = failures.find(call);
    if (found == failures.end() || found->second.good_calls-- > 0 ||
        found->second.bad_calls-- <= 0) {
        return false;
    }
    found->second.good_calls = 0;
    errno = found->second.error;
    return true;
}

descriptor* find(int fd) {
    return fd >= 0 && size_t(fd) < descriptors.size() ? descriptors[size_t(fd)].get() : nullptr;
}

// nullptr, with errno, when it is not open or the call is to fail.
descriptor* usable(int fd, char const* call) {
    descriptor* const found = find(fd);
    if (!found) {
        errno = EBADF;
    }
    return found && !fails(call) ? found : nullptr;
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
    descriptors.resize(std::max(descriptors.size(), size_t(fd) + 1));
    descriptors[size_t(fd)] = std::make_unique<descriptor>(fresh);
    descriptors[size_t(fd)]->number = ++opened;
    ++descriptors_open;
    return fd;
}

bool is_simulated(std::string const& path) {
    return path[0] != '/' || path.starts_with("/nv") || path.starts_with("/proc") ||
           path.starts_with("/dev");
}

bool folder_exists(std::string const& path) {
    size_t const slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 || files.count(path.substr(0, slash));
}

template<class structure>
structure read_as(void const* memory) {
    structure result;
    memcpy(&result, memory, sizeof result);
    return result;
}

bytes raw(void const* data, size_t size) {
    return {static_cast<char const*>(data), size};
}

std::string interface_name(int index) {
    for (auto const& [name, each] : interfaces) {
        if (each == index) {
            return name;
        }
    }
    return "no interface";
}

// "192.0.2.1:67", or "[fe80::1%2]:547" with the scope if there is one.
std::string endpoint(void const* address) {
    char text[INET6_ADDRSTRLEN] = "";
    auto const v4 = read_as<sockaddr_in>(address);
    if (v4.sin_family == AF_INET) {
        inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
        return std::string(text) + ":" + std::to_string(ntohs(v4.sin_port));
    }
    auto const v6 = read_as<sockaddr_in6>(address);
    inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
    std::string const scope = v6.sin6_scope_id ? "%" + std::to_string(v6.sin6_scope_id) : "";
    return "[" + std::string(text) + scope + "]:" + std::to_string(ntohs(v6.sin6_port));
}

std::string host(sockaddr const& address) {
    return endpoint(&address).substr(0, endpoint(&address).find(':'));
}

bytes socket_address(std::string const& host, int port) {
    sockaddr_in v4 = {AF_INET, htons(static_cast<uint16_t>(port)), {}, {}};
    sockaddr_in6 v6 = {AF_INET6, v4.sin_port, 0, {}, 0};
    if (inet_pton(AF_INET, host.c_str(), &v4.sin_addr) == 1) {
        return raw(&v4, sizeof v4);
    }
    inet_pton(AF_INET6, host.c_str(), &v6.sin6_addr);
    return raw(&v6, sizeof v6);
}

ssize_t transmit(descriptor const& socket, bytes const& data, void const* to) {
    packet out = {now(), IPPROTO_UDP, socket.device, "", data, socket.number};
    if (socket.domain == AF_PACKET) {
        auto const address = read_as<sockaddr_ll>(to);
        out.protocol = ntohs(address.sll_protocol);
        out.interface = interface_name(address.sll_ifindex);
        out.to = to_hex(raw(address.sll_addr, address.sll_halen));
    } else {
        out.to = endpoint(to);
        bool const has_choice = out.to.starts_with("[ff") && !socket.multicast_interface.empty();
        out.interface = has_choice ? socket.multicast_interface : socket.device;
        if (out.to.starts_with("255.255.255.255") && !socket.has("broadcast")) {
            return refuse(EACCES);
        }
    }
    sent.push_back(out);
    return ssize_t(data.size());
}

int configure(std::string const& request, std::string const& value) {
    journal.push_back(request + " " + value);
    configured[request] = value;
    return 0;
}

int interface_request(unsigned long code, ifreq& request) {
    static std::map<unsigned long, std::string> const addresses = {
        {SIOCSIFADDR, "SIOCSIFADDR "},
        {SIOCSIFNETMASK, "SIOCSIFNETMASK "},
        {SIOCSIFBRDADDR, "SIOCSIFBRDADDR "},
    };
    std::string const name = request.ifr_name;
    if (!interfaces.count(name)) {
        return refuse(ENODEV);
    }
    if (addresses.count(code)) {
        return configure(addresses.at(code) + name, host(request.ifr_addr));
    }
    switch (code) {
    case SIOCGIFINDEX:
        request.ifr_ifindex = interfaces[name];
        return 0;
    case SIOCGIFFLAGS:
        request.ifr_flags = IFF_BROADCAST;
        return 0;
    case SIOCSIFFLAGS:
        return configure("SIOCSIFFLAGS " + name, std::to_string(request.ifr_flags));
    case SIOCSIFMTU:
        return configure("SIOCSIFMTU " + name, std::to_string(request.ifr_mtu));
    default:
        return refuse(ENOTTY);
    }
}

// An IPv6 address, its prefix length and the interface index.
int ipv6_address_request(unsigned char const* request) {
    auto const prefix = read_as<unsigned int>(request + 16);
    auto const index = read_as<int>(request + 20);
    char text[INET6_ADDRSTRLEN];
    inet_ntop(AF_INET6, request, text, sizeof text);
    journal.push_back("SIOCSIFADDR " + interface_name(index) + " " + text + "/" +
                      std::to_string(prefix));
    return 0;
}

int route_request(bool is_new, rtentry const& request) {
    std::string const name = is_new ? "SIOCADDRT " : "SIOCDELRT ";
    return configure(name + request.rt_dev,
                     host(request.rt_gateway) + " to " + host(request.rt_dst) + "/" +
                         host(request.rt_genmask) + " flags " + std::to_string(request.rt_flags));
}

int vlan_request(vlan_ioctl_args const& request) {
    std::string const device = request.device1;
    if (request.cmd == ADD_VLAN_CMD) {
        std::string const vlan = std::to_string(request.u.VID);
        interfaces[device + "." + vlan] = 10 + request.u.VID;
        return configure("add VLAN " + device, vlan);
    }
    bool const is_egress = request.cmd == SET_VLAN_EGRESS_PRIORITY_CMD;
    return configure((is_egress ? "egress " : "ingress ") + device,
                     std::to_string(request.u.skb_priority) + " to " +
                         std::to_string(request.vlan_qos));
}

// Lets time pass up to a moment, or to the event that makes a watched descriptor readable.
template<class condition>
void let_pass(long long end_ms, condition readable) {
    while (!events.empty() && events.begin()->first <= end_ms) {
        clock_ms = std::max(clock_ms, events.begin()->first);
        std::function<void()> const action = events.begin()->second;
        events.erase(events.begin());
        action();
        if (readable()) {
            return;
        }
    }
    clock_ms = end_ms;
}

bool anything_to_read() {
    return std::any_of(descriptors.begin(), descriptors.end(),
                       [](auto const& each) { return each && !each->incoming.empty(); });
}

// "LEVEL TEXT | EXTRA"
std::string decoded(bytes const& record) {
    auto const number = [&](size_t i) {
        return size_t(utils::str2int(to_str(record.substr(i, 2))));
    };
    size_t const text_end = 14 + number(12);
    std::string const line = std::to_string(number(8)) + " " + record.substr(14, number(12));
    EXPECT_EQ(number(2), record.size() - 4) << to_hex(record);
    return text_end == record.size() ? line : line + " | " + record.substr(text_end + 4);
}

}  // namespace

// --- What tests use ---

bytes of(str const& value) {
    return raw(value.cbuffer(), size_t(value.length()));
}

str to_str(bytes const& data) {
    return str(reinterpret_cast<unsigned char const*>(data.data()), int(data.size()));
}

bytes hex(std::string const& digits) {
    std::string packed = digits;
    std::erase(packed, ' ');
    return of(utils::hex2bin(to_str(packed)));
}

std::string to_hex(bytes const& data) {
    return of(utils::bin2hex(to_str(data), false));
}

bytes big_endian(unsigned int value, int count) {
    return of(utils::int2str(value, count));
}

bytes damaged(bytes const& good, std::minstd_rand& random) {
    bytes data = good;
    for (unsigned int changes = random() % 8; changes > 0; --changes) {
        data[random() % data.size()] = static_cast<char>(random() >> 8);
    }
    size_t const cut = random() % (data.size() + 1);
    unsigned int const kind = random() % 4;
    return kind == 0 ? data.substr(0, cut) : kind == 1 ? data + data.substr(cut) : data;
}

double now() {
    return double(clock_ms - case_start_ms) / 1000;
}

void run_until(double moment) {
    long long const end_ms = case_start_ms + std::llround(moment * 1000);
    int idle_passes = 0;
    while (idle_passes < 10000) {
        auto const* const first = timeout_queue::global_queue.first();
        long long const left = (end_ms - clock_ms) * 1000000;
        if (!anything_to_read() && !(first && first->key - rtimestamp::now() <= left)) {
            clock_ms = std::max(clock_ms, end_ms);
            return;
        }
        long long const before_ms = clock_ms;
        counting_allocations = true;
        main_loop_pass();
        counting_allocations = false;
        idle_passes = clock_ms == before_ms ? idle_passes + 1 : 0;
    }
    ADD_FAILURE() << "the main loop goes round without letting time pass";
}

void run_for(double seconds) {
    run_until(now() + seconds);
}

void at(double moment, std::function<void()> const& action) {
    events.emplace(case_start_ms + std::llround(moment * 1000), action);
}

std::string last_select() {
    std::string text;
    for (int const each : selected) {
        text += (text.empty() ? "" : " ") + std::to_string(each);
    }
    return text;
}

lines take_journal() {
    return std::exchange(journal, {});
}

std::vector<packet> take_sent() {
    return std::exchange(sent, {});
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

void frame_arrives(std::string const& interface, int ether_type, bytes const& data) {
    for (auto const& each : descriptors) {
        if (!each || each->domain != AF_PACKET || each->port != ether_type ||
            each->interface_index != interfaces[interface]) {
            continue;
        }
        bool const to_group = each->type == SOCK_RAW && (data[0] & 1);
        if (!to_group || each->has(to_hex(data.substr(0, 6)))) {
            each->incoming.push_back({data, ""});
        }
    }
}

void datagram_arrives(int port, bytes const& data, std::string const& from,
                      std::string const& device) {
    for (auto const& each : descriptors) {
        bool const matches =
            each && each->domain != 0 && each->domain != AF_PACKET && each->port == port;
        std::string const interface = !device.empty()                 ? device
                                      : each && !each->device.empty() ? each->device
                                                                      : "eth1";
        if (matches && from.find(':') == std::string::npos && !is_broadcast &&
            (!configured.count("SIOCSIFADDR " + interface) ||
             configured["SIOCSIFADDR " + interface] == "0.0.0.0")) {
            continue;
        }
        if (matches && (device.empty() || each->device.empty() || each->device == device)) {
            each->incoming.push_back({data, socket_address(from, port)});
        }
    }
}

void datagram_arrives_at(int fd, bytes const& data, std::string const& from) {
    ASSERT_TRUE(find(fd)) << "not open";
    if (find(fd)->has("deaf")) {
        return;
    }
    find(fd)->incoming.push_back({data, socket_address(from, 53)});
}

void answer_arrives(unsigned int socket, bytes const& data, std::string const& from) {
    for (auto const& each : descriptors) {
        if (each && each->number == socket) {
            each->incoming.push_back({data, socket_address(from, 53)});
        }
    }
}

std::string describe(int fd) {
    descriptor const* const found = find(fd);
    if (!found) {
        return "closed";
    }
    std::string const port = std::to_string(found->port);
    std::string text = found->domain == AF_PACKET
                           ? "packet " + port + " " + interface_name(found->interface_index)
                       : found->domain == AF_INET ? "udp *:" + port
                                                  : "udp [*]:" + port;
    text += found->device.empty() ? "" : " " + found->device;
    text += found->peer.empty() ? "" : " to " + endpoint(found->peer.data());
    for (std::string const& flag : found->flags) {
        text += " " + flag;
    }
    return text;
}

int open_descriptors() {
    return descriptors_open;
}

void fail(std::string const& call, int error, int good_calls, int bad_calls) {
    failures[call] = {error, good_calls, bad_calls};
}

void repair() {
    failures.clear();
}

void reset_world() {
    descriptors.clear();
    descriptors_open = 0;
    failures.clear();
    journal.clear();
    log_records.clear();
    configured.clear();
    sent.clear();
    events.clear();
    interfaces = {{"eth1", 2}};
    files = {
        {"/nv", {"", file::folder}}, {"/proc", {"", file::folder}}, {"net2app", {"", file::pipe}}};
    handler_ms = 0;
    is_broadcast = false;
    configured["SIOCSIFADDR eth1"] = "192.0.2.50";
    expects_all_watched = true;
    first_descriptor = 300;
    descriptors_max = 1024;
    nv_is_apart = false;
    last_ticks_fail = false;
    clock_ms = (clock_ms + 9) / 10 * 10;
    case_start_ms = clock_ms;
}

}  // namespace sim

// --- The calls ---

using namespace sim;

// Objects of the tests and of the standard library do not count as the daemon's allocations.
void* operator new(size_t size) {
    return __real_malloc(size);
}
void operator delete(void* memory) noexcept {
    free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    free(memory);
}

extern "C" {

void* __wrap_malloc(size_t size) {
    allocations += counting_allocations;
    return __real_malloc(size);
}

// The result has 32 bits, as on the device.
clock_t __wrap_times(struct tms*) {
    int const ticks = static_cast<int>(static_cast<uint32_t>(clock_ms / 10) + clock_ticks_offset);
    return last_ticks_fail && ticks < 0 && ticks >= -4095 ? refuse(-ticks) : ticks;
}

int __wrap_gettimeofday(struct timeval* time, void*) {
    time->tv_sec = static_cast<time_t>((epoch_ms + clock_ms) / 1000);
    time->tv_usec = static_cast<suseconds_t>(clock_ms % 1000 * 1000);
    return 0;
}

int __wrap_settimeofday(struct timeval const* time, void*) {
    journal.push_back("settimeofday " + std::to_string(time->tv_sec));
    return 0;
}

unsigned int __wrap_sleep(unsigned int seconds) {
    journal.push_back("sleep " + std::to_string(seconds));
    return 0;
}

int __wrap_usleep(useconds_t microseconds) {
    let_pass(clock_ms + microseconds / 1000, anything_to_read);
    return 0;
}

int __wrap_select(int count, fd_set* readable, fd_set*, fd_set*, struct timeval* limit) {
    long const wait_ms = limit ? limit->tv_sec * 1000L + limit->tv_usec / 1000 : -1;
    selected = {count, int(wait_ms)};
    if (fails("select")) {
        return -1;
    }
    std::vector<int> ready;
    for (int fd = 0; fd < count; ++fd) {
        if (FD_ISSET(fd, readable)) {
            selected.push_back(fd);
        }
    }
    auto const watch = [&] {
        ready.clear();
        std::copy_if(selected.begin() + 2, selected.end(), std::back_inserter(ready),
                     [](int fd) { return find(fd) && !find(fd)->incoming.empty(); });
        EXPECT_TRUE(!ready.empty() || !expects_all_watched || !anything_to_read())
            << "a socket with data is not watched";
        return !ready.empty();
    };
    if (std::any_of(selected.begin() + 2, selected.end(), [](int fd) { return !find(fd); })) {
        return refuse(EBADF);
    }
    if (!watch() && limit) {
        long long const end_ms = clock_ms + wait_ms;
        let_pass(end_ms, watch);
    }
    if (limit) {
        *limit = {};  // Linux leaves what was not waited, but not every C library hands it on.
    }
    FD_ZERO(readable);
    for (int const fd : ready) {
        FD_SET(fd, readable);
    }
    return !ready.empty() || limit ? int(ready.size()) : refuse(EINTR);  // It would wait for ever.
}

int __wrap_open(char const* path, int flags, ...) {
    if (!is_simulated(path)) {
        return __real_open(path, flags, 0600);
    }
    if (fails("open")) {
        return -1;
    }
    if (!files.count(path) && !((flags & O_CREAT) && folder_exists(path))) {
        return refuse(ENOENT);
    }
    if (open_descriptors() >= descriptors_max) {
        return refuse(EMFILE);
    }
    if (flags & O_TRUNC) {
        va_list arguments;
        va_start(arguments, flags);
        files[path].content.clear();
        files[path].mode = va_arg(arguments, unsigned int);
        va_end(arguments);
    }
    if (files[path].kind == file::pipe) {
        EXPECT_TRUE(flags & O_NONBLOCK) << "opening may wait for the reader";
    } else {
        journal.push_back(((flags & O_ACCMODE) == O_RDONLY ? "read " : "write ") +
                          std::string(path));
    }
    descriptor fresh;
    fresh.path = path;
    return add(fresh);
}

int __wrap_close(int fd) {
    if (fd >= 0 && fd <= 2) {
        journal.push_back("close " + std::to_string(fd));
        return 0;
    }
    if (!find(fd)) {
        return __real_close(fd);
    }
    descriptors[size_t(fd)] = nullptr;
    --descriptors_open;
    return 0;
}

ssize_t __wrap_read(int fd, void* data, size_t size) {
    descriptor* const source = find(fd);
    if (!source) {
        return __real_read(fd, data, size);
    }
    if (fails("read")) {
        return -1;
    }
    bytes const part = files[source->path].content.substr(source->offset, size);
    memcpy(data, part.data(), part.size());
    source->offset += part.size();
    return ssize_t(part.size());
}

ssize_t __wrap_write(int fd, void const* data, size_t size) {
    descriptor* const target = find(fd);
    if (!target) {
        return __real_write(fd, data, size);
    }
    file& written = files[target->path];
    if (fails(written.kind == file::pipe ? "write log" : "write")) {
        return -1;
    }
    if (written.kind == file::pipe) {
        log_records.push_back(raw(data, size));
    } else {
        written.content += raw(data, size);
        bool const is_kept =
            !target->path.starts_with("/proc") && !target->path.starts_with("tmp.");
        bytes_written += is_kept ? ssize_t(size) : 0;
    }
    return ssize_t(size);
}

namespace {

void tell(std::string const& path, struct stat* status) {
    file const& examined = files[path];
    bool const hides_size = path.starts_with("/proc") || path.starts_with("/dev");
    *status = {};
    status->st_mode = examined.mode;
    status->st_mode |= examined.kind == file::folder ? S_IFDIR
                       : examined.kind == file::pipe ? S_IFIFO
                                                     : S_IFREG;
    status->st_size = examined.size_told >= 0 ? examined.size_told
                      : hides_size            ? 0
                                              : long(examined.content.size());
}

}  // namespace

int __wrap_stat(char const* path, struct stat* status) {
    if (!is_simulated(path)) {
        return __real_stat(path, status);
    }
    if (!files.count(path)) {
        return refuse(ENOENT);
    }
    tell(path, status);
    return fails("stat") ? -1 : 0;
}

int __wrap_fchmod(int fd, mode_t mode) {
    if (!find(fd)) {
        return __real_fchmod(fd, mode);
    }
    files[find(fd)->path].mode = mode & 07777;
    return fails("fchmod") ? -1 : 0;
}

int __wrap_fstat(int fd, struct stat* status) {
    descriptor const* const opened = find(fd);
    if (!opened) {
        return __real_fstat(fd, status);
    }
    tell(opened->path, status);
    return fails("fstat") ? -1 : 0;
}

int __wrap_mkdir(char const* path, mode_t mode) {
    if (!is_simulated(path)) {
        return __real_mkdir(path, mode & 0777);
    }
    if (files.count(path)) {
        return refuse(EEXIST);
    }
    files[path].kind = file::folder;
    journal.push_back(std::string("mkdir ") + path);
    return 0;
}

int __wrap_unlink(char const* path) {
    return !is_simulated(path) ? __real_unlink(path) : files.erase(path) ? 0 : refuse(ENOENT);
}

int __wrap_rename(char const* from, char const* to) {
    if (fails("rename")) {
        return -1;
    }
    if (!files.count(from) || !folder_exists(to)) {
        return refuse(ENOENT);
    }
    if (nv_is_apart && std::string(from).starts_with("/nv") != std::string(to).starts_with("/nv")) {
        return refuse(EXDEV);
    }
    files[to] = files[from];
    files.erase(from);
    return 0;
}

int __wrap_fsync(int fd) {
    journal.push_back("fsync " + find(fd)->path);
    return fails("fsync") ? -1 : 0;
}

void __wrap_sync() {
    journal.emplace_back("sync");
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

int __wrap_socket(int domain, int type, int) {
    descriptor fresh;
    fresh.domain = domain;
    fresh.type = type;
    return fails("socket") ? -1 : add(fresh);
}

int __wrap_bind(int fd, struct sockaddr const* address, socklen_t) {
    descriptor* const socket = usable(fd, "bind");
    if (!socket) {
        return -1;
    }
    if (socket->domain == AF_PACKET) {
        socket->port = ntohs(read_as<sockaddr_ll>(address).sll_protocol);
        socket->interface_index = read_as<sockaddr_ll>(address).sll_ifindex;
    } else {
        socket->port = ntohs(read_as<sockaddr_in>(address).sin_port);
    }
    return 0;
}

int __wrap_connect(int fd, struct sockaddr const* address, socklen_t size) {
    descriptor* const socket = usable(fd, "connect");
    if (!socket) {
        return -1;
    }
    socket->peer = raw(address, size);
    return 0;
}

int __wrap_getsockname(int fd, struct sockaddr* address, socklen_t* size) {
    descriptor* const socket = usable(fd, "getsockname");
    if (!socket) {
        return -1;
    }
    bytes const local = socket_address(socket->domain == AF_INET ? "0.0.0.0" : "::", socket->port);
    memcpy(address, local.data(), std::min(size_t(*size), local.size()));
    *size = socklen_t(local.size());
    return 0;
}

int __wrap_setsockopt(int fd, int level, int option, void const* value, socklen_t size) {
    descriptor* const socket = usable(fd, "setsockopt");
    if (!socket) {
        return -1;
    }
    if (level == SOL_PACKET) {
        auto const request = read_as<packet_mreq>(value);
        // One whose bind() failed hears every interface.
        EXPECT_TRUE(request.mr_ifindex == socket->interface_index || socket->interface_index == 0);
        EXPECT_EQ(request.mr_type, PACKET_MR_MULTICAST);
        std::string const group = to_hex(raw(request.mr_address, request.mr_alen));
        socket->flags.push_back(option == PACKET_ADD_MEMBERSHIP ? group : "left " + group);
    } else if (option == SO_BINDTODEVICE) {
        socket->device = static_cast<char const*>(value);
        EXPECT_LT(socket->device.size(), size);
    } else if (option == SO_ATTACH_FILTER) {
        socket->flags.emplace_back("deaf");
    } else if (level == IPPROTO_IPV6 && option == IPV6_MULTICAST_IF) {
        socket->multicast_interface = interface_name(read_as<int>(value));
    } else {
        socket->flags.emplace_back(option == SO_REUSEADDR ? "reuse" : "broadcast");
    }
    return 0;
}

ssize_t __wrap_sendto(int fd, void const* data, size_t size, int, struct sockaddr const* to,
                      socklen_t) {
    descriptor* const socket = usable(fd, "sendto");
    return socket ? transmit(*socket, raw(data, size), to) : -1;
}

ssize_t __wrap_send(int fd, void const* data, size_t size, int) {
    descriptor* const socket = usable(fd, "send");
    return socket ? transmit(*socket, raw(data, size), socket->peer.data()) : -1;
}

ssize_t __wrap_recvfrom(int fd, void* data, size_t size, int flags, struct sockaddr* from,
                        socklen_t* from_size) {
    descriptor* const socket = find(fd);
    if (!socket || socket->incoming.empty()) {
        return refuse(socket ? EAGAIN : EBADF);
    }
    message const taken = socket->incoming.front();
    socket->incoming.pop_front();
    clock_ms += handler_ms;
    if (fails("recvfrom")) {
        return -1;
    }
    EXPECT_TRUE(flags & MSG_DONTWAIT);
    size_t const count = std::min(size, taken.data.size());
    memcpy(data, taken.data.data(), count);
    if (from) {
        memcpy(from, taken.from.data(), std::min(size_t(*from_size), taken.from.size()));
        *from_size = socklen_t(taken.from.size());
    }
    return ssize_t(count);
}

int __wrap_ioctl(int fd, unsigned long code, ...) {
    va_list arguments;
    va_start(arguments, code);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    descriptor* const socket = usable(fd, "ioctl");
    if (!socket) {
        return -1;
    }
    if (code == SIOCSIFADDR && socket->domain == AF_INET6) {
        return ipv6_address_request(static_cast<unsigned char*>(argument));
    }
    switch (code) {
    case FIONBIO:
        socket->flags.emplace_back("nonblocking");
        return 0;
    case SIOCADDRT:
    case SIOCDELRT:
        return route_request(code == SIOCADDRT, *static_cast<rtentry*>(argument));
    case SIOCSIFVLAN:
        return vlan_request(*static_cast<vlan_ioctl_args*>(argument));
    default:
        return interface_request(code, *static_cast<ifreq*>(argument));
    }
}

}  // extern "C"
