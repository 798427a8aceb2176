// SPDX-License-Identifier: BSD-2-Clause
#include "movie/cached_source.h"

#include <string.h>

#include <algorithm>
#include <utility>

// The movie box of half an hour: read at one go that costs less than two places on a disk.
constexpr uint64_t kShortStretch = 512 << 10;
constexpr uint64_t kBlockLength = 8 << 10;
constexpr size_t kMostBlocks = 8;

void CachedSource::keep(uint64_t begin, uint64_t end) {
    const uint64_t length = end - begin;
    stretches_[0] = stretches_[1];
    stretches_[1] = {begin, end, length <= kShortStretch ? length : kBlockLength};
}

// A box's header was read before its place was known: no need to go back to it.
void CachedSource::fill(Block* block, size_t length) {
    block->bytes.resize(length);
    size_t done = 0;
    if (last_.holds(block->begin)) {
        const uint64_t skipped = block->begin - last_.begin;
        done = std::min<size_t>(last_.bytes.size() - skipped, length);
        memcpy(block->bytes.data(), last_.bytes.data() + skipped, done);
    }
    done += source_->read(block->begin + done, std::span(block->bytes).subspan(done));
    block->bytes.resize(done);
}

size_t CachedSource::read_past_blocks(uint64_t offset, std::span<uint8_t> into) {
    constexpr size_t kMostKept = 1024;
    const size_t count = source_->read(offset, into);
    if (count <= kMostKept) last_ = {offset, {into.begin(), into.begin() + count}};
    return count;
}

const CachedSource::Block* CachedSource::block_with(uint64_t offset, size_t wanted) {
    for (const Block& block : blocks_) {
        if (block.holds(offset)) return &block;
    }
    for (const Stretch& stretch : stretches_) {
        if (offset < stretch.begin || offset >= stretch.end) continue;
        if (wanted > stretch.block_length) return nullptr;
        const uint64_t behind = (stretch.end - offset - 1) / stretch.block_length;
        const uint64_t end = stretch.end - behind * stretch.block_length;
        Block block;
        block.begin = std::max(stretch.begin, end - std::min(end, stretch.block_length));
        if (!work_->spend(end - block.begin)) return nullptr;
        fill(&block, end - block.begin);
        if (!block.holds(offset)) return nullptr;
        if (blocks_.size() < kMostBlocks) return &blocks_.emplace_back(std::move(block));
        Block* const replaced = &blocks_[oldest_++ % kMostBlocks];
        *replaced = std::move(block);
        return replaced;
    }
    return nullptr;
}

uint64_t CachedSource::append(std::vector<uint8_t> bytes) {
    appended_ = std::move(bytes);
    return source_->size();
}

size_t CachedSource::read(uint64_t offset, std::span<uint8_t> into) {
    if (offset >= source_->size()) {
        const uint64_t skipped = std::min<uint64_t>(offset - source_->size(), appended_.size());
        const size_t count = std::min<size_t>(into.size(), appended_.size() - skipped);
        if (count != 0) memcpy(into.data(), appended_.data() + skipped, count);
        return count;
    }
    size_t done = 0;
    while (done < into.size()) {
        const Block* const block = block_with(offset + done, into.size() - done);
        if (!block) return done + read_past_blocks(offset + done, into.subspan(done));
        const uint64_t skipped = offset + done - block->begin;
        const size_t count = std::min<uint64_t>(into.size() - done, block->bytes.size() - skipped);
        memcpy(into.data() + done, block->bytes.data() + skipped, count);
        done += count;
    }
    return done;
}
