// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/file_handle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/accounted_memory.h"

FileHandle* upnp_file_open(const char* path) {
    FileHandle* const handle = static_cast<FileHandle*>(upnp_calloc(1, sizeof(FileHandle)));
    if (!handle) return nullptr;
    // Whatever has come to stand under a video's name does not hold up the run, nor does a terminal
    // become the one that controls it.
    handle->descriptor = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat status;
    if (handle->descriptor < 0 || fstat(handle->descriptor, &status) != 0 ||
        !S_ISREG(status.st_mode)) {
        upnp_file_close(handle);
        return nullptr;
    }
    handle->size = status.st_size;
    return handle;
}

int32_t upnp_file_read(FileHandle* handle, void* buffer, uint32_t length) {
    if (!handle) return -1;
    const ssize_t count = pread(handle->descriptor, buffer, length, handle->position);
    if (count >= 1) handle->position += count;
    return static_cast<int32_t>(count);
}

int64_t upnp_file_seek(FileHandle* handle, int64_t position) {
    if (!handle || position < 0) return -1;
    handle->position = position;
    return position;
}

void upnp_file_close(FileHandle* handle) {
    if (!handle) return;
    if (handle->descriptor >= 0) close(handle->descriptor);
    upnp_free(handle);
}
