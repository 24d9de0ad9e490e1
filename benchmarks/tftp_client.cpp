// A plain TFTP client (RFC 1350, octet, without options) that measures a server: many transfers at
// a time, each byte checked against the pattern.
//
//   tftp_client read|write HOST PORT FILE SIZE PARALLEL COUNT
//
// Writes go to FILE.0, FILE.1 and so on, one name for each that runs at a time.
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t block_size = 512;
constexpr size_t header_length = 4;
constexpr size_t file_size_max = 65534 * block_size;  // block numbers have 16 bits
constexpr unsigned int ticks_a_second = 5;
constexpr int sends_max = 5;             // of one packet
constexpr unsigned int run_limit = 120;  // seconds
enum opcode : char { read_request = 1, write_request, data, acknowledgement };

// `yes` prints such a file. The length of 61 has no factor in common with the block size, so that
// a block out of place shows.
constexpr std::string_view pattern =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwx\n";

struct options {
    opcode request;
    addrinfo* server;
    std::string file;
    size_t size;
    unsigned int parallel;
    unsigned int count;
};

struct transfer {
    int fd = -1;
    bool connected = false;  // since the first answer, which tells the server's port
    unsigned int block = 0;  // read: last received; write: last sent
    size_t offset = 0;       // of the bytes behind that block
    std::string packet;      // last sent
    int sends = 0;           // of that packet
    unsigned int silent_ticks = 0;
};

[[noreturn]] void fail(std::string const& what) {
    fprintf(stderr, "tftp_client: %s\n", what.c_str());
    exit(1);
}

int checked(ssize_t result, char const* what) {
    if (result < 0) {
        fail(std::string(what) + ": " + strerror(errno));
    }
    return int(result);
}

class client {
public:
    explicit client(options const& o)
        : chosen(o), transfers(o.parallel), waited_for(o.parallel + 1, pollfd{-1, POLLIN, 0}) {
        while (content.size() < chosen.size) {
            content += pattern;
        }
        content.resize(chosen.size);
        timespec const interval = {0, 1000000000 / ticks_a_second};
        itimerspec const setting = {interval, interval};
        checked(timerfd_settime(clock, 0, &setting, nullptr), "timerfd_settime");
        waited_for.back().fd = clock;
    }

    void run() {
        for (unsigned int slot = 0; slot < chosen.parallel && started < chosen.count; ++slot) {
            start(slot);
        }
        while (finished < chosen.count) {
            checked(poll(waited_for.data(), waited_for.size(), -1), "poll");
            for (unsigned int slot = 0; slot < chosen.parallel; ++slot) {
                if (waited_for[slot].revents) {
                    receive(slot);
                }
            }
            if (waited_for.back().revents) {
                tick();
            }
        }
    }

    int retransmissions = 0;  // by either side

private:
    void start(unsigned int slot) {
        bool const is_read = chosen.request == read_request;
        std::string const name = is_read ? chosen.file : chosen.file + '.' + std::to_string(slot);
        transfer& t = transfers[slot] = transfer();
        t.fd = checked(socket(chosen.server->ai_family, SOCK_DGRAM, 0), "socket");
        t.packet = std::string({0, chosen.request}) + name + '\0' + "octet" + '\0';
        waited_for[slot].fd = t.fd;
        ++started;
        send_packet(t);
    }

    void send_packet(transfer& t) {
        addrinfo const& server = *chosen.server;
        checked(sendto(t.fd, t.packet.data(), t.packet.size(), 0,
                       t.connected ? nullptr : server.ai_addr, t.connected ? 0 : server.ai_addrlen),
                "sendto");
        ++t.sends;
        t.silent_ticks = 0;
    }

    void send_numbered(transfer& t, opcode code, std::string_view bytes) {
        t.packet.assign({0, code, char(t.block >> 8), char(t.block)});
        t.packet += bytes;
        t.sends = 0;
        send_packet(t);
    }

    // The timer spares a system call a block, which the time would cost.
    void tick() {
        uint64_t count;
        checked(read(clock, &count, sizeof count), "read");
        for (transfer& t : transfers) {
            if (t.fd >= 0 && ++t.silent_ticks > ticks_a_second) {
                if (t.sends == sends_max) {
                    fail("no answer");
                }
                ++retransmissions;
                send_packet(t);
            }
        }
    }

    void receive(unsigned int slot) {
        transfer& t = transfers[slot];
        std::array<char, header_length + block_size> bytes;
        sockaddr_storage address;
        socklen_t address_size = sizeof address;
        sockaddr* const sender = reinterpret_cast<sockaddr*>(&address);
        int const size = checked(
            recvfrom(t.fd, bytes.data(), bytes.size(), 0, sender, &address_size), "recvfrom");
        if (!t.connected) {
            checked(connect(t.fd, sender, address_size), "connect");
            t.connected = true;
        }
        if (ends(t, std::string_view(bytes.data(), size_t(size)))) {
            close(t.fd);
            waited_for[slot].fd = t.fd = -1;
            ++finished;
            if (started < chosen.count) {
                start(slot);
            }
        }
    }

    // Whether the transfer ends with this packet.
    bool ends(transfer& t, std::string_view packet) {
        bool const is_read = chosen.request == read_request;
        if (packet.size() < header_length || packet[1] != (is_read ? data : acknowledgement)) {
            fail("the server refuses, or sent an unexpected packet");
        }
        unsigned int const number = unsigned(packet[2] & 0xFF) << 8 | unsigned(packet[3] & 0xFF);
        if (number != (is_read ? t.block + 1 : t.block)) {
            ++retransmissions;
            if (is_read) {
                send_packet(t);
            }
            return false;
        }
        return is_read ? data_received(t, packet.substr(header_length)) : acknowledged(t);
    }

    std::string_view bytes_at(size_t offset) const {
        return std::string_view(content).substr(offset, block_size);
    }

    bool data_received(transfer& t, std::string_view bytes) {
        ++t.block;
        if (bytes != bytes_at(t.offset)) {
            fail("wrong bytes in block " + std::to_string(t.block));
        }
        t.offset += bytes.size();
        send_numbered(t, acknowledgement, {});
        return bytes.size() < block_size;
    }

    bool acknowledged(transfer& t) {
        if (t.block > 0 && t.packet.size() < header_length + block_size) {
            return true;
        }
        std::string_view const bytes = bytes_at(t.offset);
        ++t.block;
        t.offset += bytes.size();
        send_numbered(t, data, bytes);
        return false;
    }

    options const chosen;
    std::vector<transfer> transfers;  // by slot
    std::vector<pollfd> waited_for;   // by slot, then the timer
    std::string content;
    int const clock = checked(timerfd_create(CLOCK_MONOTONIC, 0), "timerfd_create");
    unsigned int started = 0;
    unsigned int finished = 0;
};

options parse(char** arguments) {
    options result = {};
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_DGRAM;
    if (getaddrinfo(arguments[2], arguments[3], &hints, &result.server) != 0) {
        fail("no address or no port");
    }
    result.request = strcmp(arguments[1], "write") == 0 ? write_request : read_request;
    result.file = arguments[4];
    result.size = strtoul(arguments[5], nullptr, 10);
    result.parallel = unsigned(strtoul(arguments[6], nullptr, 10));
    result.count = unsigned(strtoul(arguments[7], nullptr, 10));
    if (result.size > file_size_max || result.parallel == 0 || result.count == 0) {
        fail("a number is out of range");
    }
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 8) {
        fail("usage: tftp_client read|write HOST PORT FILE SIZE PARALLEL COUNT");
    }
    alarm(run_limit);
    options const chosen = parse(argv);
    client measured(chosen);
    auto const begin = std::chrono::steady_clock::now();
    measured.run();
    std::chrono::duration<double> const elapsed = std::chrono::steady_clock::now() - begin;
    printf("%.4f s, %.2f transfers/s, %.3f MB/s, %d retransmissions\n", elapsed.count(),
           chosen.count / elapsed.count(),
           double(chosen.size) * chosen.count / elapsed.count() / 1e6, measured.retransmissions);
}
