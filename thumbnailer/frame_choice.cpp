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

bool is_blank(const UprightPicture& picture) {
    constexpr double kMostVariance = 9;  // noise, and what coding adds
    constexpr int32_t kRows = 16;        // that are looked at
    const int32_t step = std::max(picture.height / kRows, 1);
    uint64_t count = 0, sum = 0, squares = 0;
    for (int32_t y = step / 2; y < picture.height; y += step) {
        const uint8_t* const row = picture.y.samples + y * picture.y.pitch;
        for (int32_t x = 0; x < picture.width; ++x, ++count) {
            sum += row[x];
            squares += uint32_t{row[x]} * row[x];
        }
    }
    const double mean = static_cast<double>(sum) / static_cast<double>(count);
    return static_cast<double>(squares) / static_cast<double>(count) - mean * mean <= kMostVariance;
}

int64_t start_time_us(Movie* movie, const StartTime& start) {
    if (start.time_us >= 0) return start.time_us;
    const int64_t duration_us = start.percent > 0 ? movie->duration_us() : 0;
    // In this order the product fits: the duration may be any.
    return duration_us / 100 * start.percent + duration_us % 100 * start.percent / 100;
}
