// SPDX-License-Identifier: BSD-2-Clause
#include "movie/key_frame_search.h"

#include <algorithm>

#include "movie/intra_probe.h"

// Work of looking into one sample, apart from reading it.
constexpr uint64_t kCheckCost = 256;

CandidateState CandidateCheck::check(const FoundKeyFrame& found, MovieKeyFrame* key_frame) const {
    // An index that is out of range has one plausible meaning.
    const size_t description =
        std::min<size_t>(std::max(found.description, 1U) - 1, entries_.size() - 1);
    const SampleEntry& entry = entries_[description];
    if (entry.description.refusal != MovieRefusal::kNone || found.offset >= media_end_ ||
        !reader_->spend(kCheckCost)) {
        return CandidateState::kAbsent;
    }
    const uint64_t there = std::min<uint64_t>(found.size, media_end_ - found.offset);
    *key_frame = {shown_at(found.media_time), found.offset, static_cast<uint32_t>(there),
                  static_cast<uint32_t>(description)};
    const bool is_probed = trust_ == Trust::kSamples || !found.is_told_apart;
    if (is_probed && probe_sample(reader_, entry.description.codec, entry.stored_prefix_size,
                                  found.offset, key_frame->size) == IntraGuess::kNotIntra) {
        return CandidateState::kNoPicture;
    }
    return there < found.size ? CandidateState::kCut : CandidateState::kGood;
}

bool FirstFrom::wants(int64_t media_time) {
    return check_->shown_at(media_time) >= time_us_ && !check_->is_cut_off_behind(media_time);
}

bool FirstFrom::take(const FoundKeyFrame& found) {
    MovieKeyFrame key_frame;
    if (check_->check(found, &key_frame) == CandidateState::kGood) found_.push_back(key_frame);
    return found_.size() < count_;
}

bool LastOne::take(const FoundKeyFrame& found) {
    MovieKeyFrame key_frame;
    if (check_->is_cut_off_behind(found.media_time)) {
        // The first one is enough.
        if (!cut_off_ && check_->check(found, &key_frame) == CandidateState::kGood) {
            cut_off_ = key_frame;
        }
        return true;
    }
    switch (check_->check(found, &key_frame)) {
        case CandidateState::kGood:
            best_ = key_frame;
            break;
        case CandidateState::kNoPicture:
            doubtful_ = key_frame;
            break;
        case CandidateState::kCut:
            cut_ = key_frame;
            break;
        case CandidateState::kAbsent:
            break;
    }
    return true;
}
