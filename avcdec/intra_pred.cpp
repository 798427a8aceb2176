// SPDX-License-Identifier: BSD-2-Clause
// Intra prediction of luma and chroma blocks (H.264 8.3.1.2 to 8.3.4), scalar.
#include <string.h>

#include "avcdec/recon_kernels.h"
#include "runtime/byte_order.h"

static uint8_t mean2(int a, int b) { return static_cast<uint8_t>((a + b + 1) >> 1); }

static uint8_t mean3(int a, int b, int c) { return static_cast<uint8_t>((a + 2 * b + c + 2) >> 2); }

// Word by word: 32-bit ARM would call memset for each row.
template <int kWidth>
static void fill_row(uint8_t* dst, int value) {
    const uint32_t word = static_cast<uint8_t>(value) * 0x01010101U;
#pragma GCC unroll 4
    for (int x = 0; x < kWidth; x += 4) memcpy(dst + x, &word, sizeof word);
}

template <int kWidth, int kHeight>
static void fill(uint8_t* dst, ptrdiff_t pitch, int value) {
    for (int y = 0; y < kHeight; ++y) fill_row<kWidth>(dst + y * pitch, value);
}

template <int kCount>
static int sum_top(const uint8_t* dst, ptrdiff_t pitch) {
    int sum = 0;
#pragma GCC unroll 16
    for (int x = 0; x < kCount; ++x) sum += dst[x - pitch];
    return sum;
}

template <int kCount>
static int sum_left(const uint8_t* dst, ptrdiff_t pitch) {
    int sum = 0;
#pragma GCC unroll 16
    for (int y = 0; y < kCount; ++y) sum += dst[y * pitch - 1];
    return sum;
}

// Vertical and horizontal prediction are the same for all blocks of raw neighbours.
template <int kSize>
static void vertical(uint8_t* dst, ptrdiff_t pitch) {
    for (int y = 0; y < kSize; ++y) memcpy(dst + y * pitch, dst - pitch, kSize);
}

template <int kSize>
static void horizontal(uint8_t* dst, ptrdiff_t pitch) {
    for (int y = 0; y < kSize; ++y) fill_row<kSize>(dst + y * pitch, dst[y * pitch - 1]);
}

// DC of square blocks of kSize = 1 << kShift samples a side.
template <int kShift>
static void dc(uint8_t* dst, ptrdiff_t pitch) {
    constexpr int kSize = 1 << kShift;
    const int sum = sum_top<kSize>(dst, pitch) + sum_left<kSize>(dst, pitch);
    fill<kSize, kSize>(dst, pitch, (sum + kSize) >> (kShift + 1));
}

template <int kShift>
static void dc_left(uint8_t* dst, ptrdiff_t pitch) {
    constexpr int kSize = 1 << kShift;
    fill<kSize, kSize>(dst, pitch, (sum_left<kSize>(dst, pitch) + kSize / 2) >> kShift);
}

template <int kShift>
static void dc_top(uint8_t* dst, ptrdiff_t pitch) {
    constexpr int kSize = 1 << kShift;
    fill<kSize, kSize>(dst, pitch, (sum_top<kSize>(dst, pitch) + kSize / 2) >> kShift);
}

// The directional modes of 4x4 and 8x8 blocks are the same formulas over a line of reference
// samples: left[kSize - 1] ... left[0], corner, top[0] ... top[2 * kSize - 1].
template <int kSize>
struct Edge {
    uint8_t line[3 * kSize + 1];

    // i below 0 is down the left column, 0 the corner, above 0 along the top.
    int operator[](int i) const { return line[kSize + i]; }
    int left(int y) const { return line[kSize - 1 - y]; }
    int top(int x) const { return line[kSize + 1 + x]; }
    uint8_t smooth(int i) const { return mean3((*this)[i - 1], (*this)[i], (*this)[i + 1]); }
};

// H.264 8.3.1.2.4, 8.3.2.2.5.
template <int kSize>
static void diagonal_down_left(uint8_t* dst, ptrdiff_t pitch, const Edge<kSize>& e) {
    uint8_t diagonal[2 * kSize - 1];
    for (int i = 0; i < 2 * kSize - 2; ++i) diagonal[i] = e.smooth(i + 2);
    diagonal[2 * kSize - 2] = mean3(e[2 * kSize - 1], e[2 * kSize], e[2 * kSize]);
    for (int y = 0; y < kSize; ++y) memcpy(dst + y * pitch, diagonal + y, kSize);
}

// H.264 8.3.1.2.5, 8.3.2.2.6.
template <int kSize>
static void diagonal_down_right(uint8_t* dst, ptrdiff_t pitch, const Edge<kSize>& e) {
    uint8_t diagonal[2 * kSize - 1];
    for (int i = 0; i < 2 * kSize - 1; ++i) diagonal[i] = e.smooth(i - kSize + 1);
    for (int y = 0; y < kSize; ++y) memcpy(dst + y * pitch, diagonal + kSize - 1 - y, kSize);
}

// H.264 8.3.1.2.6, 8.3.2.2.7.
template <int kSize>
static void vertical_right(uint8_t* dst, ptrdiff_t pitch, const Edge<kSize>& e) {
    for (int y = 0; y < kSize; ++y) {
        for (int x = 0; x < kSize; ++x) {
            const int z = 2 * x - y;
            const int i = x - (y >> 1);
            uint8_t* const sample = dst + y * pitch + x;
            if (z < -1) {
                *sample = e.smooth(2 * x - y + 1);
            } else if (z == -1) {
                *sample = e.smooth(0);
            } else {
                *sample = z & 1 ? e.smooth(i) : mean2(e[i], e[i + 1]);
            }
        }
    }
}

// H.264 8.3.1.2.7, 8.3.2.2.8.
template <int kSize>
static void horizontal_down(uint8_t* dst, ptrdiff_t pitch, const Edge<kSize>& e) {
    for (int y = 0; y < kSize; ++y) {
        for (int x = 0; x < kSize; ++x) {
            const int z = 2 * y - x;
            const int i = y - (x >> 1);
            uint8_t* const sample = dst + y * pitch + x;
            if (z < -1) {
                *sample = e.smooth(x - 2 * y - 1);
            } else if (z == -1) {
                *sample = e.smooth(0);
            } else {
                *sample = z & 1 ? e.smooth(-i) : mean2(e[-i], e[-i - 1]);
            }
        }
    }
}

// H.264 8.3.1.2.8, 8.3.2.2.9.
template <int kSize>
static void vertical_left(uint8_t* dst, ptrdiff_t pitch, const Edge<kSize>& e) {
    for (int y = 0; y < kSize; ++y) {
        for (int x = 0; x < kSize; ++x) {
            const int i = x + (y >> 1) + 1;
            dst[y * pitch + x] = y & 1 ? e.smooth(i + 1) : mean2(e[i], e[i + 1]);
        }
    }
}

// H.264 8.3.1.2.9, 8.3.2.2.10.
template <int kSize>
static void horizontal_up(uint8_t* dst, ptrdiff_t pitch, const Edge<kSize>& e) {
    const int last = e.left(kSize - 1);
    for (int y = 0; y < kSize; ++y) {
        for (int x = 0; x < kSize; ++x) {
            const int z = x + 2 * y;
            const int i = y + (x >> 1);
            uint8_t* const sample = dst + y * pitch + x;
            if (z > 2 * kSize - 3) {
                *sample = static_cast<uint8_t>(last);
            } else if (z == 2 * kSize - 3) {
                *sample = mean3(e.left(kSize - 2), last, last);
            } else {
                *sample = z & 1 ? mean3(e.left(i), e.left(i + 1), e.left(i + 2))
                                : mean2(e.left(i), e.left(i + 1));
            }
        }
    }
}

enum EdgeParts : unsigned {
    kEdgeLeft = 1,
    kEdgeTop = 2,
    kEdgeRight = 4,
    kEdgeRepeat = 8,
    kEdgeCorner = 16,  // which the standard promises to the modes that need it
};

// The reference samples of a 4x4 block. kEdgeRepeat stands the last top sample in for those above
// and to the right.
static Edge<4> edge4x4(const uint8_t* dst, ptrdiff_t pitch, unsigned parts) {
    Edge<4> e = {};
    const uint8_t* const top = dst - pitch;
    if (parts & kEdgeTop) memcpy(e.line + 5, top, 4);
    if (parts & kEdgeRight) memcpy(e.line + 9, top + 4, 4);
    if (parts & kEdgeRepeat) fill_row<4>(e.line + 9, top[3]);
    if (parts & kEdgeLeft) {
        for (int y = 0; y < 4; ++y) e.line[3 - y] = dst[y * pitch - 1];
        if (parts & kEdgeTop) e.line[4] = top[-1];
    }
    return e;
}

using DirectionFn4 = void (*)(uint8_t* dst, ptrdiff_t pitch, const Edge<4>& e);
using DirectionFn8 = void (*)(uint8_t* dst, ptrdiff_t pitch, const Edge<8>& e);

template <DirectionFn4 kPredict, unsigned kParts>
static void directional4x4(uint8_t* dst, ptrdiff_t pitch) {
    kPredict(dst, pitch, edge4x4(dst, pitch, kParts));
}

// H.264 8.3.2.2.1: the filtered reference samples of an 8x8 block.
static void filter_top(const uint8_t* dst, ptrdiff_t pitch, unsigned available, uint8_t* line) {
    uint8_t raw[16];
    const uint8_t* const top = dst - pitch;
    memcpy(raw, top, 8);
    if (available & kPred8x8TopRight) {
        memcpy(raw + 8, top + 8, 8);
    } else {
        fill_row<8>(raw + 8, top[7]);
    }
    line[0] = mean3(available & kPred8x8TopLeft ? top[-1] : raw[0], raw[0], raw[1]);
    for (int x = 1; x < 15; ++x) line[x] = mean3(raw[x - 1], raw[x], raw[x + 1]);
    line[15] = mean3(raw[14], raw[15], raw[15]);
}

// left is filled downward.
static void filter_left(const uint8_t* dst, ptrdiff_t pitch, unsigned available, uint8_t* left) {
    const auto raw = [&](int y) -> int { return dst[y * pitch - 1]; };
    left[0] = mean3(available & kPred8x8TopLeft ? raw(-1) : raw(0), raw(0), raw(1));
    for (int y = 1; y < 7; ++y) left[y] = mean3(raw(y - 1), raw(y), raw(y + 1));
    left[7] = mean3(raw(6), raw(7), raw(7));
}

static Edge<8> edge8x8(const uint8_t* dst, ptrdiff_t pitch, unsigned available, unsigned parts) {
    Edge<8> e = {};
    if (parts & kEdgeCorner) available |= kPred8x8TopLeft;
    if (parts & kEdgeTop) filter_top(dst, pitch, available, e.line + 9);
    if (parts & kEdgeLeft) {
        uint8_t left[8];
        filter_left(dst, pitch, available, left);
        for (int y = 0; y < 8; ++y) e.line[7 - y] = left[y];
        if (parts & kEdgeTop) e.line[8] = mean3(dst[-1], dst[-pitch - 1], dst[-pitch]);
    }
    return e;
}

template <DirectionFn8 kPredict, unsigned kParts>
static void directional8x8(uint8_t* dst, ptrdiff_t pitch, unsigned available) {
    kPredict(dst, pitch, edge8x8(dst, pitch, available, kParts));
}

static void edge_vertical(uint8_t* dst, ptrdiff_t pitch, const Edge<8>& e) {
    for (int y = 0; y < 8; ++y) memcpy(dst + y * pitch, e.line + 9, 8);
}

static void edge_horizontal(uint8_t* dst, ptrdiff_t pitch, const Edge<8>& e) {
    for (int y = 0; y < 8; ++y) fill_row<8>(dst + y * pitch, e.left(y));
}

template <unsigned kParts>
static void edge_dc(uint8_t* dst, ptrdiff_t pitch, const Edge<8>& e) {
    int sum = 0;
    for (int i = 0; i < 8; ++i) {
        if (kParts & kEdgeTop) sum += e.top(i);
        if (kParts & kEdgeLeft) sum += e.left(i);
    }
    constexpr int kShift = kParts == (kEdgeTop | kEdgeLeft) ? 4 : 3;
    fill<8, 8>(dst, pitch, (sum + (1 << (kShift - 1))) >> kShift);
}

// Fills a block with the plane through its corners, from the gradients at scale 1 << 5.
static void fill_plane(uint8_t* dst, ptrdiff_t pitch, int size, int a, int b, int c) {
    const int centre = size / 2 - 1;
    for (int y = 0; y < size; ++y) {
        int v = a - centre * b + (y - centre) * c + 16;
        for (int x = 0; x < size; ++x, v += b) dst[y * pitch + x] = clip_u8(v >> 5);
    }
}

// The weighted differences of the samples around the middle of the row above, or of the column
// before (step apart), and their outermost sample.
static int gradient(const uint8_t* middle, ptrdiff_t step, int count) {
    int sum = 0;
    for (int i = 1; i <= count; ++i) sum += i * (middle[i * step] - middle[-i * step]);
    return sum;
}

// H.264 8.3.3.4.
static void plane16x16(uint8_t* dst, ptrdiff_t pitch) {
    const int h = gradient(dst - pitch + 7, 1, 8);
    const int v = gradient(dst - 1 + 7 * pitch, pitch, 8);
    const int a = 16 * (dst[15 * pitch - 1] + dst[15 - pitch]);
    fill_plane(dst, pitch, 16, a, (5 * h + 32) >> 6, (5 * v + 32) >> 6);
}

// H.264 8.3.4.4.
static void plane_chroma(uint8_t* dst, ptrdiff_t pitch) {
    const int h = gradient(dst - pitch + 3, 1, 4);
    const int v = gradient(dst - 1 + 3 * pitch, pitch, 4);
    const int a = 16 * (dst[7 * pitch - 1] + dst[7 - pitch]);
    fill_plane(dst, pitch, 8, a, (34 * h + 32) >> 6, (34 * v + 32) >> 6);
}

// H.264 8.3.4.1 to 8.3.4.3: the DC of each 4x4 quarter.
static void dc_chroma(uint8_t* dst, ptrdiff_t pitch) {
    const int top0 = sum_top<4>(dst, pitch);
    const int top1 = sum_top<4>(dst + 4, pitch);
    const int left0 = sum_left<4>(dst, pitch);
    const int left1 = sum_left<4>(dst + 4 * pitch, pitch);
    fill<4, 4>(dst, pitch, (top0 + left0 + 4) >> 3);
    fill<4, 4>(dst + 4, pitch, (top1 + 2) >> 2);
    fill<4, 4>(dst + 4 * pitch, pitch, (left1 + 2) >> 2);
    fill<4, 4>(dst + 4 * pitch + 4, pitch, (top1 + left1 + 4) >> 3);
}

static void dc_left_chroma(uint8_t* dst, ptrdiff_t pitch) {
    for (int y = 0; y < 8; y += 4) {
        const int sum = sum_left<4>(dst + y * pitch, pitch);
        fill<8, 4>(dst + y * pitch, pitch, (sum + 2) >> 2);
    }
}

static void dc_top_chroma(uint8_t* dst, ptrdiff_t pitch) {
    for (int x = 0; x < 8; x += 4)
        fill<4, 8>(dst + x, pitch, (sum_top<4>(dst + x, pitch) + 2) >> 2);
}

static void grey(uint8_t* dst, ptrdiff_t pitch) { fill<8, 8>(dst, pitch, 128); }

static constexpr unsigned kAround = kEdgeLeft | kEdgeTop;

static constexpr IntraPredFn kPred4x4[16] = {
    vertical<4>,
    horizontal<4>,
    dc<2>,
    directional4x4<diagonal_down_left<4>, kEdgeTop | kEdgeRight>,
    directional4x4<diagonal_down_right<4>, kAround>,
    directional4x4<vertical_right<4>, kAround>,
    directional4x4<horizontal_down<4>, kAround>,
    directional4x4<vertical_left<4>, kEdgeTop | kEdgeRight>,
    directional4x4<horizontal_up<4>, kEdgeLeft>,
    dc_left<2>,
    dc_top<2>,
    directional4x4<diagonal_down_left<4>, kEdgeTop | kEdgeRepeat>,
    directional4x4<vertical_left<4>, kEdgeTop | kEdgeRepeat>,
    dc<2>,
    dc<2>,
    dc<2>,
};

static constexpr Pred8x8Fn kDc8x8 = directional8x8<edge_dc<kAround>, kAround>;

static constexpr Pred8x8Fn kPred8x8[16] = {
    directional8x8<edge_vertical, kEdgeTop>,
    directional8x8<edge_horizontal, kEdgeLeft>,
    kDc8x8,
    directional8x8<diagonal_down_left<8>, kEdgeTop>,
    directional8x8<diagonal_down_right<8>, kAround | kEdgeCorner>,
    directional8x8<vertical_right<8>, kAround | kEdgeCorner>,
    directional8x8<horizontal_down<8>, kAround | kEdgeCorner>,
    directional8x8<vertical_left<8>, kEdgeTop>,
    directional8x8<horizontal_up<8>, kEdgeLeft>,
    directional8x8<edge_dc<kEdgeLeft>, kEdgeLeft>,
    directional8x8<edge_dc<kEdgeTop>, kEdgeTop>,
    kDc8x8,
    kDc8x8,
    kDc8x8,
    kDc8x8,
    kDc8x8,
};

static constexpr IntraPredFn kPred16x16[8] = {
    vertical<16>, horizontal<16>, dc<4>, plane16x16, dc_left<4>, dc_top<4>, dc<4>, dc<4>,
};

static constexpr IntraPredFn kPredChroma[8] = {
    dc_chroma,      horizontal<8>, vertical<8>, plane_chroma,
    dc_left_chroma, dc_top_chroma, dc_chroma,   grey,
};

void intra_pred_use_scalar(ReconKernels* k) {
    memcpy(k->pred4x4, kPred4x4, sizeof kPred4x4);
    memcpy(k->pred8x8, kPred8x8, sizeof kPred8x8);
    memcpy(k->pred16x16, kPred16x16, sizeof kPred16x16);
    memcpy(k->pred_chroma, kPredChroma, sizeof kPredChroma);
}
