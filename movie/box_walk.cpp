// SPDX-License-Identifier: BSD-2-Clause
#include "movie/box_walk.h"

#include <algorithm>

constexpr uint64_t kBoxCost = 8;

bool BoxWalk::next(Box* box) {
    if (next_ >= end_ || end_ - next_ < 8 || !reader_->spend(kBoxCost)) return false;
    const uint8_t* header = reader_->at(next_, 8);
    if (!header) return false;
    uint64_t size = load_be32(header);
    uint64_t header_size = 8;
    box->type = load_be32(header + 4);
    if (size == 1) {
        header_size = 16;
        if (end_ - next_ < 16 || !(header = reader_->at(next_, 16))) return false;
        size = load_be64(header + 8);
    }
    if (size == 0) size = end_ - next_;
    if (size < header_size) return false;
    box->begin = next_;
    box->content = next_ + header_size;
    box->end = next_ + std::min(size, end_ - next_);
    next_ = box->end;
    return true;
}

bool BoxWalk::find(uint32_t type, Box* box) {
    while (next(box)) {
        if (box->type == type) return true;
    }
    return false;
}

Table table_of(SourceReader* reader, const Box& box, uint32_t entry_size, uint32_t header) {
    Table table;
    if (box.length() < header + 4) return table;
    table.offset = box.content + header + 4;
    table.entry_size = entry_size;
    table.count =
        std::min<uint64_t>(reader->u32_at(table.offset - 4), (box.end - table.offset) / entry_size);
    return table;
}
