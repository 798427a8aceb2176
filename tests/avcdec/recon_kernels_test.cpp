// SPDX-License-Identifier: BSD-2-Clause
// Prediction and residual kernels, scalar and fastest, against the formulas of H.264 8.3 and 8.5.
#include "avcdec/recon_kernels.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "avcdec/intra_modes.h"

namespace {

// Samples with a block in the middle whose neighbours are all there.
struct Samples {
    static constexpr int kPitch = 64, kRows = 24;
    alignas(32) uint8_t data[kRows * kPitch];

    uint8_t* block() { return data + 4 * kPitch + 16; }
    int at(int x, int y) { return block()[y * kPitch + x]; }
    void fill(std::mt19937* rng) {
        // Extremes make plane predictions and residuals clamp.
        const unsigned spread = (*rng)() % 3;
        for (uint8_t& s : data) {
            const auto any = static_cast<uint8_t>((*rng)());
            const int kinds[] = {any, any % 2 * 255, 100 + any % 9};
            s = static_cast<uint8_t>(kinds[spread]);
        }
    }
};

// The neighbours of an n x n block in a line: from the lowest left sample over the corner, number
// n, to the last above; the ends go on for ever.
struct Neighbours {
    int line[25];
    int n;
    int at(int i) const { return line[std::clamp(i, 0, 3 * n)]; }
    int mean2(int i) const { return (at(i) + at(i + 1) + 1) >> 1; }
    int mean3(int i) const { return (at(i - 1) + 2 * at(i) + at(i + 1) + 2) >> 2; }
    int sum(int from) const { return std::accumulate(line + from, line + from + n, 0); }
};

Neighbours read_neighbours(Samples* s, int n, bool has_right) {
    Neighbours e = {{}, n};
    for (int y = 0; y < n; ++y) e.line[n - 1 - y] = s->at(-1, y);
    for (int x = -1; x < 2 * n; ++x) {
        e.line[n + 1 + x] = s->at(has_right ? x : std::min(x, n - 1), -1);
    }
    return e;
}

// H.264 8.3.1.2 and 8.3.2.2, one sample of modes 0 to 10.
int predict_nxn(const Neighbours& e, int mode, int x, int y) {
    const int n = e.n, half_x = x >> 1, half_y = y >> 1;
    const int v = 2 * x - y, h = 2 * y - x;
    switch (mode) {
        case kIntraVertical:
            return e.at(n + 1 + x);
        case kIntraHorizontal:
            return e.at(n - 1 - y);
        case kIntraDc:
            return (e.sum(n + 1) + e.sum(0) + n) / (2 * n);
        case kIntraDcLeft:
            return (e.sum(0) + n / 2) / n;
        case kIntraDcTop:
            return (e.sum(n + 1) + n / 2) / n;
        case kIntraDiagonalDownLeft:
            return e.mean3(n + 2 + x + y);
        case kIntraDiagonalDownRight:
            return e.mean3(n + x - y);
        case kIntraVerticalRight:
            if (v < 0) return e.mean3(n + 1 + v);
            return v % 2 == 0 ? e.mean2(n + x - half_y) : e.mean3(n + x - half_y);
        case kIntraHorizontalDown:
            if (h < 0) return e.mean3(n - 1 - h);
            return h % 2 == 0 ? e.mean2(n - 1 - y + half_x) : e.mean3(n - y + half_x);
        case kIntraVerticalLeft:
            return y % 2 == 0 ? e.mean2(n + 1 + x + half_y) : e.mean3(n + 2 + x + half_y);
        default:  // kIntraHorizontalUp
            return x % 2 == 0 ? e.mean2(n - 2 - y - half_x) : e.mean3(n - 2 - y - half_x);
    }
}

// H.264 8.3.2.2.1.
Neighbours filter8x8(Neighbours e, bool has_corner) {
    Neighbours f = e;
    for (int i = 0; i < 25; ++i) {
        if (!has_corner) e.line[8] = e.line[i < 8 ? 7 : 9];
        f.line[i] = e.mean3(i);
    }
    return f;
}

class ReconKernelSets : public testing::TestWithParam<ReconKernels (*)()> {
 protected:
    // Runs the kernel on random samples and compares the block with the model's, and what is around
    // it with what was there.
    template <typename Kernel, typename Model>
    void check(int n, const Kernel& kernel, const Model& model) {
        for (int round = 0; round < 60; ++round) {
            Samples before;
            before.fill(&rng);
            Samples want = before;
            for (int y = 0; y < n; ++y) {
                uint8_t* const row = want.block() + y * Samples::kPitch;
                for (int x = 0; x < n; ++x) row[x] = static_cast<uint8_t>(model(&before, x, y));
            }
            Samples got = before;
            kernel(got.block(), Samples::kPitch);
            ASSERT_EQ(memcmp(got.data, want.data, sizeof got.data), 0);
        }
    }
    ReconKernels k = GetParam()();
    const ReconKernels reference = recon_kernels_scalar();
    std::mt19937 rng{5};
};

TEST_P(ReconKernelSets, Predict4x4) {
    for (int mode = 0; mode < 16; ++mode) {
        SCOPED_TRACE(mode);
        check(4, k.pred4x4[mode], [&](Samples* s, int x, int y) {
            int m = mode > kIntraVerticalLeftNoRight ? kIntraDc : mode;
            const bool has_right = m <= kIntraDcTop;
            if (m == kIntraDownLeftNoRight) m = kIntraDiagonalDownLeft;
            if (m == kIntraVerticalLeftNoRight) m = kIntraVerticalLeft;
            return predict_nxn(read_neighbours(s, 4, has_right), m, x, y);
        });
    }
}

TEST_P(ReconKernelSets, Predict8x8WithEachSetOfCorners) {
    for (unsigned i = 0; i <= kIntraDcTop * 4 + 3; ++i) {
        const int mode = static_cast<int>(i / 4);
        const bool has_corner = i & kPred8x8TopLeft, has_right = i & kPred8x8TopRight;
        const bool needs_corner = mode >= kIntraDiagonalDownRight && mode <= kIntraHorizontalDown;
        if (needs_corner && !has_corner) continue;
        SCOPED_TRACE(i);
        const auto kernel = [&](uint8_t* p, ptrdiff_t pitch) { k.pred8x8[mode](p, pitch, i % 4); };
        check(8, kernel, [&](Samples* s, int x, int y) {
            return predict_nxn(filter8x8(read_neighbours(s, 8, has_right), has_corner), mode, x, y);
        });
    }
}

TEST_P(ReconKernelSets, Predict16x16AndChromaAsTheReferenceDoes) {
    for (int round = 0; round < 800; ++round) {
        const int mode = round % 8;
        const bool is_luma = round % 16 < 8;
        Samples got;
        got.fill(&rng);
        Samples want = got;
        const auto predict = [&](const ReconKernels& set, Samples* s) {
            (is_luma ? set.pred16x16 : set.pred_chroma)[mode](s->block(), Samples::kPitch);
        };
        predict(k, &got);
        predict(reference, &want);
        ASSERT_EQ(memcmp(got.data, want.data, sizeof got.data), 0) << round;
    }
}

TEST_P(ReconKernelSets, AddAnyCoefficientsAsTheReferenceDoes) {
    const struct {
        AddBlockFn kernel, reference;
        unsigned count, step;  // of the coefficients that the kernel uses
    } kCases[] = {
        {k.add_4x4, reference.add_4x4, 16, 1},
        {k.add_8x8, reference.add_8x8, 64, 1},
        {k.add_four_4x4, reference.add_four_4x4, 64, 1},
        {k.add_4x4_dc, reference.add_4x4, 1, 1},
        {k.add_8x8_dc, reference.add_8x8, 1, 1},
        {k.add_four_4x4_dc, reference.add_four_4x4, 64, 16},
    };
    for (int round = 0; round < 6000; ++round) {
        const auto& c = kCases[round % 6];
        Samples got;
        got.fill(&rng);
        Samples want = got;
        alignas(32) int16_t blocks[2][64] = {};
        const unsigned bits = rng() % 18;
        for (unsigned i = 0; i < c.count; i += c.step) {
            const int any = static_cast<int16_t>(rng());
            const int value = bits == 17 ? any < 0 ? INT16_MIN : INT16_MAX : any >> (16 - bits);
            blocks[0][i] = blocks[1][i] = static_cast<int16_t>(value);
        }
        c.kernel(got.block(), Samples::kPitch, blocks[0]);
        c.reference(want.block(), Samples::kPitch, blocks[1]);
        ASSERT_EQ(memcmp(got.data, want.data, sizeof got.data), 0) << round;
        for (const int16_t left : blocks[0]) ASSERT_EQ(left, 0) << round;
    }
}

// Thresholds beyond those of the tables, edges on and off, and macroblocks whose first sample is
// the first of all memory, as in the corner of a picture, when no outer edge is filtered.
TEST_P(ReconKernelSets, DeblockAnyThresholdsAsTheReferenceDoes) {
    const auto thresholds = [&]() -> EdgeThresholds {
        return {static_cast<uint8_t>(rng() % 3 == 0 ? rng() % 256 : rng() % 16),
                static_cast<uint8_t>(rng() % 19), static_cast<uint8_t>(rng() % 26)};
    };
    for (int round = 0; round < 20000; ++round) {
        const bool direction = round % 2, is_luma = round % 4 < 2;
        DeblockEdges edges[2] = {{thresholds(), thresholds(), is_luma && round % 3 == 0 ? 8 : 4},
                                 {thresholds(), thresholds(), 4}};
        const bool is_corner = round % 5 == 0;
        if (is_corner) edges[0].outer = edges[1].outer = {};
        const ptrdiff_t pitch = 24, start = is_corner ? 0 : 4 * pitch + 4, size = is_luma ? 16 : 8;
        const auto length = static_cast<size_t>(start + (size - 1) * pitch + size);
        // One component follows the other; the last sample of a block is the last of its memory.
        std::vector<uint8_t> got((is_luma ? 1 : 2) * length);
        const unsigned spread = 1 + rng() % (round % 7 == 0 ? 256 : 12),
                       level = rng() % (257 - spread);
        for (uint8_t& s : got) s = static_cast<uint8_t>(level + rng() % spread);
        std::vector<uint8_t> want = got;
        const auto run = [&](const ReconKernels& set, std::vector<uint8_t>* samples) {
            uint8_t* const first = samples->data() + start;
            is_luma ? set.deblock_luma[direction](first, pitch, edges[0])
                    : set.deblock_chroma[direction](first, first + length, pitch, edges);
        };
        run(k, &got);
        run(reference, &want);
        ASSERT_TRUE(got == want) << round;
    }
}

INSTANTIATE_TEST_SUITE_P(Scalar, ReconKernelSets, testing::Values(recon_kernels_scalar));
INSTANTIATE_TEST_SUITE_P(Best, ReconKernelSets, testing::Values(recon_kernels_best));

}  // namespace
