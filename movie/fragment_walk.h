// SPDX-License-Identifier: BSD-2-Clause
// Key frames by way of movie fragments (ISO 14496-12 8.8), one fragment after another. What is
// before the wanted time is skipped: by segment indexes ("sidx") and the random access table
// ("mfra"), or else, when it is far, by guessing where in the source it stands.
#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "movie/fragment_finder.h"
#include "movie/key_frame_visitor.h"
#include "movie/movie_headers.h"

class FragmentWalk {
 public:
    // `begin` is a place in front of the first fragment, between boxes of the top level, and the
    // time where the samples of the movie box end.
    FragmentWalk(ByteSource* source, WorkBudget* work, const MovieHeaders& headers,
                 FragmentPlace begin);

    // Shows the visitor the sync samples of all fragments from the one that holds media_time on,
    // in the track's time scale. Returns false once the visitor has enough.
    bool visit(int64_t media_time, KeyFrameVisitor* visitor);

    // From now on all samples are shown, as ones that no index tells apart. Returns whether that is
    // new.
    bool distrust_flags() { return !std::exchange(shows_all_, true); }

    // Where the first fragment's samples start and the last one's end, in the track's time scale.
    int64_t begin_time();
    int64_t end_time();

 private:
    enum class Outcome : uint8_t { kEnough, kEnd, kFar };
    struct TrackFragment;
    FragmentPlace start_for(int64_t media_time);
    void look_up_random_access(int64_t media_time, FragmentPlace* start);
    void note_place(FragmentPlace place);
    void approach(int64_t media_time);
    const std::optional<FragmentPlace>& last_place();
    uint64_t behind_index(const Box& sidx, int64_t media_time);
    Outcome visit_boxes(FragmentPlace start, int64_t media_time, uint32_t patience,
                        KeyFrameVisitor* visitor);
    bool visit_fragment(const Box& moof, KeyFrameVisitor* visitor);
    bool read_track_header(const Box& moof, const Box& traf, TrackFragment* fragment);
    bool visit_track(const Box& traf, TrackFragment* fragment, KeyFrameVisitor* visitor);
    bool visit_run(const Box& trun, TrackFragment* fragment, KeyFrameVisitor* visitor);
    uint64_t implicit_base(const Box& moof, const Box& traf);
    bool is_fragment_at(uint64_t offset);

    SourceReader reader_;
    SourceReader index_reader_;
    FragmentFinder finder_;
    const MovieHeaders& headers_;
    FragmentPlace begin_;
    std::optional<int64_t> begin_time_;
    int64_t next_time_;  // where a fragment without "tfdt" goes on
    int64_t end_time_;
    // Fragments met, by offset and by time, at most kMaxPlaces: then every second one goes.
    std::vector<FragmentPlace> places_;
    int64_t least_distance_ = 0;  // of their times
    std::optional<FragmentPlace> last_place_;
    bool has_looked_for_last_ = false;
    bool shows_all_ = false;
};
