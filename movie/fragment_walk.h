// SPDX-License-Identifier: BSD-2-Clause
// Key frames by way of movie fragments (ISO 14496-12 8.8), one fragment after another. Segment
// indexes ("sidx") and the random access table ("mfra") are used to skip what is before the wanted
// time.
#pragma once

#include <vector>

#include "movie/key_frame_visitor.h"
#include "movie/movie_headers.h"

class FragmentWalk {
 public:
    // `begin` is a place in front of the first fragment, between boxes of the top level; begin_time
    // is where the samples of the movie box end, in the track's time scale.
    FragmentWalk(ByteSource* source, WorkBudget* work, const MovieHeaders& headers, uint64_t begin,
                 int64_t begin_time);

    // Shows the visitor the sync samples of all fragments from the one that holds media_time on,
    // or else from the last one. Returns false once the visitor has enough.
    bool visit(int64_t media_time, KeyFrameVisitor* visitor);

    // Where the last fragment's samples end, in the track's time scale.
    int64_t end_time();

 private:
    struct TrackFragment;
    struct Mark {
        int64_t time;
        uint64_t offset;  // of a box of the top level
    };
    Mark start_for(int64_t media_time);
    void look_up_random_access(int64_t media_time, Mark* mark);
    void note_mark(Mark mark);
    uint64_t behind_index(const Box& sidx, int64_t media_time, bool is_end_wanted);
    bool visit_boxes(Mark start, int64_t media_time, bool is_end_wanted, KeyFrameVisitor* visitor);
    bool visit_fragment(const Box& moof, KeyFrameVisitor* visitor);
    bool read_track_header(const Box& moof, const Box& traf, TrackFragment* fragment);
    bool visit_track(const Box& traf, TrackFragment* fragment, KeyFrameVisitor* visitor);
    bool visit_run(const Box& trun, TrackFragment* fragment, KeyFrameVisitor* visitor);
    uint64_t implicit_base(const Box& moof, const Box& traf);
    bool is_fragment_box(uint64_t offset, bool only_moof);

    SourceReader reader_;
    SourceReader index_reader_;
    const MovieHeaders& headers_;
    Mark begin_;
    int64_t next_time_;  // where a fragment without "tfdt" goes on
    int64_t end_time_;
    // Fragments passed on the way, at most kMaxMarks: when they get too many every second one goes.
    std::vector<Mark> marks_;
    int64_t mark_distance_ = 0;
};
