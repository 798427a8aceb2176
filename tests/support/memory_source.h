// SPDX-License-Identifier: BSD-2-Clause
// Bytes in memory as a source for movies, with zeros after them if it is to be larger. Counts what
// is read.
#pragma once

#include <string.h>

#include <algorithm>
#include <string>
#include <utility>

#include "movie/byte_source.h"

class MemorySource final : public ByteSource {
 public:
    explicit MemorySource(std::string bytes) : bytes_(std::move(bytes)), size_(bytes_.size()) {}
    MemorySource(std::string bytes, uint64_t size) : bytes_(std::move(bytes)), size_(size) {}

    uint64_t size() const override { return size_; }
    size_t read(uint64_t offset, std::span<uint8_t> into) override {
        ++reads;
        if (offset >= size_) return 0;
        const size_t count = std::min<uint64_t>(into.size(), size_ - offset);
        bytes_read += count;
        const uint64_t present = bytes_.size() - std::min<uint64_t>(offset, bytes_.size());
        const size_t copied = std::min<uint64_t>(count, present);
        if (copied != 0) memcpy(into.data(), bytes_.data() + offset, copied);
        if (copied != count) memset(into.data() + copied, 0, count - copied);
        return count;
    }

    uint64_t reads = 0;
    uint64_t bytes_read = 0;

 private:
    std::string bytes_;
    uint64_t size_;
};

// For movies whose headers only claim to be compressed.
inline bool inflate_as_it_is(std::span<const uint8_t> stream, std::span<uint8_t> into) {
    if (stream.size() != into.size()) return false;
    std::copy(stream.begin(), stream.end(), into.begin());
    return true;
}
