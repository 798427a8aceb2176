// SPDX-License-Identifier: BSD-2-Clause
// A window on a source: bytes at any place, read in blocks that fit the way they are asked for.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "movie/byte_source.h"
#include "runtime/byte_order.h"

// What one movie may cost, in bytes read and their like: enough for the tables of a day of which
// every frame has entries of its own, and half a second of work at most.
constexpr uint64_t kMovieWork = uint64_t{256} << 20;

class WorkBudget {
 public:
    // Returns false for good once more is asked for than is left.
    bool spend(uint64_t amount) {
        left_ = amount <= left_ ? left_ - amount : 0;
        return left_ != 0;
    }

 private:
    uint64_t left_ = kMovieWork;
};

class SourceReader {
 public:
    SourceReader(ByteSource* source, WorkBudget* work) : source_(source), work_(work) {}

    // `count` bytes, which stay until the next call, or null when they are not all there or the
    // work is used up. count is at most kLargestBlock.
    const uint8_t* at(uint64_t offset, size_t count) {
        const uint64_t skipped = offset - begin_;  // huge when in front of the window
        if (skipped <= filled_ && count <= filled_ - skipped) [[likely]] {
            return window_.data() + skipped;
        }
        return refill(offset, count);
    }
    // Big-endian fields, 0 where at() gives null.
    uint32_t u8_at(uint64_t offset) { return field<1>(offset); }
    uint32_t u16_at(uint64_t offset) { return field<2>(offset); }
    uint32_t u32_at(uint64_t offset) { return field<4>(offset); }
    uint64_t u64_at(uint64_t offset) {
        const uint8_t* const bytes = at(offset, 8);
        return bytes ? load_be64(bytes) : 0;
    }

    // How many bytes the next jump to another place will want.
    void expect(size_t count);
    uint64_t source_size() const { return source_->size(); }
    bool spend(uint64_t amount) { return work_->spend(amount); }

    static constexpr size_t kLargestBlock = 64 << 10;

 private:
    template <size_t kBytes>
    uint32_t field(uint64_t offset) {
        const uint8_t* const bytes = at(offset, kBytes);
        uint32_t value = 0;
        for (size_t i = 0; bytes && i < kBytes; ++i) value = value << 8 | bytes[i];
        return value;
    }
    const uint8_t* refill(uint64_t offset, size_t count);

    ByteSource* source_;
    WorkBudget* work_;
    std::vector<uint8_t> window_;
    uint64_t begin_ = 0;  // the window's place in the source
    size_t filled_ = 0;
    size_t block_ = 0;  // bytes of the last read
    size_t expected_ = 1024;
};
