// SPDX-License-Identifier: BSD-2-Clause
#include "movie/byte_source.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

std::optional<FileSource> FileSource::open(const char* path) {
    // Neither a wait for somebody at the other end of a pipe nor a terminal of our own.
    const int descriptor = ::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor < 0) return std::nullopt;
    return adopt(descriptor);
}

std::optional<FileSource> FileSource::adopt(int descriptor) {
    struct stat status;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(descriptor);
        return std::nullopt;
    }
    return FileSource(descriptor, static_cast<uint64_t>(status.st_size));
}

FileSource::FileSource(FileSource&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), size_(other.size_) {}

FileSource::~FileSource() {
    if (descriptor_ >= 0) close(descriptor_);
}

size_t FileSource::read(uint64_t offset, std::span<uint8_t> into) {
    size_t done = 0;
    while (done < into.size() && offset + done < size_) {
        const ssize_t n = pread(descriptor_, into.data() + done, into.size() - done,
                                static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;  // an error, or the file has been cut meanwhile
        done += static_cast<size_t>(n);
    }
    return done;
}
