// SPDX-License-Identifier: BSD-2-Clause
#include "tool/file_query.h"

#include <string.h>
#include <sys/stat.h>

// A shorter text from the last dot onward makes a double extension, which is looked for in the
// tail of a path that is longer than the smallest one that could hold it.
constexpr size_t kShortExtension = 3;
constexpr size_t kShortPath = 5;
constexpr size_t kTail = 6;

int file_query_status(const char* path, FileStatus* status) {
    struct stat found;
    if (stat(path, &found) != 0) return 1;
    status->is_regular = S_ISREG(found.st_mode);
    status->size = found.st_size;
    status->modification_time = found.st_mtime;
    return 0;
}

bool file_query_is_same(const char* path, const char* other) {
    struct stat a, b;
    if (stat(path, &a) != 0 || stat(other, &b) != 0) return false;
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

const char* file_query_extension(const char* path) {
    const char* const last_dot = strrchr(path, '.');
    if (!last_dot) return nullptr;
    const size_t length = strlen(path);
    if (strlen(last_dot) < kShortExtension && length > kShortPath) {
        const char* const first_dot = strchr(path + length - kTail, '.');
        if (first_dot != last_dot) return first_dot + 1;
    }
    return strchr(last_dot, '/') ? nullptr : last_dot + 1;
}
