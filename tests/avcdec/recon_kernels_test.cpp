// SPDX-License-Identifier: BSD-2-Clause
// Prediction and residual kernels, scalar and fastest, against the formulas of H.264 8.3 and 8.5.
#include "avcdec/recon_kernels.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <vector>

#include "avcdec/intra_modes.h"
#include "avcdec/transform.h"

namespace {

// Samples with a block in the middle whose neighbours are all there.
struct Samples {
    static constexpr int kPitch = 64;
    static constexpr int kRows = 24;
    alignas(32) uint8_t data[kRows * kPitch];

    uint8_t* block() { return data + 4 * kPitch + 16; }
    int at(int x, int y) { return block()[y * kPitch + x]; }
    void fill(std::mt19937* rng) {
        // Extremes make plane predictions and residuals clamp.
        const unsigned spread = (*rng)() % 3;
        for (uint8_t& s : data) {
            s = static_cast<uint8_t>(spread == 0   ? (*rng)()
                                     : spread == 1 ? (*rng)() % 2 * 255
                                                   : 100 + (*rng)() % 9);
        }
    }
};

// The neighbours of an n x n block by the standard's coordinates: p(x, -1), p(-1, y), p(-1, -1).
struct Neighbours {
    int line[8 + 1 + 16];  // from the lowest left sample over the corner to the last above
    int n;
    int p(int x, int y) const { return y < 0 ? line[n + 1 + x] : line[n - 1 - y]; }
    int mean2(int ax, int ay, int bx, int by) const { return (p(ax, ay) + p(bx, by) + 1) >> 1; }
    int mean3(int ax, int ay, int bx, int by, int cx, int cy) const {
        return (p(ax, ay) + 2 * p(bx, by) + p(cx, cy) + 2) >> 2;
    }
    int top2(int x) const { return mean2(x, -1, x + 1, -1); }
    int top3(int x) const { return mean3(x, -1, x + 1, -1, x + 2, -1); }
    int left2(int y) const { return (left(y) + left(y + 1) + 1) >> 1; }
    int left3(int y) const { return (left(y) + 2 * left(y + 1) + left(y + 2) + 2) >> 2; }
    int left(int y) const { return p(-1, y); }
};

Neighbours read_neighbours(Samples* s, int n) {
    Neighbours e;
    e.n = n;
    for (int y = 0; y < n; ++y) e.line[n - 1 - y] = s->at(-1, y);
    for (int x = -1; x < 2 * n; ++x) e.line[n + 1 + x] = s->at(x, -1);
    return e;
}

// H.264 8.3.1.2 and 8.3.2.2, one sample of modes 0 to 10.
int predict_nxn(const Neighbours& e, int mode, int x, int y) {
    const int n = e.n;
    int top = 0;
    int left = 0;
    for (int i = 0; i < n; ++i) {
        top += e.p(i, -1);
        left += e.left(i);
    }
    const int v = 2 * x - y;
    const int h = 2 * y - x;
    switch (mode) {
        case kIntraVertical:
            return e.p(x, -1);
        case kIntraHorizontal:
            return e.left(y);
        case kIntraDc:
            return (top + left + n) / (2 * n);
        case kIntraDcLeft:
            return (left + n / 2) / n;
        case kIntraDcTop:
            return (top + n / 2) / n;
        case kIntraDiagonalDownLeft:
            if (x == n - 1 && y == n - 1)
                return (e.p(2 * n - 2, -1) + 3 * e.p(2 * n - 1, -1) + 2) >> 2;
            return e.top3(x + y);
        case kIntraDiagonalDownRight:
            if (x > y) return e.top3(x - y - 2);
            if (x < y) return e.left3(y - x - 2);
            return e.mean3(0, -1, -1, -1, -1, 0);
        case kIntraVerticalRight:
            if (v < -1) return e.left3(y - 2 * x - 3);
            if (v == -1) return e.mean3(-1, 0, -1, -1, 0, -1);
            return v % 2 == 0 ? e.top2(x - (y >> 1) - 1) : e.top3(x - (y >> 1) - 2);
        case kIntraHorizontalDown:
            if (h < -1) return e.top3(x - 2 * y - 3);
            if (h == -1) return e.mean3(-1, 0, -1, -1, 0, -1);
            return h % 2 == 0 ? e.left2(y - (x >> 1) - 1) : e.left3(y - (x >> 1) - 2);
        case kIntraVerticalLeft:
            return y % 2 == 0 ? e.top2(x + (y >> 1)) : e.top3(x + (y >> 1));
        default:  // kIntraHorizontalUp
            if (x + 2 * y > 2 * n - 3) return e.left(n - 1);
            if (x + 2 * y == 2 * n - 3) return (e.left(n - 2) + 3 * e.left(n - 1) + 2) >> 2;
            return x % 2 == 0 ? e.left2(y + (x >> 1)) : e.left3(y + (x >> 1));
    }
}

// H.264 8.3.2.2.1.
Neighbours filter8x8(Neighbours e, unsigned available) {
    const bool has_corner = available & kPred8x8TopLeft;
    if (!(available & kPred8x8TopRight)) std::fill(e.line + 17, e.line + 25, e.p(7, -1));
    Neighbours f = e;
    for (int i = 1; i < 24; ++i) {
        f.line[i] = (e.line[i - 1] + 2 * e.line[i] + e.line[i + 1] + 2) >> 2;
    }
    f.line[0] = (3 * e.line[0] + e.line[1] + 2) >> 2;
    f.line[24] = (e.line[23] + 3 * e.line[24] + 2) >> 2;
    if (!has_corner) {
        f.line[7] = (3 * e.line[7] + e.line[6] + 2) >> 2;
        f.line[9] = (3 * e.line[9] + e.line[10] + 2) >> 2;
    }
    return f;
}

int plane(Samples* s, int n, int x, int y) {
    const int half = n / 2;
    int h = 0;
    int v = 0;
    for (int i = 1; i <= half; ++i) {
        h += i * (s->at(half - 1 + i, -1) - s->at(half - 1 - i, -1));
        v += i * (s->at(-1, half - 1 + i) - s->at(-1, half - 1 - i));
    }
    const int factor = n == 16 ? 5 : 34;
    const int b = (factor * h + 32) >> 6;
    const int c = (factor * v + 32) >> 6;
    const int a = 16 * (s->at(-1, n - 1) + s->at(n - 1, -1));
    return std::clamp((a + b * (x - half + 1) + c * (y - half + 1) + 16) >> 5, 0, 255);
}

// Mean of 4 or n samples above and before a block at (x, y).
int mean(Samples* s, int x, int y, int n, bool top, bool left) {
    int sum = 0;
    for (int i = 0; i < n; ++i) sum += (top ? s->at(x + i, -1) : 0) + (left ? s->at(-1, y + i) : 0);
    const int count = n * (top + left);
    return (sum + count / 2) / count;
}

int predict_16x16(Samples* s, int mode, int x, int y) {
    switch (mode) {
        case kIntra16Vertical:
            return s->at(x, -1);
        case kIntra16Horizontal:
            return s->at(-1, y);
        case kIntra16Plane:
            return plane(s, 16, x, y);
        default:
            return mean(s, 0, 0, 16, mode != kIntra16DcLeft, mode != kIntra16DcTop);
    }
}

int predict_chroma(Samples* s, int mode, int x, int y) {
    const int left = x & 4;
    const int top = y & 4;
    switch (mode) {
        case kIntraChromaHorizontal:
            return s->at(-1, y);
        case kIntraChromaVertical:
            return s->at(x, -1);
        case kIntraChromaPlane:
            return plane(s, 8, x, y);
        case kIntraChromaDcLeft:
            return mean(s, left, top, 4, false, true);
        case kIntraChromaDcTop:
            return mean(s, left, top, 4, true, false);
        case kIntraChromaNone:
            return s->at(x, y);
        default:  // the quarters off the diagonal take the nearer side
            return mean(s, left, top, 4, left == top || left, left == top || top);
    }
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
                for (int x = 0; x < n; ++x) {
                    want.block()[y * Samples::kPitch + x] =
                        static_cast<uint8_t>(model(&before, x, y));
                }
            }
            Samples got = before;
            kernel(got.block(), Samples::kPitch);
            ASSERT_EQ(memcmp(got.data, want.data, sizeof got.data), 0);
        }
    }
    ReconKernels k = GetParam()();
    std::mt19937 rng{5};
};

TEST_P(ReconKernelSets, Predict4x4) {
    for (int mode = 0; mode < 16; ++mode) {
        SCOPED_TRACE(mode);
        check(4, k.pred4x4[mode], [&](Samples* s, int x, int y) {
            Neighbours e = read_neighbours(s, 4);
            int m = mode > kIntraVerticalLeftNoRight ? kIntraDc : mode;
            if (m > kIntraDcTop) {
                std::fill(e.line + 9, e.line + 13, e.p(3, -1));
                m = m == kIntraDownLeftNoRight ? kIntraDiagonalDownLeft : kIntraVerticalLeft;
            }
            return predict_nxn(e, m, x, y);
        });
    }
}

TEST_P(ReconKernelSets, Predict8x8WithEachSetOfCorners) {
    for (int mode = 0; mode <= kIntraDcTop; ++mode) {
        for (unsigned available = 0; available < 4; ++available) {
            const bool needs_corner =
                mode >= kIntraDiagonalDownRight && mode <= kIntraHorizontalDown;
            if (needs_corner && !(available & kPred8x8TopLeft)) continue;
            SCOPED_TRACE(testing::Message() << mode << " with " << available);
            const auto kernel = [&](uint8_t* dst, ptrdiff_t pitch) {
                k.pred8x8[mode](dst, pitch, available);
            };
            check(8, kernel, [&](Samples* s, int x, int y) {
                return predict_nxn(filter8x8(read_neighbours(s, 8), available), mode, x, y);
            });
        }
    }
}

TEST_P(ReconKernelSets, Predict16x16AndChroma) {
    for (int mode = 0; mode < 8; ++mode) {
        SCOPED_TRACE(mode);
        check(16, k.pred16x16[mode], [&](Samples* s, int x, int y) {
            return predict_16x16(s, mode > kIntra16DcTop ? kIntra16Dc : mode, x, y);
        });
        check(8, k.pred_chroma[mode],
              [&](Samples* s, int x, int y) { return predict_chroma(s, mode, x, y); });
    }
}

// Rows of the transforms by frequency, times 2 and times 8.
const int kBasis4[4][4] = {{2, 2, 2, 2}, {2, 1, -1, -2}, {2, -2, -2, 2}, {1, -2, 2, -1}};
const int kBasis8[8][8] = {{8, 8, 8, 8, 8, 8, 8, 8},     {12, 10, 6, 3, -3, -6, -10, -12},
                           {8, 4, -4, -8, -8, -4, 4, 8}, {10, -3, -12, -6, 6, 12, 3, -10},
                           {8, -8, -8, 8, 8, -8, -8, 8}, {6, -12, 3, 10, -10, -3, 12, -6},
                           {4, -8, 8, -4, -4, 8, -8, 4}, {3, -6, 10, -12, 12, -10, 6, -3}};

int basis(int n, int frequency, int place) {
    return n == 4 ? kBasis4[frequency][place] : kBasis8[frequency][place];
}

TEST_P(ReconKernelSets, AddTheInverseTransform) {
    // Coefficients that each halving divides without a rest make the transform a matrix product.
    for (const int n : {4, 8}) {
        const int step = n == 4 ? 4 : 64;
        const int unit = n == 4 ? 2 : 8;
        for (int round = 0; round < 400; ++round) {
            const bool is_dc = round % 4 == 0;
            alignas(32) int16_t coefficients[64] = {};
            for (int i = is_dc ? 1 : 5; i > 0; --i) {
                const int range = n == 4 ? 1000 : 40;
                const int value = static_cast<int>(rng() % (2 * range + 1)) - range;
                coefficients[is_dc ? 0 : rng() % (n * n)] = static_cast<int16_t>(value * step);
            }
            int64_t residual[8][8] = {};
            for (int i = 0; i < n * n; ++i) {
                for (int y = 0; y < n; ++y) {
                    for (int x = 0; x < n; ++x) {
                        residual[y][x] +=
                            int64_t{coefficients[i]} * basis(n, i / n, x) * basis(n, i % n, y);
                    }
                }
            }
            Samples got;
            got.fill(&rng);
            Samples want = got;
            for (int y = 0; y < n; ++y) {
                for (int x = 0; x < n; ++x) {
                    const int r = static_cast<int>((residual[y][x] / (unit * unit) + 32) >> 6);
                    want.block()[y * Samples::kPitch + x] =
                        static_cast<uint8_t>(std::clamp(want.at(x, y) + r, 0, 255));
                }
            }
            const AddBlockFn add = n == 4 ? k.add_4x4 : k.add_8x8;
            const AddBlockFn add_dc = n == 4 ? k.add_4x4_dc : k.add_8x8_dc;
            (is_dc && round % 8 == 0 ? add_dc : add)(got.block(), Samples::kPitch, coefficients);
            ASSERT_EQ(memcmp(got.data, want.data, sizeof got.data), 0) << n << " " << round;
            for (const int16_t c : coefficients) ASSERT_EQ(c, 0);
        }
    }
}

TEST_P(ReconKernelSets, AddAnyCoefficientsAsTheReferenceDoes) {
    const ReconKernels reference = recon_kernels_scalar();
    const struct {
        AddBlockFn kernel, reference;
        unsigned count, step;  // of the coefficients that the kernel uses
    } kCases[] = {
        {k.add_4x4, reference.add_4x4, 16, 1},
        {k.add_8x8, reference.add_8x8, 64, 1},
        {k.add_four_4x4, reference.add_four_4x4, 64, 1},
        {k.add_4x4_dc, reference.add_4x4_dc, 1, 1},
        {k.add_8x8_dc, reference.add_8x8_dc, 1, 1},
        {k.add_four_4x4_dc, reference.add_four_4x4_dc, 64, 16},
        {k.add_4x4_dc, reference.add_4x4, 1, 1},
        {k.add_8x8_dc, reference.add_8x8, 1, 1},
        {k.add_four_4x4_dc, reference.add_four_4x4, 64, 16},
    };
    for (int round = 0; round < 9000; ++round) {
        const auto& c = kCases[round % 9];
        Samples got;
        got.fill(&rng);
        Samples want = got;
        alignas(32) int16_t blocks[2][64] = {};
        const unsigned bits = rng() % 18;
        for (unsigned i = 0; i < c.count; i += c.step) {
            const int extreme = rng() % 2 == 0 ? INT16_MIN : INT16_MAX;
            const int any = static_cast<int16_t>(rng());
            blocks[0][i] = blocks[1][i] =
                static_cast<int16_t>(bits == 17 ? extreme : any >> (16 - bits));
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
    const ReconKernels reference = recon_kernels_scalar();
    int changed = 0;
    const auto thresholds = [&]() -> EdgeThresholds {
        return {static_cast<uint8_t>(rng() % 3 == 0 ? rng() % 256 : rng() % 16),
                static_cast<uint8_t>(rng() % 19), static_cast<uint8_t>(rng() % 26)};
    };
    for (int round = 0; round < 20000; ++round) {
        const int direction = round % 2;
        DeblockEdges edges[2] = {{thresholds(), thresholds(), round % 3 == 0 ? 8 : 4},
                                 {thresholds(), thresholds(), 4}};
        const bool is_corner = round % 5 == 0;
        if (is_corner) edges[0].outer = edges[1].outer = {};
        const bool is_luma = round % 4 < 2;
        const ptrdiff_t pitch = 24;
        const ptrdiff_t start = is_corner ? 0 : 4 * pitch + 4;
        const ptrdiff_t size = is_luma ? 16 : 8;
        const auto length = static_cast<size_t>(start + (size - 1) * pitch + size);
        // One component follows the other; the last sample of a block is the last of its memory.
        std::vector<uint8_t> got((is_luma ? 1 : 2) * length);
        const unsigned level = rng() % 256;
        const unsigned spread = 1 + rng() % (round % 7 == 0 ? 256 : 12);
        for (uint8_t& s : got)
            s = static_cast<uint8_t>(std::min<unsigned long>(255, level + rng() % spread));
        const std::vector<uint8_t> before = got;
        std::vector<uint8_t> want = got;
        const auto run = [&](const ReconKernels& set, std::vector<uint8_t>* samples) {
            uint8_t* const first = samples->data() + start;
            if (is_luma) {
                set.deblock_luma[direction](first, pitch, edges[0]);
            } else {
                edges[0].inner_step = 4;
                set.deblock_chroma[direction](first, first + length, pitch, edges);
            }
        };
        run(k, &got);
        run(reference, &want);
        ASSERT_TRUE(got == want) << round;
        changed += want != before;
    }
    EXPECT_GT(changed, 10000);
}

INSTANTIATE_TEST_SUITE_P(Scalar, ReconKernelSets, testing::Values(recon_kernels_scalar));
INSTANTIATE_TEST_SUITE_P(Best, ReconKernelSets, testing::Values(recon_kernels_best));

TEST(DcTransforms, AreTheHadamardProducts) {
    static const int h[4][4] = {{1, 1, 1, 1}, {1, 1, -1, -1}, {1, -1, -1, 1}, {1, -1, 1, -1}};
    std::mt19937 rng(6);
    for (int round = 0; round < 50; ++round) {
        int16_t levels[16];
        for (int16_t& level : levels) level = static_cast<int16_t>(rng() % 4001 - 2000);
        int32_t luma[16];
        int32_t chroma[4];
        transform_luma_dc(levels, luma);
        transform_chroma_dc(levels, chroma);
        for (int i = 0; i < 16; ++i) {
            int want = 0;
            for (int j = 0; j < 16; ++j) want += h[i / 4][j / 4] * h[j % 4][i % 4] * levels[j];
            EXPECT_EQ(luma[i], want);
        }
        for (int i = 0; i < 4; ++i) {
            int want = 0;
            for (int j = 0; j < 4; ++j) {
                const bool is_negative = ((i & j & 1) != 0) != ((i & j & 2) != 0);
                want += is_negative ? -levels[j] : levels[j];
            }
            EXPECT_EQ(chroma[i], want);
        }
    }
}

}  // namespace
