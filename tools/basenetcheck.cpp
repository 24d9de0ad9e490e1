// basenetcheck: what the daemon would make of a settings file.
#include "core/log.h"
#include "lib/str_format.h"
#include "tools/settings_check.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr char usage[] =
    "usage: basenetcheck [--passwords] FILE\n"
    "\n"
    "Tells what basenetd would make of a settings file: what it ignores and why,\n"
    "what will not do what it seems to say, and each setting with its value.\n"
    "  --passwords  shows them, too\n"
    "  --version    prints the version and ends\n"
    "Exit status: 0 without warnings, 1 with warnings, 2 if FILE cannot be read.\n";

enum exit_status { clean = 0, with_warnings = 1, unusable = 2 };

[[noreturn]] void fail(str const& text) {
    str line = str::sprintf("basenetcheck: %s\n", text);
    fputs(line.c_str(), stderr);
    exit(unusable);
}

[[noreturn]] void tell(char const* text) {
    exit(fputs(text, stdout) < 0 ? unusable : clean);
}

struct options {
    bool shows_passwords = false;
    str path;
};

options parse_command_line(int argc, char** argv) {
    options result;
    for (int i = 1; i < argc; ++i) {
        str const argument(argv[i]);
        if (argument == "--help") {
            tell(usage);
        } else if (argument == "--version") {
            tell("basenetcheck " BASENETD_VERSION "\n");
        } else if (argument == "--passwords") {
            result.shows_passwords = true;
        } else if (argument[0] == '-' || argument.empty()) {
            fail(str::sprintf("there is no option %s; --help tells more", argument));
        } else if (!result.path.empty()) {
            fail(str::sprintf("one file, not also %s", argument));
        } else {
            result.path = argument;
        }
    }
    if (result.path.empty()) {
        fail("which file? --help tells more");
    }
    return result;
}

// A file that is there but cannot be read must not pass for an empty one.
str content_of(str path) {
    int const fd = open(path.c_str(), O_RDONLY);
    unsigned char byte;
    if (fd < 0 || read(fd, &byte, 1) < 0) {
        fail(str::sprintf("cannot read %s: %S", path, strerror(errno)));
    }
    close(fd);
    return str::read_file(path, true);
}

}  // namespace

int main(int argc, char** argv) {
    options const chosen = parse_command_line(argc, argv);
    str const content = content_of(chosen.path);
    log_pipe_path.clear();  // What the daemon would log is said here in other words.
    settings_report const report = check_settings(content, chosen.shows_passwords);
    str text = report.text;
    if (fputs(text.c_str(), stdout) < 0 || fflush(stdout) != 0) {
        fail(str::sprintf("cannot write: %S", strerror(errno)));
    }
    return report.warnings > 0 ? with_warnings : clean;
}
