// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/quant_tables.h"

#include <stddef.h>

// Raster positions of an N x N block along the frame zig-zag scan (H.264 8.5.6, 8.5.7).
template <int N>
static constexpr std::array<uint8_t, N * N> zigzag() {
    std::array<uint8_t, N * N> scan{};
    int x = 0;
    int y = 0;
    for (int i = 0; i < N * N; ++i) {
        scan[i] = static_cast<uint8_t>(y * N + x);
        const bool is_rising = (x + y) % 2 == 0;  // towards the top right
        if (is_rising) {
            if (x == N - 1) {
                ++y;
            } else {
                ++x;
                if (y > 0) --y;
            }
        } else if (y == N - 1) {
            ++x;
        } else {
            ++y;
            if (x > 0) --x;
        }
    }
    return scan;
}

template <int N>
static constexpr std::array<uint8_t, N * N> stored_scan() {
    std::array<uint8_t, N * N> scan{};
    for (int i = 0; i < N * N; ++i) {
        const int raster = zigzag<N>()[i];
        scan[i] = static_cast<uint8_t>(raster % N * N + raster / N);
    }
    return scan;
}

static constexpr Table64 interleaved(const Table64& scan) {
    Table64 lists{};
    for (int i = 0; i < 64; ++i) lists[i % 4 * 16 + i / 4] = scan[i];
    return lists;
}

template <size_t kCount>
static constexpr auto unit_scale(const std::array<uint8_t, kCount>& elements) {
    std::array<AvcScaleEntry, kCount> scale{};
    for (size_t i = 0; i < kCount; ++i) scale[i] = {1U << kScaleShift, elements[i]};
    return scale;
}

static constexpr uint8_t kNormWeights4x4[6][3] = {
    {10, 16, 13}, {11, 18, 14}, {13, 20, 16}, {14, 23, 18}, {16, 25, 20}, {18, 29, 23},
};

static constexpr uint8_t kNormWeights8x8[6][6] = {
    {20, 18, 32, 19, 25, 24}, {22, 19, 35, 21, 28, 26}, {26, 23, 42, 24, 33, 31},
    {28, 25, 45, 26, 35, 33}, {32, 28, 51, 30, 40, 38}, {36, 32, 58, 34, 46, 43},
};

static constexpr int weight_class4x4(int x, int y) {
    if (x % 2 == 0 && y % 2 == 0) return 0;
    return x % 2 == 1 && y % 2 == 1 ? 1 : 2;
}

static constexpr int weight_class8x8(int x, int y) {
    if (x % 4 == 0 && y % 4 == 0) return 0;
    if (x % 2 == 1 && y % 2 == 1) return 1;
    if (x % 4 == 2 && y % 4 == 2) return 2;
    if ((x % 4 == 0 && y % 2 == 1) || (x % 2 == 1 && y % 4 == 0)) return 3;
    return x % 2 == 0 && y % 2 == 0 ? 4 : 5;
}

template <int N>
static constexpr std::array<std::array<uint8_t, N * N>, 6> norm_adjust() {
    std::array<std::array<uint8_t, N * N>, 6> table{};
    for (int m = 0; m < 6; ++m) {
        for (int i = 0; i < N * N; ++i) {
            const int x = i / N;
            const int y = i % N;
            table[m][i] = N == 4 ? kNormWeights4x4[m][weight_class4x4(x, y)]
                                 : kNormWeights8x8[m][weight_class8x8(x, y)];
        }
    }
    return table;
}

// The field scan as x * N + y (H.264 Tables 8-2, 8-3).
// clang-format off
constexpr Table16 kFieldScan4x4 = {0, 1, 4, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
constexpr Table64 kFieldScan8x8 = {
     0,  1,  2,  8,  9,  3,  4, 10, 16, 11,  5,  6,  7, 12, 17, 24,
    18, 13, 14, 15, 19, 25, 32, 26, 20, 21, 22, 23, 27, 33, 40, 34,
    28, 29, 30, 31, 35, 41, 48, 42, 36, 37, 38, 39, 43, 49, 50, 44,
    45, 46, 47, 51, 56, 57, 52, 53, 54, 55, 58, 59, 60, 61, 62, 63,
};
// clang-format on

static constexpr Table16 field_raster() {
    Table16 raster{};
    for (int i = 0; i < 16; ++i) {
        raster[i] = static_cast<uint8_t>(kFieldScan4x4[i] % 4 * 4 + kFieldScan4x4[i] / 4);
    }
    return raster;
}

constexpr Table16 kScan4x4 = stored_scan<4>();
constexpr Table64 kScan8x8 = stored_scan<8>();
constexpr Table64 kScan8x8Interleaved = interleaved(kScan8x8);
constexpr Table64 kFieldScan8x8Interleaved = interleaved(kFieldScan8x8);
constexpr std::array<AvcScaleEntry, 16> kLumaDcScale = unit_scale(zigzag<4>());
constexpr std::array<AvcScaleEntry, 16> kFieldLumaDcScale = unit_scale(field_raster());
constexpr std::array<AvcScaleEntry, 4> kChromaDcScale =
    unit_scale(std::array<uint8_t, 4>{0, 1, 2, 3});
constexpr std::array<Table16, 6> kNormAdjust4x4 = norm_adjust<4>();
constexpr std::array<Table64, 6> kNormAdjust8x8 = norm_adjust<8>();

// clang-format off
const Table16 kDefaultIntra4x4 = {
    6, 13, 13, 20, 20, 20, 28, 28, 28, 28, 32, 32, 32, 37, 37, 42,
};

const Table64 kDefaultIntra8x8 = {
     6, 10, 10, 13, 11, 13, 16, 16, 16, 16, 18, 18, 18, 18, 18, 23,
    23, 23, 23, 23, 23, 25, 25, 25, 25, 25, 25, 25, 27, 27, 27, 27,
    27, 27, 27, 27, 29, 29, 29, 29, 29, 29, 29, 31, 31, 31, 31, 31,
    31, 33, 33, 33, 33, 33, 36, 36, 36, 36, 38, 38, 38, 40, 40, 42,
};

const uint8_t kChromaQp[12 + 52 + 12] = {
     0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,
     0,  1,  2,  3,  4,  5,  6,  7,  8,  9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23,
    24, 25, 26, 27, 28, 29, 29, 30, 31, 32, 32, 33, 34, 34, 35, 35, 36, 36, 37, 37, 37, 38, 38, 38,
    39, 39, 39, 39,
    39, 39, 39, 39, 39, 39, 39, 39, 39, 39, 39, 39,
};
// clang-format on
