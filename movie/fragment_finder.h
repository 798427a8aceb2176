// SPDX-License-Identifier: BSD-2-Clause
// Finds movie fragments in the middle of a source, where no index points: by the bytes of their
// type, believed if all around them is as it has to be.
#pragma once

#include <optional>

#include "movie/box_walk.h"

struct FragmentPlace {
    int64_t time;     // in the track's time scale
    uint64_t offset;  // of "moof", or of another box of the top level in front of it
};

class FragmentFinder {
 public:
    FragmentFinder(ByteSource* source, WorkBudget* work, uint32_t track_id)
        : scan_(source, work), boxes_(source, work), track_id_(track_id) {}

    // The first and the last fragment that starts in [begin, end), has samples of the track and
    // states their time ("tfdt").
    std::optional<FragmentPlace> first_in(uint64_t begin, uint64_t end);
    std::optional<FragmentPlace> last_in(uint64_t begin, uint64_t end);

 private:
    std::optional<FragmentPlace> place_at(uint64_t offset);

    SourceReader scan_;
    SourceReader boxes_;
    uint32_t track_id_;
};

// What may stand at the top level between fragments.
bool is_fragment_level_type(uint32_t type);
// ISO 14496-12 8.8.7 and 8.8.12: the track that a track fragment belongs to, 0 if it does not say,
// and its first decoding time.
uint32_t track_of_fragment(SourceReader* reader, const Box& traf);
std::optional<int64_t> decode_time_of_fragment(SourceReader* reader, const Box& traf);
