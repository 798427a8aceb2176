// SPDX-License-Identifier: BSD-2-Clause
#include "movie/fragment_finder.h"

#include <algorithm>
#include <string_view>

// Bytes looked at in one go, and how far the next block overlaps: a type may be cut by the border.
constexpr uint64_t kBlock = SourceReader::kLargestBlock;
constexpr uint64_t kOverlap = 8;

bool is_fragment_level_type(uint32_t type) {
    static constexpr uint32_t kTypes[] = {
        fourcc("moof"), fourcc("mdat"), fourcc("sidx"), fourcc("styp"), fourcc("emsg"),
        fourcc("prft"), fourcc("free"), fourcc("uuid"), fourcc("ssix"), fourcc("mfra"),
        fourcc("skip"), fourcc("meta"), fourcc("imda")};
    return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

uint32_t track_of_fragment(SourceReader* reader, const Box& traf) {
    Box tfhd;
    return find_child(reader, traf, fourcc("tfhd"), &tfhd) ? reader->u32_at(tfhd.content + 4) : 0;
}

std::optional<int64_t> decode_time_of_fragment(SourceReader* reader, const Box& traf) {
    Box tfdt;
    if (!find_child(reader, traf, fourcc("tfdt"), &tfdt)) return std::nullopt;
    const bool is_wide = reader->u8_at(tfdt.content) == 1;
    if (is_wide) return static_cast<int64_t>(reader->u64_at(tfdt.content + 4));
    return int64_t{reader->u32_at(tfdt.content + 4)};
}

std::optional<FragmentPlace> FragmentFinder::place_at(uint64_t offset) {
    const uint64_t size = boxes_.source_size();
    Box moof, child;
    if (!BoxWalk(&boxes_, offset, size).next(&moof) || moof.type != fourcc("moof")) {
        return std::nullopt;
    }
    const uint8_t* const following = boxes_.at(moof.end, 8);
    if (!following || !is_fragment_level_type(load_be32(following + 4))) return std::nullopt;
    BoxWalk walk(&boxes_, moof);
    if (!walk.next(&child) || child.type != fourcc("mfhd") || child.length() != 8) {
        return std::nullopt;
    }
    while (walk.find(fourcc("traf"), &child)) {
        if (track_of_fragment(&boxes_, child) != track_id_) continue;
        const std::optional<int64_t> time = decode_time_of_fragment(&boxes_, child);
        if (time) return FragmentPlace{*time, offset};
    }
    return std::nullopt;
}

static std::string_view block_at(SourceReader* reader, uint64_t begin, uint64_t end) {
    const uint8_t* const bytes = reader->at(begin, end - begin);
    return bytes ? std::string_view(reinterpret_cast<const char*>(bytes), end - begin)
                 : std::string_view();
}

std::optional<FragmentPlace> FragmentFinder::first_in(uint64_t begin, uint64_t end) {
    end = std::min(end, scan_.source_size());
    while (begin < end) {
        const uint64_t block_end = std::min(begin + kBlock, end);
        const std::string_view block = block_at(&scan_, begin, block_end);
        for (size_t at = block.find("moof", 4); at != block.npos; at = block.find("moof", at + 1)) {
            const std::optional<FragmentPlace> place = place_at(begin + at - 4);
            if (place) return place;
        }
        if (block.size() <= kOverlap || block_end == end) break;
        begin = block_end - kOverlap;
    }
    return std::nullopt;
}

std::optional<FragmentPlace> FragmentFinder::last_in(uint64_t begin, uint64_t end) {
    end = std::min(end, scan_.source_size());
    while (begin < end) {
        const uint64_t block_begin = end - std::min(kBlock, end - begin);
        const std::string_view block = block_at(&scan_, block_begin, end);
        for (size_t at = block.rfind("moof"); at != block.npos && at >= 4;
             at = block.rfind("moof", at - 1)) {
            const std::optional<FragmentPlace> place = place_at(block_begin + at - 4);
            if (place) return place;
        }
        if (block.size() <= kOverlap || block_begin == begin) break;
        end = block_begin + kOverlap;
    }
    return std::nullopt;
}
