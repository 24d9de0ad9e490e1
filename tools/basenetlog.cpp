// basenetlog: shows the log records of basenetd, one a line: time of arrival, level, text, extra
// data as a hex dump; or what they say of the device, on one screen.
#include "lib/str_format.h"
#include "tools/device_status.h"
#include "tools/log_stream.h"
#include "tools/printable.h"

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
    "usage: basenetlog [--status] [--level N] [--grep TEXT] [--raw FILE] [--create] [PIPE|FILE]\n"
    "\n"
    "Prints the log records of basenetd from a pipe, \"net2app\" unless said\n"
    "otherwise, or from a saved file.\n"
    "  --status     one screen of what the records say of the device instead\n"
    "  --level N    records of level N and below only, 0 to 9\n"
    "  --grep TEXT  records whose text contains TEXT only\n"
    "  --raw FILE   also saves the records to FILE, as they came\n"
    "  --create     makes the pipe if there is none\n"
    "  --version    prints the version and ends\n";

struct options {
    bool status = false;
    bool create = false;
    int level = 9;
    str wanted;
    str raw_path;
    str path;  // empty: none was given
};

[[noreturn]] void fail(int status, str const& text) {
    str line = str::sprintf("basenetlog: %s\n", text);
    fputs(line.c_str(), stderr);
    exit(status);
}

[[noreturn]] void fail_on_file(char const* what, str const& path) {
    fail(1, str::sprintf("cannot %S %s: %S", what, path, strerror(errno)));
}

[[noreturn]] void refuse(char const* what, str const& argument) {
    fail(2, str::sprintf("%S %s; --help tells more", what, argument));
}

[[noreturn]] void tell(char const* text) {
    fputs(text, stdout);
    exit(0);
}

int level_of(str const& text) {
    if (!text.is_number() || text.value() < 0 || text.value() > 9) {
        refuse("--level takes a number from 0 to 9, not", text);
    }
    return text.value();
}

options parse_command_line(int argc, char** argv) {
    options result;
    for (int i = 1; i < argc; ++i) {
        str const argument(argv[i]);
        bool const takes_value =
            argument == "--level" || argument == "--grep" || argument == "--raw";
        if (takes_value && i + 1 == argc) {
            refuse("nothing stands behind", argument);
        }
        str const value(takes_value ? argv[++i] : "");
        if (argument == "--help") {
            tell(usage);
        } else if (argument == "--version") {
            tell("basenetlog " BASENETD_VERSION "\n");
        } else if (argument == "--status") {
            result.status = true;
        } else if (argument == "--create") {
            result.create = true;
        } else if (argument == "--level") {
            result.level = level_of(value);
        } else if (argument == "--grep") {
            result.wanted = value;
        } else if (argument == "--raw") {
            result.raw_path = value;
        } else if (argument[0] == '-' || argument.empty()) {
            refuse("there is no option", argument);
        } else if (!result.path.empty()) {
            refuse("one pipe or file, not also", argument);
        } else {
            result.path = argument;
        }
    }
    if (result.path.empty()) {
        result.path = "net2app";
    }
    return result;
}

// Where the records come from.
struct source {
    int fd;
    bool is_pipe;
};

source open_source(options const& chosen) {
    str path = chosen.path;
    if (chosen.create && mkfifo(path.c_str(), 0666) != 0 && errno != EEXIST) {
        fail_on_file("create", path);
    }
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            fail(1, str::sprintf("there is no %s; --create makes a pipe of that name", path));
        }
        fail_on_file("open", path);
    }
    // Read-write, so that a pipe without a writer is waited for rather than at its end.
    bool const is_pipe = S_ISFIFO(status.st_mode);
    int const fd = open(path.c_str(), is_pipe ? O_RDWR : O_RDONLY);
    if (fd < 0) {
        fail_on_file("open", path);
    }
    return {fd, is_pipe};
}

bool is_same_file(int a, int b) {
    struct stat first = {};
    struct stat second = {};
    return fstat(a, &first) == 0 && fstat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

// Emptied only when it is sure not to be the file that is read.
int open_raw_file(str path, int source_fd) {
    if (path.empty()) {
        return -1;
    }
    int const fd = open(path.c_str(), O_WRONLY | O_CREAT, 0666);
    if (fd < 0) {
        fail_on_file("write", path);
    }
    if (is_same_file(fd, source_fd)) {
        refuse("--raw would overwrite what is read:", path);
    }
    (void)!ftruncate(fd, 0);  // A pipe or device has nothing to lose.
    return fd;
}

void write_out(str const& text) {
    str line = text;
    if (fputs(line.c_str(), stdout) < 0 || fflush(stdout) != 0) {
        fail_on_file("write", "standard output");
    }
}

class printer {
public:
    printer(options const& o, bool from_pipe) : chosen(o), is_live(from_pipe) {}

    void print(log_record const& record, bool cut) {
        if (chosen.status) {
            has_changed |= status.take(record, time_text().leftstr(8));
            return;
        }
        bool const shown = record.level <= chosen.level &&
                           (chosen.wanted.empty() || record.text.find(chosen.wanted) >= 0);
        if (!shown) {
            return;
        }
        str line = str::sprintf("%s %s%d %s%s", time_text(), colour(record.level), record.level,
                                printable(record.text), str(is_terminal ? "\033[0m" : ""));
        if (cut) {
            line += is_live ? "  (cut short: the pipe was full)" : "  (cut off)";
        }
        if (!record.extra.empty()) {
            line += str::sprintf("  [%h]", record.extra);
        }
        write_out(line + "\n");
    }

    void print_garbage(int count) {
        if (!chosen.status) {
            write_out(str::sprintf("%s - %d bytes belong to no record\n", time_text(), count));
        }
    }

    // What was read so far is handled: the screen is drawn again, in place on a terminal.
    void end_of_batch(bool at_end) {
        if (!chosen.status || !(is_live ? has_changed : at_end)) {
            return;
        }
        has_changed = false;
        if (is_live && is_terminal) {
            write_out(str("\033[H\033[J") + status.text());
        } else {
            write_out(status.text() + (is_live ? "\n" : ""));
        }
    }

private:
    // Saved records carry no time.
    str time_text() const {
        if (!is_live) {
            return "--:--:--.---";
        }
        timeval now;
        gettimeofday(&now, nullptr);
        tm const* const local = localtime(&now.tv_sec);
        return str::sprintf("%02d:%02d:%02d.%03d", local->tm_hour, local->tm_min, local->tm_sec,
                            int(now.tv_usec / 1000));
    }

    str colour(int level) const {
        return !is_terminal ? "" : level <= 2 ? "\033[31m" : level >= 9 ? "\033[2m" : "";
    }

    options const& chosen;
    device_status status;
    bool is_live;
    bool is_terminal = isatty(STDOUT_FILENO);
    bool has_changed = true;
};

void show_pending(log_stream& stream, printer& out, bool at_end) {
    log_record record;
    for (;;) {
        switch (stream.next(record, at_end)) {
        case log_stream::need_more:
            out.end_of_batch(at_end);
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

}  // namespace

int main(int argc, char** argv) {
    options const chosen = parse_command_line(argc, argv);
    source const from = open_source(chosen);
    int const raw_fd = open_raw_file(chosen.raw_path, from.fd);
    printer out(chosen, from.is_pipe);
    log_stream stream;
    show_pending(stream, out, false);
    unsigned char bytes[65536];
    ssize_t count;
    while ((count = read(from.fd, bytes, sizeof bytes)) > 0) {
        if (raw_fd >= 0 && write(raw_fd, bytes, size_t(count)) != count) {
            fail_on_file("write", chosen.raw_path);
        }
        stream.feed(bytes, int(count));
        show_pending(stream, out, false);
    }
    if (count < 0) {
        fail_on_file("read", chosen.path);
    }
    show_pending(stream, out, true);
    return 0;
}
