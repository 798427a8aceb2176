// SPDX-License-Identifier: BSD-2-Clause
#include "movie/source_reader.h"

#include <algorithm>

// What a read costs apart from its bytes.
constexpr uint64_t kReadCost = 512;
constexpr size_t kSmallestBlock = 512;

void SourceReader::expect(size_t count) {
    expected_ = std::clamp(count, kSmallestBlock, kLargestBlock);
}

const uint8_t* SourceReader::refill(uint64_t offset, size_t count) {
    if (count > kLargestBlock || offset >= source_->size()) return nullptr;
    // Who goes on where the window ends will probably go on further.
    const bool goes_on = filled_ != 0 && offset >= begin_ && offset - begin_ <= filled_;
    block_ = goes_on ? std::min(2 * block_, kLargestBlock) : expected_;
    const size_t wanted = std::max(block_, count);
    filled_ = 0;
    if (!work_->spend(wanted + kReadCost)) return nullptr;
    if (window_.size() < wanted) window_.resize(wanted);
    begin_ = offset;
    filled_ = source_->read(offset, {window_.data(), wanted});
    return filled_ >= count ? window_.data() : nullptr;
}
