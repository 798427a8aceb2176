// SPDX-License-Identifier: BSD-2-Clause
#include "movie/fragment_finder.h"

#include <algorithm>

#include "movie/box_search.h"

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

std::optional<FragmentPlace> FragmentFinder::first_in(uint64_t begin, uint64_t end) {
    std::optional<FragmentPlace> found;
    search_forwards(&scan_, "moof", begin, end,
                    [&](uint64_t offset) { return (found = place_at(offset)).has_value(); });
    return found;
}

std::optional<FragmentPlace> FragmentFinder::last_in(uint64_t begin, uint64_t end) {
    std::optional<FragmentPlace> found;
    search_backwards(&scan_, "moof", begin, end,
                     [&](uint64_t offset) { return (found = place_at(offset)).has_value(); });
    return found;
}
