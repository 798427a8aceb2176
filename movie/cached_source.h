// SPDX-License-Identifier: BSD-2-Clause
// A source that keeps what it read in a few places where many small reads go to and fro: the movie
// box and the end of the file. A disk, or a network, is asked once for what lies side by side.
#pragma once

#include <vector>

#include "movie/source_reader.h"

class CachedSource final : public ByteSource {
 public:
    CachedSource(ByteSource* source, WorkBudget* work) : source_(source), work_(work) {}

    // From now on reads that start in [begin, end) come in blocks, which are kept: a short stretch
    // is one, a longer one is cut from its end on. Of stretches the last two count.
    void keep(uint64_t begin, uint64_t end);

    // Puts bytes behind those of the source. Returns their place.
    uint64_t append(std::vector<uint8_t> bytes);

    uint64_t size() const override { return source_->size() + appended_.size(); }
    size_t read(uint64_t offset, std::span<uint8_t> into) override;

 private:
    struct Stretch {
        uint64_t begin, end;
        uint64_t block_length;
    };
    struct Block {
        uint64_t begin = 0;
        std::vector<uint8_t> bytes;
        bool holds(uint64_t offset) const {
            return offset >= begin && offset - begin < bytes.size();
        }
    };
    const Block* block_with(uint64_t offset, size_t wanted);
    void fill(Block* block, size_t length);
    size_t read_past_blocks(uint64_t offset, std::span<uint8_t> into);

    ByteSource* source_;
    WorkBudget* work_;
    std::vector<uint8_t> appended_;
    Stretch stretches_[2] = {};
    std::vector<Block> blocks_;
    size_t oldest_ = 0;
    Block last_;  // small read that went past the blocks
};
