// SPDX-License-Identifier: BSD-2-Clause
#include <stdio.h>
#include <unistd.h>

#include "fuzz/target.h"

// Anonymous files have no extension, so the name is one in the shared memory's file system.
MemoryFile::MemoryFile(const std::string& bytes)
    : path_("/dev/shm/keystill-fuzz-" + std::to_string(getpid()) + ".mp4") {
    FILE* const file = fopen(path_.c_str(), "wb");
    if (!file || fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size()) abort();
    if (fclose(file) != 0) abort();
}

MemoryFile::~MemoryFile() { unlink(path_.c_str()); }
