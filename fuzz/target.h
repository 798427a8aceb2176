// SPDX-License-Identifier: BSD-2-Clause
// What the fuzz targets share.
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "runtime/accounted_memory.h"
#include "runtime/owned.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// In targets whose inputs are or choose files: where those begin, behind the byte that tells.
extern const size_t g_file_start;

// A block of exactly that size, so that the sanitizer sees one byte too many.
inline Owned<uint8_t> exact_copy(const std::string& bytes) {
    Owned<uint8_t> copy = owned_malloc<uint8_t>(bytes.size());
    for (size_t i = 0; i < bytes.size(); ++i) copy[i] = static_cast<uint8_t>(bytes[i]);
    return copy;
}

// To be asked behind each input: everything was released.
inline void check_memory() {
    if (g_memUsed != 0) abort();
}

// A file without a name in any folder.
class MemoryFile {
 public:
    explicit MemoryFile(const std::string& bytes);
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    // A path that ends in the extension.
    const char* path() const { return path_.c_str(); }

 private:
    std::string path_;
};
