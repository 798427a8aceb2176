// SPDX-License-Identifier: BSD-2-Clause
// Which of the key frames that tables and fragments name are to be had.
#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "movie/key_frame_visitor.h"
#include "movie/movie_key_frame.h"
#include "movie/presentation.h"
#include "movie/sample_entry.h"

// How far a named key frame can be trusted.
enum class CandidateState : uint8_t {
    kGood,
    kNoPicture,  // not intra coded, whatever the index says
    kCut,        // the source ends in it
    kAbsent,     // it cannot be decoded, or starts past the source
};

class CandidateCheck {
 public:
    // Samples end where the media does, at `media_end` of the source.
    CandidateCheck(SourceReader* reader, uint64_t media_end, const Presentation& presentation,
                   const std::vector<SampleEntry>& entries, Trust trust)
        : reader_(reader),
          media_end_(media_end),
          presentation_(presentation),
          entries_(entries),
          trust_(trust) {}
    int64_t shown_at(int64_t media_time) const {
        constexpr size_t kEditsPerWork = 2;
        reader_->spend(presentation_.edit_count() / kEditsPerWork);
        return presentation_.shown_at(media_time);
    }
    bool is_cut_off_behind(int64_t media_time) const {
        return presentation_.is_cut_off_behind(media_time);
    }
    // Fills the key frame unless the result is kAbsent.
    CandidateState check(const FoundKeyFrame& found, MovieKeyFrame* key_frame) const;

 private:
    SourceReader* reader_;
    uint64_t media_end_;
    const Presentation& presentation_;
    const std::vector<SampleEntry>& entries_;
    Trust trust_;
};

// Collects the first ones shown at a time or later.
class FirstFrom final : public KeyFrameVisitor {
 public:
    FirstFrom(const CandidateCheck* check, int64_t time_us, size_t count)
        : check_(check), time_us_(time_us < 0 ? 0 : time_us), count_(count) {}
    bool wants(int64_t media_time) override;
    bool take(const FoundKeyFrame& found) override;
    std::vector<MovieKeyFrame> take_found() { return std::move(found_); }

 private:
    const CandidateCheck* check_;
    int64_t time_us_;
    size_t count_;
    std::vector<MovieKeyFrame> found_;
};

// Keeps the last one from a time on that no edit list cuts off behind.
class LastOne final : public KeyFrameVisitor {
 public:
    explicit LastOne(const CandidateCheck* check) : check_(check) {}
    void set_start(int64_t time_us) { start_us_ = time_us; }
    bool wants(int64_t media_time) override { return check_->shown_at(media_time) >= start_us_; }
    bool take(const FoundKeyFrame& found) override;
    const std::optional<MovieKeyFrame>& best_one() const { return best_; }
    // When there is no better one: cut off, or else without a picture, or else cut.
    const std::optional<MovieKeyFrame>& any_one() const {
        return cut_off_ ? cut_off_ : doubtful_ ? doubtful_ : cut_;
    }

 private:
    const CandidateCheck* check_;
    int64_t start_us_ = 0;
    std::optional<MovieKeyFrame> best_, cut_off_, doubtful_, cut_;
};
