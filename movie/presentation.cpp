// SPDX-License-Identifier: BSD-2-Clause
#include "movie/presentation.h"

#include <algorithm>
#include <limits>

int64_t rescale(int64_t value, uint32_t from, uint32_t to) {
    value = std::max(value, std::numeric_limits<int64_t>::min() + UINT32_MAX);
    const int64_t rest = value % from < 0 ? value % from + from : value % from;
    const int64_t whole = (value - rest) / from;
    const uint64_t part = static_cast<uint64_t>(rest) * to / from;  // less than `to`
    int64_t scaled;
    if (__builtin_mul_overflow(whole, static_cast<int64_t>(to), &scaled) ||
        __builtin_add_overflow(scaled, static_cast<int64_t>(part), &scaled)) {
        return value < 0 ? std::numeric_limits<int64_t>::min()
                         : std::numeric_limits<int64_t>::max();
    }
    return scaled;
}

static int64_t saturated_sum(int64_t a, int64_t b) {
    int64_t sum;
    if (!__builtin_add_overflow(a, b, &sum)) return sum;
    return a < 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
}

Presentation::Presentation(const std::vector<Edit>& edits, uint32_t movie_scale,
                           uint32_t media_scale, int64_t origin)
    : media_scale_(media_scale), origin_(origin), is_cut_(!edits.empty()) {
    bool is_open_ended = edits.empty();
    for (const Edit& edit : edits) {
        const int64_t length_us = rescale(edit.duration, movie_scale, kMicroseconds);
        if (edit.media_time >= 0) {
            const int64_t length = rescale(edit.duration, movie_scale, media_scale);
            const int64_t end = edit.duration == 0 ? std::numeric_limits<int64_t>::max()
                                                   : saturated_sum(edit.media_time, length);
            segments_.push_back({edit.media_time, end, duration_us_});
            is_open_ended |= edit.duration == 0;
        }
        duration_us_ = saturated_sum(duration_us_, length_us);
    }
    if (segments_.empty()) segments_.push_back({0, std::numeric_limits<int64_t>::max(), 0});
    if (is_open_ended) duration_us_ = 0;
}

int64_t Presentation::shown_at(int64_t media_time) const {
    media_time = saturated_sum(media_time, -origin_);
    const Segment* segment = &segments_.front();
    for (const Segment& candidate : segments_) {
        if (candidate.holds(media_time)) {
            segment = &candidate;
            break;
        }
    }
    const int64_t into = saturated_sum(media_time, -segment->media_begin);
    const int64_t shown_us =
        saturated_sum(segment->shown_us, rescale(into, media_scale_, kMicroseconds));
    return is_cut_ ? shown_us : std::max<int64_t>(shown_us, 0);
}

bool Presentation::is_cut_off_behind(int64_t media_time) const {
    media_time = saturated_sum(media_time, -origin_);
    return media_time >= segments_.front().media_begin &&
           std::none_of(segments_.begin(), segments_.end(),
                        [&](const Segment& segment) { return segment.holds(media_time); });
}

int64_t Presentation::earliest_media_time(int64_t time_us) const {
    if (segments_.size() != 1) return std::numeric_limits<int64_t>::min();
    const Segment& segment = segments_.front();
    const int64_t into_us = saturated_sum(time_us, -segment.shown_us);
    const int64_t into = rescale(into_us, kMicroseconds, media_scale_);
    return saturated_sum(saturated_sum(segment.media_begin, into), origin_);
}
