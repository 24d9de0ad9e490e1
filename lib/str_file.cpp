// Whole-file access. No file stays open beyond a call.
#include "lib/str.h"

#include "core/log.h"
#include "lib/descriptors.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int read_piece = 2048;     // bytes a read of a file of unknown size
constexpr int write_piece = 262144;  // bytes a write, at most

void log_failure(char const* format, str const& path) {
    if (log_level >= 1) {
        log_add_message(1, str::sprintf(format, path), str::null);
    }
}

str read_of_known_size(int fd, int size) {
    str bytes(nullptr, size);
    return read(fd, bytes.buffer(), size_t(size)) == size ? bytes : str::null;
}

str read_of_unknown_size(int fd, int size_max) {
    str bytes;
    unsigned char piece[read_piece];
    ssize_t count;
    while (bytes.length() < size_max && (count = read(fd, piece, sizeof piece)) > 0) {
        bytes.append(piece, int(count));
    }
    return bytes.leftstr(size_max);
}

// What fstat says of the file at `path`; false when it cannot be opened or examined.
bool examine(str path, struct stat& status) {
    if (path.empty()) {
        return false;
    }
    int const fd = descriptors::open_file(path.c_str(), O_RDONLY);
    if (fd < 0) {
        return false;
    }
    bool const examined = fstat(fd, &status) == 0;
    close(fd);
    return examined;
}

bool copy_bytes(int source, int target) {
    unsigned char piece[read_piece];
    ssize_t count;
    while ((count = read(source, piece, sizeof piece)) > 0) {
        if (write(target, piece, size_t(count)) != count) {
            return false;
        }
    }
    return count == 0;
}

// The copy gets its name when it is whole.
bool copy_file(str& from, str& to) {
    int const source = descriptors::open_file(from.c_str(), O_RDONLY);
    if (source < 0) {
        return false;
    }
    struct stat status = {};
    str copy = to + ".new";
    str::remove_file(copy, true);  // One that a power cut left would keep its mode.
    int const target = fstat(source, &status) == 0
                           ? descriptors::open_file(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                                    status.st_mode & 0777)
                           : -1;
    bool const copied = target >= 0 && copy_bytes(source, target);
    close(source);
    if (target >= 0) {
        close(target);
    }
    if (copied && rename(copy.c_str(), to.c_str()) == 0) {
        return true;
    }
    str::remove_file(copy, true);
    return false;
}

bool write_all(int fd, str const& bytes, str const& path) {
    unsigned char const* rest = bytes.cbuffer();
    int left = bytes.length();
    while (left > 0) {
        ssize_t const written = write(fd, rest, size_t(left < write_piece ? left : write_piece));
        if (written <= 0) {
            // Intended: 28 is sought in the count, not in errno. Do not test for ENOSPC.
            log_failure(written == 28 ? "File system full while writing %s" : "Could not write %s",
                        path);
            return false;
        }
        rest += written;
        left -= int(written);
    }
    return true;
}

}  // namespace

str str::read_file(str const& path, bool quiet) {
    str name = path.slashes();
    if (name.empty()) {
        return null;
    }
    int const fd = descriptors::open_file(name.c_str(), O_RDONLY);
    if (fd < 0) {
        return null;
    }
    str bytes;
    struct stat status;
    if (fstat(fd, &status) != 0) {
        if (!quiet) {
            log_failure("Could not fstat %s", name);
        }
    } else if (status.st_size == 0) {
        bytes = read_of_unknown_size(fd, INT_MAX);
    } else if (status.st_size > 0 && status.st_size <= INT_MAX) {
        bytes = read_of_known_size(fd, int(status.st_size));
    }
    close(fd);
    return bytes;
}

str str::read_regular_file(str const& path, int size_max) {
    str name = path.slashes();
    if (name.empty()) {
        return null;
    }
    int const fd = descriptors::open_file(name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        return null;
    }
    str bytes;
    struct stat status;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        bytes =
            status.st_size > 0
                ? read_of_known_size(fd, status.st_size < size_max ? int(status.st_size) : size_max)
                : read_of_unknown_size(fd, size_max);
    }
    close(fd);
    return bytes;
}

bool str::write_file(str const& path) const {
    str name = path.slashes();
    create_path(name);
    int const fd = descriptors::open_file(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (fd < 0) {
        log_failure("Could not open %s for writing", name);
        return false;
    }
    bool const written = write_all(fd, *this, name);
    close(fd);
    if (!written) {
        remove_file(name, true);
    }
    return written;
}

void str::create_path(str const& path) {
    str const name = path.slashes();
    str prefix = name[0] == '/' ? str("/") : null;
    for (int n = 0;; ++n) {
        str const component = name.get_field(n, "/");
        if (component.empty()) {
            return;
        }
        if (!prefix.empty() && !(prefix == "/")) {
            (void)mkdir(prefix.c_str(), 0xFFFF);  // An existing directory is no error.
            prefix += '/';
        }
        prefix += component;
    }
}

void str::remove_file(str const& path, bool quiet) {
    str name(path);
    if (unlink(name.c_str()) != 0 && !quiet) {
        log_failure("Cannot remove file %s", path);
    }
}

bool str::rename_file(str const& from, str const& to) {
    str old_name = from.slashes();
    str new_name = to.slashes();
    create_path(new_name);
    if (rename(old_name.c_str(), new_name.c_str()) == 0) {
        return true;
    }
    if (errno == EXDEV && copy_file(old_name, new_name)) {
        remove_file(old_name, true);
        return true;
    }
    if (log_level >= 1) {
        log_add_message(1, str::sprintf("Cannot rename file %s to %s", old_name, new_name),
                        str::null);
    }
    return false;
}

str str::file_type(str const& path) {
    struct stat status;
    if (!examine(path.slashes(), status)) {
        return null;
    }
    return S_ISDIR(status.st_mode) ? c_dir : S_ISREG(status.st_mode) ? c_file : null;
}

int str::file_size(str const& path) {
    struct stat status;
    return examine(path.slashes(), status) && status.st_size <= INT_MAX ? int(status.st_size) : 0;
}

str str::list_directory(str const& path, bool long_form) {
    str folder = path.slashes();
    if (folder.length() > 0 && folder[folder.length() - 1] == '/') {
        folder = folder.leftstr(folder.length() - 1);
    }
    DIR* const entries = opendir(folder.c_str());
    if (!entries) {
        return null;
    }
    str text;
    while (dirent const* const entry = readdir(entries)) {
        str const name(entry->d_name);
        if (name == "." || name == "..") {
            continue;
        }
        text += name;
        if (long_form) {
            struct stat status = {};
            str entry_path = folder + "/" + name;
            bool const examined = lstat(entry_path.c_str(), &status) == 0;
            bool const is_directory = examined && S_ISDIR(status.st_mode);
            text += str::sprintf(" %s %d", is_directory ? c_dir : c_file,
                                 examined ? int(status.st_size) : 0);
        }
        text += crlf;
    }
    closedir(entries);
    return text;
}
