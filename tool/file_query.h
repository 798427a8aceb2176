// SPDX-License-Identifier: BSD-2-Clause
// What the operating system and a path's own text say about a file.
#pragma once

#include <stdint.h>

struct FileStatus {
    bool is_regular;            // neither folder nor pipe nor device
    int64_t size;               // bytes
    int64_t modification_time;  // seconds since the epoch
};

// Returns 0 and fills *status, or 1 when the system cannot report on the path.
int file_query_status(const char* path, FileStatus* status);

// Whether both paths lead to the same file. A path that leads nowhere is no file.
bool file_query_is_same(const char* path, const char* other);

// The extension within the path, without its dot, or null. A last dot with at most one character
// after it gives the whole double extension ("mp4.a") when there is one.
const char* file_query_extension(const char* path);
