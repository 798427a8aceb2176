// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/frame_choice.h"

#include <algorithm>

std::vector<MovieKeyFrame> frames_by_percentile(std::vector<MovieKeyFrame> frames, int percentile) {
    std::stable_sort(
        frames.begin(), frames.end(),
        [](const MovieKeyFrame& a, const MovieKeyFrame& b) { return a.size < b.size; });
    const size_t count = frames.size();
    if (count == 0) return frames;
    const size_t chosen = std::min(count * static_cast<size_t>(percentile) / 100, count - 1);
    std::vector<MovieKeyFrame> ordered = {frames[chosen]};
    for (size_t distance = 1; distance < count; ++distance) {
        if (chosen + distance < count) ordered.push_back(frames[chosen + distance]);
        if (distance <= chosen) ordered.push_back(frames[chosen - distance]);
    }
    return ordered;
}

int64_t start_time_us(Movie* movie, const StartTime& start) {
    if (start.time_us >= 0) return start.time_us;
    const int64_t duration_us = start.percent > 0 ? movie->duration_us() : 0;
    // In this order the product fits: the duration may be any.
    return duration_us / 100 * start.percent + duration_us % 100 * start.percent / 100;
}
