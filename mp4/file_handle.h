// SPDX-License-Identifier: BSD-2-Clause
// A file that is open for reading, with a 64-bit position of its own.
#pragma once

#include <stdint.h>

struct FileHandle {
    int32_t descriptor;  // -1 when not open
    int64_t size;        // bytes, as the system had it at open
    int64_t position;    // where the next read starts
};

// Returns null when the file cannot be opened, is none that lies on a disk (a pipe, a folder, a
// device), or there is no memory. The caller closes it.
FileHandle* upnp_file_open(const char* path);

// Reads up to length bytes at the position and moves it after them. Returns the number of bytes,
// 0 at the end of the file, -1 on failure or for a null handle.
int32_t upnp_file_read(FileHandle* handle, void* buffer, uint32_t length);

// Moves to an absolute position, which may lie past the end. Returns it, or -1 and stays for a
// negative position or a null handle. Costs no system call.
int64_t upnp_file_seek(FileHandle* handle, int64_t position);

// Null is ignored.
void upnp_file_close(FileHandle* handle);
