// SPDX-License-Identifier: BSD-2-Clause
#include "movie/box_search.h"

#include <algorithm>
#include <vector>

// Bytes looked at in one go, and how far the next block overlaps: a type may be cut by the border.
constexpr uint64_t kBlock = SourceReader::kLargestBlock;
constexpr uint64_t kOverlap = 8;

static std::string_view block_at(SourceReader* reader, uint64_t begin, uint64_t end) {
    const uint8_t* const bytes = reader->at(begin, end - begin);
    return bytes ? std::string_view(reinterpret_cast<const char*>(bytes), end - begin)
                 : std::string_view();
}

void search_forwards(SourceReader* scan, std::string_view type, uint64_t begin, uint64_t end,
                     const BoxTest& is_it) {
    end = std::min(end, scan->source_size());
    while (begin < end) {
        const uint64_t block_end = std::min(begin + kBlock, end);
        const std::string_view block = block_at(scan, begin, block_end);
        for (size_t at = block.find(type, 4); at != block.npos; at = block.find(type, at + 1)) {
            if (is_it(begin + at - 4)) return;
        }
        if (block.size() <= kOverlap || block_end == end) break;
        begin = block_end - kOverlap;
    }
}

void search_backwards(SourceReader* scan, std::string_view type, uint64_t begin, uint64_t end,
                      const BoxTest& is_it) {
    end = std::min(end, scan->source_size());
    while (begin < end) {
        const uint64_t block_begin = end - std::min(kBlock, end - begin);
        const std::string_view block = block_at(scan, block_begin, end);
        // Looking forwards is what the library has fast code for.
        std::vector<uint64_t> found;
        for (size_t at = block.find(type, 4); at != block.npos; at = block.find(type, at + 1)) {
            found.push_back(block_begin + at - 4);
        }
        if (std::any_of(found.rbegin(), found.rend(), is_it)) return;
        if (block.size() <= kOverlap || block_begin == begin) break;
        end = block_begin + kOverlap;
    }
}
