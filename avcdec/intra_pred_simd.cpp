// SPDX-License-Identifier: BSD-2-Clause
// Directional, plane and chroma DC prediction with SSE2 or NEON (H.264 8.3.1.2 to 8.3.4). All
// samples of a directional mode are averages of two or three neighbours on the line of reference
// samples. Two vectors hold the averages for every place on the line, and each row of the block is
// a window of them that slides from row to row.
#include "avcdec/intra_modes.h"
#include "avcdec/recon_kernels.h"
#include "runtime/simd_vectors.h"

// The first kSize samples.
template <int kSize>
static inline void store_row(uint8_t* p, U8x16 v) {
    static_assert(kSize == 4 || kSize == 8);
    kSize == 4 ? store_4(p, v) : store_8(p, v);
}

static inline U8x16 splat_lane_0(U8x16 v) { return splat_u8(v[0]); }

// Four samples of a column; pitch may be negative.
static inline uint32_t load_column_4(const uint8_t* p, ptrdiff_t pitch) {
    return p[0] | static_cast<uint32_t>(p[pitch]) << 8 | static_cast<uint32_t>(p[2 * pitch]) << 16 |
           static_cast<uint32_t>(p[3 * pitch]) << 24;
}

static inline U8x16 load_column_8(const uint8_t* p, ptrdiff_t pitch) {
    return (U8x16)U32x4{load_column_4(p, pitch), load_column_4(p + 4 * pitch, pitch)};
}

// Averages along a line of samples: pair[i] of samples i and i + 1, triple[i] of i to i + 2 with
// the middle one counted twice. The line goes on with more.
struct Averages {
    U8x16 pair;
    U8x16 triple;
};

static inline Averages averages(U8x16 line, U8x16 more) {
    const U8x16 next = slide<1>(line, more);
    return {average(line, next), average(next, average_down(line, slide<2>(line, more)))};
}

// In the following functions kSize is 4 or 8. Lines "around" are the left column from the bottom
// up, the corner and the row above, so that average kSize of pairs is that of the corner and the
// first sample above, and triple kSize - 1 is the one around the corner.

// H.264 8.3.1.2.4, 8.3.2.2.5. The line is the row above.
template <int kSize>
static inline void diagonal_down_left(uint8_t* dst, ptrdiff_t pitch, const Averages& top) {
    U8x16 row = top.triple;
#pragma GCC unroll 8
    for (int y = 0; y < kSize; ++y, row = slide<1>(row)) store_row<kSize>(dst + y * pitch, row);
}

// H.264 8.3.1.2.8, 8.3.2.2.9. The line is the row above.
template <int kSize>
static inline void vertical_left(uint8_t* dst, ptrdiff_t pitch, const Averages& top) {
    U8x16 even = top.pair;
    U8x16 odd = top.triple;
#pragma GCC unroll 4
    for (int y = 0; y < kSize; y += 2, even = slide<1>(even), odd = slide<1>(odd)) {
        store_row<kSize>(dst + y * pitch, even);
        store_row<kSize>(dst + (y + 1) * pitch, odd);
    }
}

// H.264 8.3.1.2.5, 8.3.2.2.6. The line is around.
template <int kSize>
static inline void diagonal_down_right(uint8_t* dst, ptrdiff_t pitch, const Averages& around) {
    U8x16 row = around.triple;
#pragma GCC unroll 8
    for (int y = kSize - 1; y >= 0; --y, row = slide<1>(row)) {
        store_row<kSize>(dst + y * pitch, row);
    }
}

// H.264 8.3.1.2.6, 8.3.2.2.7. The line is around. From the row above on, even rows are pairs and
// odd rows triples; what enters them on the left is every second triple of the left column.
template <int kSize>
static inline void vertical_right(uint8_t* dst, ptrdiff_t pitch, const Averages& around) {
    constexpr int kEntering = kSize / 2;
    const U8x16 is_entering = kSize == 4 ? (U8x16)U32x4{0x0000ffff} : (U8x16)U32x4{0xffffffff};
    const I16x8 even_triples = (I16x8)(around.triple & (U8x16)(U16x8{} + uint16_t{0xff}));
    const I16x8 odd_triples = (I16x8)((U16x8)around.triple >> 8);
    const auto entering_or = [&](I16x8 entering, U8x16 row) {
        return (clip_to_u8(entering, entering) & is_entering) | (row & ~is_entering);
    };
    // The first even row begins after the entering samples, the first odd row with the last.
    U8x16 even = slide<1>(entering_or(even_triples, slide<kEntering>(around.pair)));
    U8x16 odd = entering_or(odd_triples, slide<kEntering>(around.triple));
#pragma GCC unroll 4
    for (int y = kSize - 2; y >= 0; y -= 2, even = slide<1>(even), odd = slide<1>(odd)) {
        store_row<kSize>(dst + y * pitch, even);
        store_row<kSize>(dst + (y + 1) * pitch, odd);
    }
}

// H.264 8.3.1.2.7, 8.3.2.2.8. The line is around. Pairs and triples of the left column in turns,
// then the triples of the row above, slide by two from the bottom row up.
template <int kSize>
static inline void horizontal_down(uint8_t* dst, ptrdiff_t pitch, const Averages& around) {
    const U8x16 left = interleave_low(around.pair, around.triple);
    const U8x16 above = slide<kSize>(around.triple);
    U8x16 row = kSize == 4 ? low_halves(left, above) : left;
#pragma GCC unroll 8
    for (int y = kSize - 1; y >= 0; --y, row = slide<2>(row)) {
        if (kSize == 8 && y == 3) row = low_halves(slide<8>(left), above);
        store_row<kSize>(dst + y * pitch, row);
    }
}

// H.264 8.3.1.2.9, 8.3.2.2.10. The line is the left column downward, its last sample repeated.
template <int kSize>
static inline void horizontal_up(uint8_t* dst, ptrdiff_t pitch, const Averages& left, U8x16 last) {
    U8x16 row = interleave_low(left.pair, left.triple);
#pragma GCC unroll 8
    for (int y = 0; y < kSize; ++y, row = slide<2>(row, last)) {
        store_row<kSize>(dst + y * pitch, row);
    }
}

// The lines of 4x4 blocks.

template <bool kHasRight>
static inline Averages top_4x4(const uint8_t* dst, ptrdiff_t pitch) {
    const uint8_t* const top = dst - pitch;
    const uint32_t right = kHasRight ? load_4(top + 4) : top[3] * 0x01010101U;
    return averages((U8x16)U32x4{load_4(top), right, right >> 24}, U8x16{});
}

static inline Averages around_4x4(const uint8_t* dst, ptrdiff_t pitch) {
    const uint8_t* const top = dst - pitch;
    const uint32_t left = load_column_4(dst + 3 * pitch - 1, -pitch);
    // Not four samples from the corner on: the processor waits for a load across two fresh blocks.
    const uint32_t corner_on = load_4(top) << 8 | top[-1];
    return averages((U8x16)U32x4{left, corner_on, top[3]}, U8x16{});
}

template <bool kHasRight>
static void diagonal_down_left_4x4(uint8_t* dst, ptrdiff_t pitch) {
    diagonal_down_left<4>(dst, pitch, top_4x4<kHasRight>(dst, pitch));
}

template <bool kHasRight>
static void vertical_left_4x4(uint8_t* dst, ptrdiff_t pitch) {
    vertical_left<4>(dst, pitch, top_4x4<kHasRight>(dst, pitch));
}

static void diagonal_down_right_4x4(uint8_t* dst, ptrdiff_t pitch) {
    diagonal_down_right<4>(dst, pitch, around_4x4(dst, pitch));
}

static void vertical_right_4x4(uint8_t* dst, ptrdiff_t pitch) {
    vertical_right<4>(dst, pitch, around_4x4(dst, pitch));
}

static void horizontal_down_4x4(uint8_t* dst, ptrdiff_t pitch) {
    horizontal_down<4>(dst, pitch, around_4x4(dst, pitch));
}

static void horizontal_up_4x4(uint8_t* dst, ptrdiff_t pitch) {
    const U8x16 last = splat_u8(dst[3 * pitch - 1]);
    const U8x16 line = (U8x16)U32x4{load_column_4(dst - 1, pitch), ((U32x4)last)[0]};
    horizontal_up<4>(dst, pitch, averages(line, last), last);
}

// The lines of 8x8 blocks, whose samples are themselves averages (H.264 8.3.2.2.1).

// Averages each sample of a line with both its neighbours. before[15] comes ahead of it.
static inline U8x16 smooth(U8x16 before, U8x16 line, U8x16 after) {
    const U8x16 previous = slide<15>(before, line);
    return average(line, average_down(previous, slide<1>(line, after)));
}

// The row above and to the right.
static inline U8x16 top_8x8(const uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    const uint8_t* const top = dst - pitch;
    const U8x16 line = available & kPred8x8TopRight
                           ? load_8_8(top, top + 8)
                           : low_halves(load_8_8(top, top), splat_u8(top[7]));
    const U8x16 corner = splat_u8(available & kPred8x8TopLeft ? top[-1] : top[0]);
    return smooth(corner, line, splat_u8(line[15]));
}

// The left column downward, in the first eight lanes; the others repeat the last sample.
static inline U8x16 left_8x8(const uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    const U8x16 last = splat_u8(dst[7 * pitch - 1]);
    const U8x16 line = low_halves(load_column_8(dst - 1, pitch), last);
    const U8x16 corner = splat_u8(dst[available & kPred8x8TopLeft ? -pitch - 1 : -1]);
    return smooth(corner, line, last);
}

static inline Averages top_averages_8x8(const uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    const U8x16 top = top_8x8(dst, pitch, available);
    return averages(top, splat_u8(top[15]));
}

// The corner is there whenever a mode asks for all of the line.
static inline Averages around_8x8(const uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    const uint8_t* const top = dst - pitch;
    const U8x16 left = load_column_8(dst + 7 * pitch - 1, -pitch);
    const U8x16 corner_on = slide<15>(splat_u8(top[-1]), load_8_8(top, top));
    const U8x16 line = low_halves(left, corner_on);
    const U8x16 smooth_line = smooth(splat_lane_0(left), line, splat_u8(top[7]));
    return averages(smooth_line, slide<7>(top_8x8(dst, pitch, available)));
}

static void vertical_8x8(uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    const U8x16 top = top_8x8(dst, pitch, available);
    for (int y = 0; y < 8; ++y) store_row<8>(dst + y * pitch, top);
}

static void horizontal_8x8(uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    const U8x16 left = left_8x8(dst, pitch, available);
    const U8x16 twice = interleave_low(left, left);
    const U8x16 rows[2] = {interleave_low(twice, twice), interleave_high(twice, twice)};
#pragma GCC unroll 2
    for (int i = 0; i < 2; ++i, dst += 4 * pitch) {
        store_8_8(dst, dst + pitch, interleave_low(rows[i], rows[i]));
        store_8_8(dst + 2 * pitch, dst + 3 * pitch, interleave_high(rows[i], rows[i]));
    }
}

static inline void fill_8x8(uint8_t* dst, ptrdiff_t pitch, uint32_t value) {
    const U8x16 row = splat_u8(static_cast<int>(value));
    for (int y = 0; y < 8; ++y) store_row<8>(dst + y * pitch, row);
}

static void dc_8x8(uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    const U8x16 both = low_halves(top_8x8(dst, pitch, available), left_8x8(dst, pitch, available));
    fill_8x8(dst, pitch, (sum_16(both) + 8) >> 4);
}

static void dc_left_8x8(uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    const U8x16 left = left_8x8(dst, pitch, available);
    fill_8x8(dst, pitch, (sum_16(low_halves(left, U8x16{})) + 4) >> 3);
}

static void dc_top_8x8(uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    const U8x16 top = top_8x8(dst, pitch, available);
    fill_8x8(dst, pitch, (sum_16(low_halves(top, U8x16{})) + 4) >> 3);
}

static void diagonal_down_left_8x8(uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    diagonal_down_left<8>(dst, pitch, top_averages_8x8(dst, pitch, available));
}

static void vertical_left_8x8(uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    vertical_left<8>(dst, pitch, top_averages_8x8(dst, pitch, available));
}

static void diagonal_down_right_8x8(uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    diagonal_down_right<8>(dst, pitch, around_8x8(dst, pitch, available));
}

static void vertical_right_8x8(uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    vertical_right<8>(dst, pitch, around_8x8(dst, pitch, available));
}

static void horizontal_down_8x8(uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    horizontal_down<8>(dst, pitch, around_8x8(dst, pitch, available));
}

static void horizontal_up_8x8(uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    const U8x16 left = left_8x8(dst, pitch, available);
    const U8x16 last = splat_u8(left[7]);
    horizontal_up<8>(dst, pitch, averages(low_halves(left, last), last), last);
}

// The DC of each 4x4 quarter of a chroma block (H.264 8.3.4.1 to 8.3.4.3).

static inline uint32_t sum_4(const uint8_t* p, ptrdiff_t step) {
    return uint32_t{p[0]} + p[step] + p[2 * step] + p[3 * step];
}

// Whole rows, as the residual is added in whole rows.
static inline void fill_two_4x4(uint8_t* dst, ptrdiff_t pitch, uint32_t left, uint32_t right) {
    const U8x16 row = (U8x16)U32x4{left * 0x01010101, right * 0x01010101};
#pragma GCC unroll 4
    for (int y = 0; y < 4; ++y) store_8(dst + y * pitch, row);
}

static void dc_chroma(uint8_t* dst, ptrdiff_t pitch) {
    const uint32_t top0 = sum_4(dst - pitch, 1);
    const uint32_t top1 = sum_4(dst - pitch + 4, 1);
    const uint32_t left0 = sum_4(dst - 1, pitch);
    const uint32_t left1 = sum_4(dst - 1 + 4 * pitch, pitch);
    fill_two_4x4(dst, pitch, (top0 + left0 + 4) >> 3, (top1 + 2) >> 2);
    fill_two_4x4(dst + 4 * pitch, pitch, (left1 + 2) >> 2, (top1 + left1 + 4) >> 3);
}

// Planes (H.264 8.3.3.4, 8.3.4.4).

// The weighted differences of the samples around the middle of the row above, or of the column
// before (step apart).
template <int kCount>
static inline int gradient(const uint8_t* middle, ptrdiff_t step) {
    int sum = 0;
#pragma GCC unroll 8
    for (int i = 1; i <= kCount; ++i) sum += i * (middle[i * step] - middle[-i * step]);
    return sum;
}

// Fills a block with the plane through its corners, from the gradients at scale 1 << 5. No sample
// of the plane leaves 16 bits.
template <int kSize>
static inline void fill_plane(uint8_t* dst, ptrdiff_t pitch, int h, int v) {
    constexpr int kCentre = kSize / 2 - 1;
    const int a = 16 * (dst[(kSize - 1) * pitch - 1] + dst[kSize - 1 - pitch]);
    const I16x8 to_right = I16x8{0, 1, 2, 3, 4, 5, 6, 7} * static_cast<int16_t>(h);
    const I16x8 across = I16x8{} + static_cast<int16_t>(8 * h);
    const I16x8 down = I16x8{} + static_cast<int16_t>(v);
    I16x8 row = to_right + static_cast<int16_t>(a - kCentre * (h + v) + 16);
    for (int y = 0; y < kSize; ++y, dst += pitch, row += down) {
        if constexpr (kSize == 16) {
            store_16(dst, clip_to_u8(row >> 5, (row + across) >> 5));
        } else {
            store_row<8>(dst, clip_to_u8(row >> 5, row));
        }
    }
}

static void plane_16x16(uint8_t* dst, ptrdiff_t pitch) {
    const int h = gradient<8>(dst - pitch + 7, 1);
    const int v = gradient<8>(dst - 1 + 7 * pitch, pitch);
    fill_plane<16>(dst, pitch, (5 * h + 32) >> 6, (5 * v + 32) >> 6);
}

static void plane_chroma(uint8_t* dst, ptrdiff_t pitch) {
    const int h = gradient<4>(dst - pitch + 3, 1);
    const int v = gradient<4>(dst - 1 + 3 * pitch, pitch);
    fill_plane<8>(dst, pitch, (34 * h + 32) >> 6, (34 * v + 32) >> 6);
}

void intra_pred_use_simd(ReconKernels* k) {
    k->pred4x4[kIntraDiagonalDownLeft] = diagonal_down_left_4x4<true>;
    k->pred4x4[kIntraDiagonalDownRight] = diagonal_down_right_4x4;
    k->pred4x4[kIntraVerticalRight] = vertical_right_4x4;
    k->pred4x4[kIntraHorizontalDown] = horizontal_down_4x4;
    k->pred4x4[kIntraVerticalLeft] = vertical_left_4x4<true>;
    k->pred4x4[kIntraHorizontalUp] = horizontal_up_4x4;
    k->pred4x4[kIntraDownLeftNoRight] = diagonal_down_left_4x4<false>;
    k->pred4x4[kIntraVerticalLeftNoRight] = vertical_left_4x4<false>;
    k->pred8x8[kIntraVertical] = vertical_8x8;
    k->pred8x8[kIntraHorizontal] = horizontal_8x8;
    k->pred8x8[kIntraDc] = dc_8x8;
    k->pred8x8[kIntraDiagonalDownLeft] = diagonal_down_left_8x8;
    k->pred8x8[kIntraDiagonalDownRight] = diagonal_down_right_8x8;
    k->pred8x8[kIntraVerticalRight] = vertical_right_8x8;
    k->pred8x8[kIntraHorizontalDown] = horizontal_down_8x8;
    k->pred8x8[kIntraVerticalLeft] = vertical_left_8x8;
    k->pred8x8[kIntraHorizontalUp] = horizontal_up_8x8;
    k->pred8x8[kIntraDcLeft] = dc_left_8x8;
    k->pred8x8[kIntraDcTop] = dc_top_8x8;
    k->pred16x16[kIntra16Plane] = plane_16x16;
    k->pred_chroma[kIntraChromaDc] = dc_chroma;
    k->pred_chroma[kIntraChromaPlane] = plane_chroma;
}
