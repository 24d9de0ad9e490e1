// basenetlog: shows the log records of basenetd, one a line: time of arrival, level, text, extra
// data as a hex dump.
#include "lib/str_format.h"
#include "tools/log_stream.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr char usage[] =
    "usage: basenetlog [--level N] [--grep TEXT] [--raw FILE] [PIPE|FILE]\n"
    "\n"
    "Prints the log records of a pipe, \"net2app\" unless said otherwise, which\n"
    "is created when absent, or of a saved file.\n"
    "  --level N    records of level N and below only\n"
    "  --grep TEXT  records whose text contains TEXT only\n"
    "  --raw FILE   also saves the records to FILE, as they came\n";

struct options {
    int level = 9;
    str wanted;
    str raw_path;
    str path = "net2app";
};

[[noreturn]] void fail(char const* what, char const* path) {
    fprintf(stderr, "basenetlog: cannot %s %s: %s\n", what, path, strerror(errno));
    exit(1);
}

options parse_command_line(int argc, char** argv) {
    options result;
    bool path_seen = false;
    for (int i = 1; i < argc; ++i) {
        str const argument(argv[i]);
        char const* const value = argv[i + 1];  // nullptr behind the last
        if (argument == "--help") {
            fputs(usage, stdout);
            exit(0);
        }
        if (argument == "--level" && value) {
            result.level = str(value).value();
            ++i;
        } else if (argument == "--grep" && value) {
            result.wanted = value;
            ++i;
        } else if (argument == "--raw" && value) {
            result.raw_path = value;
            ++i;
        } else if (argument[0] != '-' && !path_seen) {
            result.path = argument;
            path_seen = true;
        } else {
            fputs(usage, stderr);
            exit(2);
        }
    }
    return result;
}

class printer {
public:
    explicit printer(options const& o, bool is_live) : chosen(o), live(is_live) {
        colours = isatty(STDOUT_FILENO);
        setvbuf(stdout, nullptr, _IOLBF, 0);
    }

    void print(log_record const& record, bool cut) {
        bool const shown = record.level <= chosen.level &&
                           (chosen.wanted.empty() || record.text.find(chosen.wanted) >= 0);
        if (!shown) {
            return;
        }
        str line = str::sprintf("%s %s%d %s%s", time_text(), colour(record.level), record.level,
                                printable(record.text), reset());
        if (cut) {
            line += "  (cut short: the pipe was full)";
        }
        if (!record.extra.empty()) {
            line += str::sprintf("  [%h]", record.extra);
        }
        puts(line.c_str());
    }

    void print_garbage(int count) {
        printf("%s - %d bytes belong to no record\n", time_text().c_str(), count);
    }

private:
    // Saved records carry no time.
    str time_text() const {
        if (!live) {
            return "--:--:--.---";
        }
        timeval now;
        gettimeofday(&now, nullptr);
        tm const* const local = localtime(&now.tv_sec);
        return str::sprintf("%02d:%02d:%02d.%03d", local->tm_hour, local->tm_min, local->tm_sec,
                            int(now.tv_usec / 1000));
    }

    // Texts carry bytes from the network: none may reach the terminal as a control sequence.
    static str printable(str const& text) {
        str out;
        for (int i = 0; i < text.length(); ++i) {
            if (text[i] >= ' ' && text[i] < 0x7F) {
                out += text[i];
            } else {
                out += str::sprintf("\\x%h", text.substr(i, 1));
            }
        }
        return out;
    }

    str colour(int level) const {
        return !colours ? "" : level <= 2 ? "\033[31m" : level >= 9 ? "\033[2m" : "";
    }
    str reset() const { return colours ? "\033[0m" : ""; }

    options const& chosen;
    bool live;
    bool colours;
};

void show_pending(log_stream& stream, printer& out, bool at_end) {
    log_record record;
    for (;;) {
        switch (stream.next(record, at_end)) {
        case log_stream::need_more:
            return;
        case log_stream::whole_record:
            out.print(record, false);
            break;
        case log_stream::cut_record:
            out.print(record, true);
            break;
        case log_stream::garbage:
            out.print_garbage(stream.skipped);
            break;
        }
    }
}

int open_raw_file(str path) {
    if (path.empty()) {
        return -1;
    }
    int const fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (fd < 0) {
        fail("write", path.c_str());
    }
    return fd;
}

}  // namespace

int main(int argc, char** argv) {
    options const chosen = parse_command_line(argc, argv);
    str path = chosen.path;
    if (mkfifo(path.c_str(), 0666) != 0 && errno != EEXIST) {
        fail("create", path.c_str());
    }
    // Read-write, so that a pipe without a writer is waited for rather than at its end.
    struct stat status = {};
    bool const is_pipe = stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
    int const fd = open(path.c_str(), is_pipe ? O_RDWR : O_RDONLY);
    if (fd < 0) {
        fail("open", path.c_str());
    }
    int const raw_fd = open_raw_file(chosen.raw_path);
    printer out(chosen, is_pipe);
    log_stream stream;
    unsigned char bytes[65536];
    ssize_t count;
    while ((count = read(fd, bytes, sizeof bytes)) > 0) {
        if (raw_fd >= 0 && write(raw_fd, bytes, size_t(count)) != count) {
            fail("write", str(chosen.raw_path).c_str());
        }
        stream.feed(bytes, int(count));
        show_pending(stream, out, false);
    }
    show_pending(stream, out, true);
    return count < 0 ? 1 : 0;
}
