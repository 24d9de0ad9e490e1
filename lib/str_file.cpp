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

str read_of_known_size(int fd, int size) {
    str bytes(nullptr, size);
    return read(fd, bytes.buffer(), size_t(size)) == size ? bytes : str::null;
}

str read_of_unknown_size(int fd) {
    str bytes;
    unsigned char piece[read_piece];
    ssize_t count;
    while ((count = read(fd, piece, sizeof piece)) > 0) {
        bytes.append(piece, int(count));
    }
    return bytes;
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

bool write_all(int fd, str const& bytes, str const& path) {
    unsigned char const* rest = bytes.cbuffer();
    int left = bytes.length();
    while (left > 0) {
        ssize_t const written = write(fd, rest, size_t(left < write_piece ? left : write_piece));
        if (written <= 0) {
            // Intended: 28 is sought in the count, not in errno. Do not test for ENOSPC.
            log_text(1, written == 28 ? "File system full while writing %s" : "Could not write %s",
                     path);
            return false;
        }
        rest += written;
        left -= int(written);
    }
    return true;
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

// Fills a file beside `path`, syncs it and then gives it the name: whenever the power goes, the
// file at `path` is the old one or the new one, whole.
template<class function>
bool replace_whole(str& path, mode_t mode, function fill) {
    str fresh = path + ".new";
    int fd = descriptors::open_file(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    bool const replaced = fd != -1 && fchmod(fd, mode & 07777) == 0 && fill(fd) && fsync(fd) == 0 &&
                          rename(fresh.c_str(), path.c_str()) == 0;
    descriptors::close(fd);
    if (!replaced) {
        str::remove_file(fresh, true);
    }
    return replaced;
}

bool copy_file(str& from, str& to) {
    int source = descriptors::open_file(from.c_str(), O_RDONLY);
    struct stat status;
    bool const copied =
        source != -1 && fstat(source, &status) == 0 &&
        replace_whole(to, status.st_mode, [&](int target) { return copy_bytes(source, target); });
    descriptors::close(source);
    return copied;
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
            log_text(1, "Could not fstat %s", name);
        }
    } else if (status.st_size == 0) {
        bytes = read_of_unknown_size(fd);
    } else if (status.st_size > 0 && status.st_size <= INT_MAX) {
        bytes = read_of_known_size(fd, int(status.st_size));
    }
    close(fd);
    return bytes;
}

bool str::write_file(str const& path) const {
    str name = path.slashes();
    create_path(name);
    int const fd = descriptors::open_file(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (fd < 0) {
        log_text(1, "Could not open %s for writing", name);
        return false;
    }
    bool const written = write_all(fd, *this, name);
    close(fd);
    if (!written) {
        remove_file(name, true);
    }
    return written;
}

bool str::replace_file(str const& path) const {
    str name = path.slashes();
    struct stat status;
    bool const replaced = examine(name, status) && replace_whole(name, status.st_mode, [&](int fd) {
                              return write_all(fd, *this, name);
                          });
    if (!replaced) {
        log_text(1, "Could not replace %s", name);
    }
    return replaced;
}

void str::create_path(str const& path) {
    str const name = path.slashes();
    str prefix = name[0] == '/' ? str("/") : null;
    for (int n = 0;; ++n) {
        str const component = name.get_field(n, "/");
        if (component.empty()) {
            return;
        }
        if (!prefix.empty() && prefix != "/") {
            (void)mkdir(prefix.c_str(), 0xFFFF);  // An existing directory is no error.
            prefix += '/';
        }
        prefix += component;
    }
}

void str::remove_file(str const& path, bool quiet) {
    str name(path);
    if (unlink(name.c_str()) != 0 && !quiet) {
        log_text(1, "Cannot remove file %s", path);
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
    log_text(1, "Cannot rename file %s to %s", old_name, new_name);
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
            text += str::sprintf(" %s %s", is_directory ? c_dir : c_file,
                                 decimal(examined ? status.st_size : 0));
        }
        text += crlf;
    }
    closedir(entries);
    return text;
}
