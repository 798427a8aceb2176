// SPDX-License-Identifier: BSD-2-Clause
// The boxes of a stretch of a source, one after another (ISO 14496-12 4.2).
#pragma once

#include <stdint.h>

#include "movie/source_reader.h"

constexpr uint32_t fourcc(const char (&text)[5]) {
    uint32_t code = 0;
    for (int i = 0; i < 4; ++i) code = code << 8 | static_cast<uint8_t>(text[i]);
    return code;
}

// Places in the source: begin < content <= end.
struct Box {
    uint32_t type;
    uint64_t begin;
    uint64_t content;  // after size and type; version and flags of a full box are content
    uint64_t end;
    uint64_t length() const { return end - content; }
};

class BoxWalk {
 public:
    BoxWalk(SourceReader* reader, uint64_t begin, uint64_t end)
        : reader_(reader), next_(begin), end_(end) {}
    BoxWalk(SourceReader* reader, const Box& parent)
        : BoxWalk(reader, parent.content, parent.end) {}

    // Sizes of 32 and 64 bits; 0 reaches to the end. A box that claims more than there is ends with
    // the stretch. Returns false at the end and at a size too small to be one.
    bool next(Box* box);
    // The next box of that type.
    bool find(uint32_t type, Box* box);
    // Goes on there, which is after the box that was given last.
    void skip_to(uint64_t offset) { next_ = offset; }

 private:
    SourceReader* reader_;
    uint64_t next_;
    uint64_t end_;
};

// The first child of that type.
inline bool find_child(SourceReader* reader, const Box& parent, uint32_t type, Box* child) {
    return BoxWalk(reader, parent).find(type, child);
}

// Entries of equal size after their count in a full box, as many as the box holds.
struct Table {
    uint64_t offset = 0;  // of the first entry
    uint64_t count = 0;
    uint32_t entry_size = 0;  // bytes
};
// The count stands at `header` bytes into the content, the entries after it.
Table table_of(SourceReader* reader, const Box& box, uint32_t entry_size, uint32_t header = 4);
