// The simulated system calls, and the world behind them: time, files, sockets, interfaces.
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
#include <cstring>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <linux/if_vlan.h>
#include <linux/sockios.h>
#include <list>
#include <net/if.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/times.h>
#include <unistd.h>

// The C library's own functions, for what is real.
extern "C" {
int __real_close(int);
int __real_fstat(int, struct stat*);
int __real_open(char const*, int, ...);
ssize_t __real_read(int, void*, size_t);
int __real_stat(char const*, struct stat*);
int __real_unlink(char const*);
ssize_t __real_write(int, void const*, size_t);
}

namespace sim {

int handler_ms;
bool expects_all_watched;
unsigned int clock_ticks_offset;
bool last_ticks_fail;
std::map<std::string, file> files;
std::vector<bytes> log_records;
bool nv_is_apart;
long long bytes_written;
int first_descriptor;
int descriptors_max;
std::map<std::string, int> interfaces;
std::map<std::string, std::string> configured;
std::vector<packet> sent;
bool is_broadcast;
lines journal;

namespace {

constexpr long long epoch_ms = 1700000000000;  // of the wall clock, when the program begins

struct failure {
    int error;
    int good_calls;  // left
    int bad_calls;   // left
};

struct descriptor {
    unsigned int number = 0;  // of all ever opened
    std::string path = {};    // of a file; empty for a socket
    size_t offset = 0;
    int domain = 0;
    int type = 0;
    int port = 0;             // EtherType of a packet socket
    std::string device = {};  // that it is bound to
    bytes peer = {};          // a socket address, when connected
    std::string words = {};   // options and multicast groups
    std::string multicast_interface = {};
    std::list<std::pair<bytes, bytes>> incoming = {};  // with the senders' socket addresses
};

std::map<std::string, failure> failures;  // by call
int calls_to_cut;                         // that write, before the power goes
bool power_is_out;
std::map<int, descriptor> descriptors;
descriptor unusable;
long long clock_ms = 0;  // never goes back: the daemon counts the wraps of times()
long long case_start_ms = 0;
std::multimap<long long, std::function<void()>> outside;  // by ms

// --- What the calls share ---

int refuse(int error) {
    errno = error;
    return -1;
}

int done(std::string const& what) {
    journal.push_back(what);
    return 0;
}

// With errno.
bool fails(char const* call) {
    failure& planned = failures[call];
    if (!power_is_out && (planned.good_calls-- > 0 || planned.bad_calls-- <= 0)) {
        return false;
    }
    errno = power_is_out ? EIO : planned.error;
    return true;
}

bool fails_to_write(char const* call) {
    power_is_out |= calls_to_cut-- == 0;
    return fails(call);
}

descriptor* find(int fd) {
    return descriptors.count(fd) ? &descriptors[fd] : nullptr;
}

// `unusable`, with errno, when it is not open or the call is to fail.
descriptor& used(int fd, char const* call) {
    errno = EBADF;
    return find(fd) && !fails(call) ? *find(fd) : unusable = {};
}

int result(descriptor const& of_call) {
    return &of_call == &unusable ? -1 : 0;
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

bytes raw(void const* data, size_t size) {
    return {static_cast<char const*>(data), size};
}

template<class structure>
structure read_as(void const* memory) {
    structure result;
    memcpy(&result, memory, sizeof result);
    return result;
}

// --- Time ---

bool anything_to_read() {
    return std::any_of(descriptors.begin(), descriptors.end(),
                       [](auto const& each) { return !each.second.incoming.empty(); });
}

// Lets time pass up to a moment, or to the event that makes a watched descriptor readable.
void let_pass(long long milliseconds, std::function<bool()> const& readable) {
    long long const end_ms = clock_ms + milliseconds;
    while (!outside.empty() && outside.begin()->first <= end_ms) {
        clock_ms = std::max(clock_ms, outside.begin()->first);
        outside.extract(outside.begin()).mapped()();
        if (readable()) {
            return;
        }
    }
    clock_ms = end_ms;
}

// --- Files ---

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

// --- Sockets ---

std::string interface_name(int index) {
    auto const found = std::find_if(interfaces.begin(), interfaces.end(),
                                    [&](auto const& each) { return each.second == index; });
    return found == interfaces.end() ? "no interface" : found->first;
}

// Without the port of IPv4; "[fe80::1%2]", with the scope if there is one.
std::string host(void const* address) {
    char text[INET6_ADDRSTRLEN] = "";
    auto const v4 = read_as<sockaddr_in>(address);
    if (v4.sin_family == AF_INET) {
        return inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
    }
    auto const v6 = read_as<sockaddr_in6>(address);
    inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
    return "[" + (text + (v6.sin6_scope_id ? "%" + std::to_string(v6.sin6_scope_id) : "")) + "]";
}

std::string endpoint(void const* address) {  // The port is where it is in both families.
    return host(address) + ":" + std::to_string(ntohs(read_as<sockaddr_in>(address).sin_port));
}

bytes socket_address(std::string const& from, int port) {
    sockaddr_in v4 = {AF_INET, htons(static_cast<uint16_t>(port)), {}, {}};
    sockaddr_in6 v6 = {AF_INET6, v4.sin_port, 0, {}, 0};
    bool const is_v4 = inet_pton(AF_INET, from.c_str(), &v4.sin_addr) == 1;
    inet_pton(AF_INET6, from.c_str(), &v6.sin6_addr);
    return is_v4 ? raw(&v4, sizeof v4) : raw(&v6, sizeof v6);
}

bool has_word(descriptor const& socket, std::string const& word) {
    return (socket.words + " ").find(" " + word + " ") != std::string::npos;
}

void queue(descriptor& socket, bytes const& data, std::string const& from, int port) {
    if (!has_word(socket, "deaf")) {
        socket.incoming.emplace_back(data, socket_address(from, port));
    }
}

ssize_t transmit(descriptor const& socket, bytes const& data, void const* to) {
    packet out = {now(), IPPROTO_UDP, socket.device, "", data, socket.number};
    size_t size_max = 65507;
    if (socket.domain == AF_PACKET) {
        auto const address = read_as<sockaddr_ll>(to);
        out.protocol = ntohs(address.sll_protocol);
        out.interface = interface_name(address.sll_ifindex);
        out.to = to_hex(raw(address.sll_addr, address.sll_halen));
        size_max = 1514;  // with the Ethernet header
    } else {
        out.to = endpoint(to);
        out.interface += out.to.starts_with("[ff") ? socket.multicast_interface : "";
        size_max *= !out.to.starts_with("255.255.255.255") || has_word(socket, "broadcast");
    }
    if (data.size() > size_max) {
        return refuse(size_max ? EMSGSIZE : EACCES);
    }
    sent.push_back(out);
    return ssize_t(data.size());
}

// --- Interfaces ---

int interface_request(unsigned long code, ifreq& request) {
    std::string const name = request.ifr_name;
    if (!interfaces.count(name)) {
        return refuse(ENODEV);
    }
    if (code == SIOCGIFINDEX) {
        request.ifr_ifindex = interfaces[name];
    } else if (code == SIOCGIFFLAGS) {
        request.ifr_flags = IFF_BROADCAST;
    } else {
        auto const [request_name, value] =
            code == SIOCSIFFLAGS     ? std::pair("SIOCSIFFLAGS ", std::to_string(request.ifr_flags))
            : code == SIOCSIFMTU     ? std::pair("SIOCSIFMTU ", std::to_string(request.ifr_mtu))
            : code == SIOCSIFADDR    ? std::pair("SIOCSIFADDR ", host(&request.ifr_addr))
            : code == SIOCSIFNETMASK ? std::pair("SIOCSIFNETMASK ", host(&request.ifr_addr))
                                     : std::pair("SIOCSIFBRDADDR ", host(&request.ifr_addr));
        configured[request_name + name] = value;
        return done(request_name + name + " " + value);
    }
    return 0;
}

// An IPv6 address, its prefix length and the interface index.
int ipv6_address_request(unsigned char const* request) {
    char text[INET6_ADDRSTRLEN];
    inet_ntop(AF_INET6, request, text, sizeof text);
    return done("SIOCSIFADDR " + interface_name(read_as<int>(request + 20)) + " " + text + "/" +
                std::to_string(read_as<int>(request + 16)));
}

int route_request(std::string const& name, rtentry const& request) {
    return done(name + request.rt_dev + " " + host(&request.rt_gateway) + " to " +
                host(&request.rt_dst) + "/" + host(&request.rt_genmask) + " flags " +
                std::to_string(request.rt_flags));
}

int vlan_request(vlan_ioctl_args const& request) {
    std::string const device = request.device1;
    if (request.cmd == ADD_VLAN_CMD) {
        std::string const vlan = std::to_string(request.u.VID);
        interfaces[device + "." + vlan] = 10 + request.u.VID;
        return done("add VLAN " + device + " " + vlan);
    }
    return done((request.cmd == SET_VLAN_EGRESS_PRIORITY_CMD ? "egress " : "ingress ") + device +
                " " + std::to_string(request.u.skb_priority) + " to " +
                std::to_string(request.vlan_qos));
}

}  // namespace

// --- What the tests do ---

double now() {
    return double(clock_ms - case_start_ms) / 1000;
}

void run_until(double moment) {
    long long const end_ms = case_start_ms + std::llround(moment * 1000);
    for (int idle_passes = 0; idle_passes < 10000 && !power_is_out;) {
        auto const* const first = timeout_queue::global_queue.first();
        long long const left = (end_ms - clock_ms) * 1000000;
        if (!anything_to_read() && !(first && first->key - rtimestamp::now() <= left)) {
            clock_ms = std::max(clock_ms, end_ms);
            return;
        }
        long long const before_ms = clock_ms;
        main_loop_pass();
        idle_passes = clock_ms == before_ms ? idle_passes + 1 : 0;
    }
    EXPECT_TRUE(power_is_out) << "the main loop goes round without letting time pass";
}

void run_for(double seconds) {
    run_until(now() + seconds);
}

void at(double moment, std::function<void()> const& action) {
    outside.emplace(case_start_ms + std::llround(moment * 1000), action);
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

int open_descriptors() {
    return int(descriptors.size());
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

void frame_arrives(std::string const& interface, int ether_type, bytes const& data) {
    for (auto& [fd, each] : descriptors) {
        bool const to_group = each.type == SOCK_RAW && (data[0] & 1);
        if (each.port == ether_type && each.device == interface &&
            (!to_group || has_word(each, to_hex(data.substr(0, 6))))) {
            each.incoming.emplace_back(data, "");
        }
    }
}

void datagram_arrives(int port, bytes const& data, std::string const& from,
                      std::string const& device) {
    for (auto& [fd, each] : descriptors) {
        std::string const own = each.device.empty() ? "eth1" : each.device;
        std::string const on = device.empty() ? own : device;
        std::string const& address = configured["SIOCSIFADDR " + on];
        bool const reaches_it = from.find(':') != std::string::npos || is_broadcast ||
                                (!address.empty() && address != "0.0.0.0");
        if (each.port == port && reaches_it && (each.device.empty() || each.device == on)) {
            queue(each, data, from, port);
        }
    }
}

void datagram_arrives_at(int fd, bytes const& data, std::string const& from) {
    queue(find(fd) ? *find(fd) : unusable, data, from, 53);
}

void answer_arrives(unsigned int socket, bytes const& data, std::string const& from) {
    for (auto& [fd, each] : descriptors) {
        if (each.number == socket) {
            queue(each, data, from, 53);
        }
    }
}

std::string describe(int fd) {
    if (!find(fd)) {
        return "closed";
    }
    auto const& [number, path, offset, domain, type, port, device, peer, words, interface, data] =
        *find(fd);
    return (domain == AF_PACKET ? "packet "
            : domain == AF_INET ? "udp *:"
                                : "udp [*]:") +
           std::to_string(port) + (device.empty() ? "" : " " + device) +
           (peer.empty() ? "" : " to " + endpoint(peer.data())) + words;
}

void reset_world() {
    outside.clear();
    last_ticks_fail = nv_is_apart = power_is_out = is_broadcast = false;
    handler_ms = 0;
    expects_all_watched = true;
    case_start_ms = clock_ms = (clock_ms + 9) / 10 * 10;
    descriptors.clear();
    failures.clear();
    journal.clear();
    log_records.clear();
    sent.clear();
    files = {
        {"/nv", {"", file::folder}}, {"/proc", {"", file::folder}}, {"net2app", {"", file::pipe}}};
    first_descriptor = 300;
    descriptors_max = 1024;
    calls_to_cut = -1;
    interfaces = {{"eth1", 2}};
    configured = {{"SIOCSIFADDR eth1", "192.0.2.50"}};
}

}  // namespace sim

// --- The calls ---

using namespace sim;

extern "C" {

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
    return done("settimeofday " + std::to_string(uint32_t(time->tv_sec)));
}

unsigned int __wrap_sleep(unsigned int seconds) {
    return unsigned(done("sleep " + std::to_string(seconds)));
}

int __wrap_usleep(useconds_t microseconds) {
    let_pass(microseconds / 1000, anything_to_read);
    return 0;
}

int __wrap_select(int count, fd_set* readable, fd_set*, fd_set*, struct timeval* limit) {
    if (fails("select")) {
        return -1;
    }
    fd_set const watched = *readable;
    int ready = 0;
    auto const watch = [&] {
        FD_ZERO(readable);
        for (int fd = 0; fd < count; ++fd) {
            EXPECT_TRUE(!FD_ISSET(fd, &watched) || find(fd)) << fd << " is watched, but not open";
            if (FD_ISSET(fd, &watched) && find(fd) && !find(fd)->incoming.empty()) {
                FD_SET(fd, readable);
                ++ready;
            }
        }
        EXPECT_TRUE(ready > 0 || !expects_all_watched || !anything_to_read())
            << "a socket with data is not watched";
        return ready > 0;
    };
    if (!watch() && limit) {
        let_pass(limit->tv_sec * 1000LL + limit->tv_usec / 1000, watch);
    }
    return ready > 0 || limit ? ready : refuse(EINTR);  // It would wait for ever.
}

int __wrap_open(char const* path, int flags, ...) {
    if (!is_simulated(path)) {
        return __real_open(path, flags, 0600);
    }
    bool const writes = (flags & O_ACCMODE) == O_WRONLY;
    bool const is_refused = writes ? fails_to_write("open") : fails("open");
    bool const is_there = files.count(path) || ((flags & O_CREAT) && folder_exists(path));
    int const fd = is_refused ? -1 : is_there ? add({.path = path}) : refuse(ENOENT);
    if (fd == -1) {
        return -1;
    }
    file& opened = files[path];
    bool const is_pipe = opened.kind == file::pipe;
    EXPECT_TRUE(!is_pipe || (flags & O_NONBLOCK)) << "opening may wait for the reader";
    is_pipe ? 0 : done((writes ? "write " : "read ") + bytes(path));
    if (flags & O_TRUNC) {
        va_list arguments;
        va_start(arguments, flags);
        opened = {"", opened.kind, -1, va_arg(arguments, unsigned int)};
        va_end(arguments);
    }
    return fd;
}

int __wrap_close(int fd) {
    bool const is_standard = fd >= 0 && fd <= 2;
    return descriptors.erase(fd) ? 0
           : is_standard         ? done("close " + std::to_string(fd))
                                 : __real_close(fd);
}

ssize_t __wrap_read(int fd, void* data, size_t size) {
    descriptor* const source = find(fd);
    if (!source || fails("read")) {
        return source ? -1 : __real_read(fd, data, size);
    }
    bool const tells_no_size = source->path.starts_with("/proc");  // and comes in pieces
    bytes const& content = files[source->path].content;
    size_t const count =
        content.copy(static_cast<char*>(data), tells_no_size ? std::min<size_t>(size, 1000) : size,
                     std::min(source->offset, content.size()));
    source->offset += count;
    return ssize_t(count);
}

ssize_t __wrap_write(int fd, void const* data, size_t size) {
    if (!find(fd)) {
        return __real_write(fd, data, size);
    }
    std::string const& path = find(fd)->path;
    bool const is_log = files[path].kind == file::pipe;
    if (is_log ? fails("write log") : fails_to_write("write")) {
        return -1;
    }
    (is_log ? log_records.emplace_back() : files[path].content) += raw(data, size);
    bool const is_kept = !is_log && !path.starts_with("/proc") && !path.starts_with("tmp.");
    bytes_written += is_kept ? ssize_t(size) : 0;
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
    if (files.count(path) || fails_to_write("mkdir")) {
        return refuse(EEXIST);
    }
    files[path] = {"", file::folder, -1, mode & 07777};
    return done("mkdir " + bytes(path));
}

int __wrap_unlink(char const* path) {
    return !is_simulated(path)        ? __real_unlink(path)
           : fails_to_write("unlink") ? -1
           : files.erase(path)        ? 0
                                      : refuse(ENOENT);
}

int __wrap_rename(char const* from, char const* to) {
    bool const crosses =
        nv_is_apart && bytes(from).starts_with("/nv") != bytes(to).starts_with("/nv");
    if (fails_to_write("rename")) {
        return -1;
    }
    if (crosses || !files.count(from) || !folder_exists(to)) {
        return refuse(crosses ? EXDEV : ENOENT);
    }
    files[to] = files[from];
    files.erase(from);
    return 0;
}

int __wrap_fsync(int fd) {
    file& synced = files[find(fd)->path];
    if (fails_to_write("fsync")) {
        return -1;
    }
    synced.synced = synced.content;
    return done("fsync " + find(fd)->path);
}

void __wrap_sync() {
    done("sync");
    for (auto& [path, each] : files) {
        each.synced = each.content;
    }
}

int __wrap_umount(char const* path) {
    return done("umount " + bytes(path));
}

int __wrap_reboot(int command) {
    return done("reboot " + to_hex(big_endian(unsigned(command), 4)));
}

sighandler_t __wrap_signal(int number, sighandler_t handler) {
    done((handler == SIG_IGN ? "ignore signal " : "signal ") + std::to_string(number));
    return SIG_DFL;
}

int __wrap_socket(int domain, int type, int) {
    return fails("socket") ? -1 : add({.domain = domain, .type = type});
}

int __wrap_bind(int fd, struct sockaddr const* address, socklen_t) {
    descriptor& socket = used(fd, "bind");
    socket.port = ntohs(read_as<sockaddr_in>(address).sin_port);  // or the EtherType
    if (socket.domain == AF_PACKET) {
        socket.device = interface_name(read_as<sockaddr_ll>(address).sll_ifindex);
    }
    return result(socket);
}

int __wrap_connect(int fd, struct sockaddr const* address, socklen_t size) {
    descriptor& socket = used(fd, "connect");
    socket.peer = raw(address, size);
    return result(socket);
}

int __wrap_getsockname(int fd, struct sockaddr* address, socklen_t* size) {
    descriptor const& socket = used(fd, "getsockname");
    bytes const local = socket_address(socket.domain == AF_INET ? "0.0.0.0" : "::", socket.port);
    *size = socklen_t(local.copy(reinterpret_cast<char*>(address), *size));
    return result(socket);
}

int __wrap_setsockopt(int fd, int level, int option, void const* value, socklen_t size) {
    descriptor& socket = used(fd, "setsockopt");
    auto const* const text = static_cast<char const*>(value);
    if (level == SOL_PACKET) {
        auto const request = read_as<packet_mreq>(value);
        // One whose bind() failed hears every interface.
        EXPECT_TRUE(socket.device.empty() || socket.device == interface_name(request.mr_ifindex));
        EXPECT_EQ(request.mr_type * 10 + option, PACKET_MR_MULTICAST * 10 + PACKET_ADD_MEMBERSHIP);
        socket.words += " " + to_hex(raw(request.mr_address, request.mr_alen));
    } else if (level == IPPROTO_IPV6) {
        socket.multicast_interface = interface_name(read_as<int>(value));
    } else if (option == SO_BINDTODEVICE) {
        socket.device.assign(text, strnlen(text, size - 1));
    } else {
        socket.words += option == SO_ATTACH_FILTER ? " deaf"
                        : option == SO_REUSEADDR   ? " reuse"
                                                   : " broadcast";
    }
    return result(socket);
}

ssize_t __wrap_sendto(int fd, void const* data, size_t size, int, struct sockaddr const* to,
                      socklen_t) {
    descriptor const& socket = used(fd, "sendto");
    return result(socket) ? -1 : transmit(socket, raw(data, size), to);
}

ssize_t __wrap_send(int fd, void const* data, size_t size, int) {
    descriptor const& socket = used(fd, "send");
    return result(socket) ? -1 : transmit(socket, raw(data, size), socket.peer.data());
}

ssize_t __wrap_recvfrom(int fd, void* data, size_t size, int flags, struct sockaddr* from,
                        socklen_t* from_size) {
    descriptor* const socket = find(fd);
    if (!socket || socket->incoming.empty()) {
        return refuse(socket ? EAGAIN : EBADF);
    }
    auto const [taken, sender] = socket->incoming.front();
    socket->incoming.pop_front();
    clock_ms += handler_ms;
    if (fails("recvfrom")) {
        return -1;
    }
    EXPECT_TRUE(flags & MSG_DONTWAIT);
    if (from) {
        *from_size = socklen_t(sender.copy(reinterpret_cast<char*>(from), *from_size));
    }
    return ssize_t(taken.copy(static_cast<char*>(data), size));
}

int __wrap_ioctl(int fd, unsigned long code, ...) {
    va_list arguments;
    va_start(arguments, code);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    descriptor& socket = used(fd, "ioctl");
    if (result(socket) || code == FIONBIO) {
        socket.words += " nonblocking";
        return result(socket);
    }
    return code == SIOCADDRT     ? route_request("SIOCADDRT ", *static_cast<rtentry*>(argument))
           : code == SIOCDELRT   ? route_request("SIOCDELRT ", *static_cast<rtentry*>(argument))
           : code == SIOCSIFVLAN ? vlan_request(*static_cast<vlan_ioctl_args*>(argument))
           : code == SIOCSIFADDR && socket.domain == AF_INET6
               ? ipv6_address_request(static_cast<unsigned char*>(argument))
               : interface_request(code, *static_cast<ifreq*>(argument));
}

}  // extern "C"
