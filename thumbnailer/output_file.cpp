// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/output_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

static bool write_all(int descriptor, std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes = bytes.subspan(static_cast<size_t>(count));
    }
    return true;
}

// Without a change of its identity.
static bool fill(const std::string& path, std::span<const uint8_t> bytes) {
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_NOCTTY | O_CLOEXEC, 0666);
    if (descriptor < 0) return false;
    bool is_written = write_all(descriptor, bytes);
    if (!is_written && ftruncate(descriptor, 0) != 0) is_written = false;
    return close(descriptor) == 0 && is_written;
}

static mode_t usual_mode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

static bool replace(const std::string& path, mode_t mode, std::span<const uint8_t> bytes) {
    const size_t slash = path.rfind('/');
    std::string temporary = path.substr(0, slash == path.npos ? 0 : slash + 1) + ".keystill.XXXXXX";
    const int descriptor = mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0) return false;
    const bool is_written = write_all(descriptor, bytes) && fchmod(descriptor, mode) == 0;
    const bool is_closed = close(descriptor) == 0;
    if (is_written && is_closed && rename(temporary.c_str(), path.c_str()) == 0) return true;
    unlink(temporary.c_str());
    return false;
}

bool write_output(const std::string& path, std::span<const uint8_t> bytes) {
    if (path == "-") return write_all(STDOUT_FILENO, bytes);
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) return replace(path, usual_mode(), bytes);
    if (S_ISLNK(status.st_mode)) {
        char* const target = realpath(path.c_str(), nullptr);
        if (!target) return fill(path, bytes);  // leads nowhere yet
        const std::string whole = target;
        free(target);
        return write_output(whole, bytes);
    }
    if (!S_ISREG(status.st_mode) || status.st_size == 0) return fill(path, bytes);
    return replace(path, status.st_mode & 0777, bytes);
}
