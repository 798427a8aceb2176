// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/scale.h"

#include <assert.h>

// Positions are 16.16 in 64 bits: sources can be wider than 32767 samples.
constexpr int64_t kHalf = 0x8000;

static int64_t whole(int64_t position) { return position >> 16; }
// Chroma has half of the luma samples.
static int64_t whole_chroma(int64_t position) { return (position + kHalf) >> 17; }

// Source samples per destination sample; a single destination sample needs no step.
static int64_t step_of(int32_t from, int32_t to) {
    if (to < 2) return 0;
    const float ratio = static_cast<float>(from - 1) / static_cast<float>(to - 1);
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): the sum is never negative
    return static_cast<int64_t>(static_cast<double>(ratio * 65536.0f) + 0.5);
}

struct SourceRows {
    const uint8_t* upper;
    const uint8_t* lower;
    const uint8_t* u;
    const uint8_t* v;
};

struct TargetRows {
    uint8_t* upper;
    uint8_t* lower;
    uint8_t* u;
    uint8_t* v;
};

// In place, later samples are read after earlier ones that were written: the order counts.
static void scale_row_pair(SourceRows from, TargetRows to, int32_t width, int64_t x_step) {
    int64_t x = kHalf;
    for (int32_t c = 0; c < width; c += 2, x += 2 * x_step) {
        const int64_t first = whole(x);
        const int64_t second = whole(x + x_step);
        to.upper[c] = from.upper[first];
        to.upper[c + 1] = from.upper[second];
        to.lower[c] = from.lower[first];
        to.lower[c + 1] = from.lower[second];
        to.u[c >> 1] = from.u[whole_chroma(x)];
        to.v[c >> 1] = from.v[whole_chroma(x)];
    }
}

// Samples that a row of that width takes, in pairs.
static int64_t in_pairs(int64_t count) { return (count + 1) & ~INT64_C(1); }

// Kept on purpose: odd-width-shears
// From one pair of rows to the next one.
static int64_t pair_advance(int32_t width, int32_t stride) {
    return static_cast<int64_t>(stride) + in_pairs(width) + (stride - width);
}

static int64_t chroma_advance(int32_t width, int32_t stride) {
    return in_pairs(width) / 2 + ((stride - width) >> 1);
}

void ScaleYuv420Nearest(const uint8_t* src_y, const uint8_t* src_u, const uint8_t* src_v,
                        uint8_t* dst_y, uint8_t* dst_u, uint8_t* dst_v, int32_t src_width,
                        int32_t src_height, int32_t src_stride, int32_t dst_width,
                        int32_t dst_height, int32_t dst_stride) {
    const int64_t x_step = step_of(src_width, dst_width);
    const int64_t y_step = step_of(src_height, dst_height);
    const int64_t luma_pitch = src_stride;
    const int64_t chroma_pitch = src_stride >> 1;
    const int64_t luma_advance = pair_advance(dst_width, dst_stride);
    int64_t y = kHalf;
    for (int32_t pair = 0; pair < (static_cast<int64_t>(dst_height) + 1) / 2; ++pair) {
        const int64_t chroma_row = whole_chroma(y) * chroma_pitch;
        const SourceRows from = {src_y + whole(y) * luma_pitch,
                                 src_y + whole(y + y_step) * luma_pitch, src_u + chroma_row,
                                 src_v + chroma_row};
        uint8_t* const upper = dst_y + pair * luma_advance;
        const int64_t chroma_start = pair * chroma_advance(dst_width, dst_stride);
        scale_row_pair(from,
                       {upper, upper + dst_stride, dst_u + chroma_start, dst_v + chroma_start},
                       dst_width, x_step);
        y += 2 * y_step;
    }
}

PlaneExtent scale_source_extent(PictureSize from, PictureSize to, int32_t src_stride) {
    assert(from.width >= 1 && from.height >= 1 && to.width >= 1 && to.height >= 1);
    const int64_t x_step = step_of(from.width, to.width);
    const int64_t y_step = step_of(from.height, to.height);
    const int64_t last_x = kHalf + (in_pairs(to.width) - 2) * x_step;  // of the last pair's first
    const int64_t last_y = kHalf + (in_pairs(to.height) - 2) * y_step;
    const int64_t luma = whole(last_y + y_step) * src_stride + whole(last_x + x_step) + 1;
    const int64_t chroma = whole_chroma(last_y) * (src_stride >> 1) + whole_chroma(last_x) + 1;
    return {static_cast<uint64_t>(luma), static_cast<uint64_t>(chroma)};
}

PlaneExtent scale_target_extent(PictureSize to, int32_t dst_stride) {
    assert(to.width >= 1 && to.height >= 1 && dst_stride >= to.width);
    const int64_t last_pair = in_pairs(to.height) / 2 - 1;
    const int64_t luma =
        last_pair * pair_advance(to.width, dst_stride) + dst_stride + in_pairs(to.width);
    const int64_t chroma =
        last_pair * chroma_advance(to.width, dst_stride) + in_pairs(to.width) / 2;
    return {static_cast<uint64_t>(luma), static_cast<uint64_t>(chroma)};
}
