// SPDX-License-Identifier: BSD-2-Clause
// The fastest kernels do what the scalar ones do, which the test clips hold to the standard: on
// samples and coefficients that no encoder makes, and beyond no edge of a block.
#include "avcdec/recon_kernels.h"

#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <vector>

#include "avcdec/intra_modes.h"
#include "avcdec/macroblock.h"
#include "avcdec/quantiser.h"

// Samples with a block in the middle whose neighbours are all there.
struct Samples {
    static constexpr int kPitch = 64, kRows = 24;
    alignas(32) uint8_t data[kRows * kPitch];
    uint8_t* block() { return data + 4 * kPitch + 16; }
};

const ReconKernels kBest = recon_kernels_best(), kReference = recon_kernels_scalar();

struct ReconKernelSets : testing::Test {
    // Runs both on the same random samples.
    template <typename Run>
    void compare(const Run& run) {
        Samples got;
        const unsigned spread = rng() % 3;  // extremes make plane predictions and residuals clamp
        for (uint8_t& s : got.data) {
            const auto any = static_cast<uint8_t>(rng());
            const int kinds[] = {any, any % 2 * 255, 100 + any % 9};
            s = static_cast<uint8_t>(kinds[spread]);
        }
        Samples want = got;
        run(kBest, got.block(), 0);
        run(kReference, want.block(), 1);
        ASSERT_EQ(memcmp(got.data, want.data, sizeof got.data), 0);
    }
    std::mt19937 rng{5};
};

TEST_F(ReconKernelSets, PredictAsTheReferenceDoes) {
    for (unsigned round = 0; round < 9600; ++round) {
        SCOPED_TRACE(round);
        const unsigned mode = round % 16;
        const unsigned corners = round / 16 % 4;
        compare(
            [&](const ReconKernels& k, uint8_t* p, int) { k.pred4x4[mode](p, Samples::kPitch); });
        compare([&](const ReconKernels& k, uint8_t* p, int) {
            k.pred8x8[mode](p, Samples::kPitch, corners);
        });
        compare([&](const ReconKernels& k, uint8_t* p, int) {
            (round & 16 ? k.pred16x16 : k.pred_chroma)[mode % 8](p, Samples::kPitch);
        });
    }
}

TEST_F(ReconKernelSets, AddAnyCoefficientsAsTheReferenceDoes) {
    const ReconKernels &k = kBest, &reference = kReference;
    // The second number is the step between the coefficients that the kernel uses.
    const struct {
        AddBlockFn kernels[2];
        unsigned count, step;
    } kCases[] = {
        {{k.add_4x4, reference.add_4x4}, 16, 1},
        {{k.add_8x8, reference.add_8x8}, 64, 1},
        {{k.add_four_4x4, reference.add_four_4x4}, 64, 1},
        {{k.add_4x4_dc, reference.add_4x4}, 1, 1},
        {{k.add_8x8_dc, reference.add_8x8}, 1, 1},
        {{k.add_four_4x4_dc, reference.add_four_4x4}, 64, 16},
    };
    for (int round = 0; round < 6000; ++round) {
        SCOPED_TRACE(round);
        const auto& c = kCases[round % 6];
        alignas(32) int16_t blocks[2][64] = {};
        const unsigned bits = rng() % 18;
        for (unsigned i = 0; i < c.count; i += c.step) {
            const int any = static_cast<int16_t>(rng());
            const int value = bits == 17 ? any < 0 ? INT16_MIN : INT16_MAX : any >> (16 - bits);
            blocks[0][i] = blocks[1][i] = static_cast<int16_t>(value);
        }
        compare([&](const ReconKernels&, uint8_t* p, int i) {
            c.kernels[i](p, Samples::kPitch, blocks[i]);
        });
        for (const int16_t left : blocks[0]) ASSERT_EQ(left, 0);
    }
}

// Blocks with all, some and no coefficients, each of which reads what the one before it left.
TEST_F(ReconKernelSets, PutMacroblocksTogetherAsTheReferenceDoes) {
    for (int round = 0; round < 3000; ++round) {
        SCOPED_TRACE(round);
        AvcMacroblock mb = {};
        mb.available = kHasTopRight;
        mb.coded_mask = static_cast<uint32_t>(rng() & (round % 4 == 0 ? 0 : rng())) & kLumaMask;
        mb.ac_mask = mb.coded_mask & static_cast<uint32_t>(rng());
        const unsigned bits = 1 + rng() % 16;
        for (int b = 0; b < 16; ++b) {
            const bool has_right = b % 4 != 3 && b != 13;
            mb.modes[b] = static_cast<uint8_t>(rng() % (kIntraVerticalLeftNoRight + 1));
            if (!has_right && mb.modes[b] == kIntraVerticalLeft) mb.modes[b] = kIntraDc;
            if (!has_right && mb.modes[b] == kIntraDiagonalDownLeft) mb.modes[b] = kIntraVertical;
            const int count = !(mb.coded_mask & block_bit(b)) ? 0
                              : mb.ac_mask & block_bit(b)     ? 16
                                                              : 1;
            for (int i = 0; i < count; ++i) {
                mb.coefficients[16 * b + i] =
                    static_cast<int16_t>(static_cast<int16_t>(rng()) >> (16 - bits));
            }
        }
        AvcMacroblock mbs[2] = {mb, mb};
        compare([&](const ReconKernels& k, uint8_t* p, int i) {
            k.intra_4x4(k, &mbs[i], p, Samples::kPitch);
        });
        for (const int16_t left : mbs[0].coefficients) ASSERT_EQ(left, 0);
    }
}

// Intra 16x16 and chroma, whose DC coefficients come as levels, with and without others.
TEST_F(ReconKernelSets, MakeWholeMacroblocksAsTheReferenceDoes) {
    for (int round = 0; round < 4000; ++round) {
        SCOPED_TRACE(round);
        const auto number = [&](unsigned count) { return static_cast<int>(rng() % count); };
        const unsigned shift = rng() % 16;
        const auto value = [&] {
            return static_cast<int16_t>(static_cast<int16_t>(rng()) >> shift);
        };
        const AvcDcScale scales[3] = {
            {number(9000), 32, 6}, {number(9000), 0, 5}, {number(9000), 0, 5}};
        AvcMacroblock mb = {};
        mb.dc_scales = scales;
        mb.intra16_mode = static_cast<uint8_t>(number(kIntra16DcTop + 1));
        mb.chroma_mode = static_cast<uint8_t>(number(kIntraChromaNone + 1));
        mb.ac_mask =
            static_cast<uint32_t>(round % 2 ? 0 : rng() & rng()) & (kLumaMask | kChromaMask);
        mb.coded_mask = mb.ac_mask | static_cast<uint32_t>(rng() & 7) * block_bit(kBlocks - 1);
        for (int b = 0; b < kBlocks; ++b) {
            if (!(mb.coded_mask & block_bit(b))) continue;
            const bool is_dc = b >= kDcBlock;
            for (int i = !is_dc; i < (b > kDcBlock ? 4 : 16); ++i)
                mb.coefficients[16 * b + i] = value();
        }
        AvcMacroblock mbs[2] = {mb, mb};
        compare([&](const ReconKernels& k, uint8_t* p, int i) {
            k.intra_16x16(k, &mbs[i], p, Samples::kPitch);
        });
        compare([&](const ReconKernels& k, uint8_t* p, int i) {
            uint8_t* const planes[2] = {p, p + 16};
            k.intra_chroma(k, &mbs[i], planes, Samples::kPitch);
        });
        for (const int16_t left : mbs[0].coefficients) ASSERT_EQ(left, 0);
    }
}

// Thresholds beyond those of the tables, edges on and off, macroblocks whose first sample is the
// first of all memory, as in the corner of a picture, when no outer edge is filtered, and two at
// once where there are kernels for that.
TEST_F(ReconKernelSets, DeblockAnyThresholdsAsTheReferenceDoes) {
    const auto thresholds = [&]() -> EdgeThresholds {
        return {static_cast<uint8_t>(rng() % 3 == 0 ? rng() % 256 : rng() % 16),
                static_cast<uint8_t>(rng() % 19), static_cast<uint8_t>(rng() % 26),
                static_cast<uint8_t>(2 + rng() % 64)};
    };
    for (int round = 0; round < 20000; ++round) {
        const bool is_vertical = round % 2 == 0, is_luma = round % 4 < 2;
        const bool is_corner = round % 5 == 0;
        const int count = is_corner || !kBest.deblock_two.vertical.luma ? 1 : 1 + round / 4 % 2;
        DeblockEdges edges[6];
        for (DeblockEdges& e : edges) {
            e = {thresholds(), thresholds(), is_luma && rng() % 2 == 0 ? 8 : 4};
            if (is_corner || rng() % 6 == 0) e.outer = {};
        }
        const ptrdiff_t pitch = 24, start = is_corner ? 0 : 4 * pitch + 4, size = is_luma ? 16 : 8,
                        distance = (size + 4) * pitch;
        const auto length =
            static_cast<size_t>(start + (count - 1) * distance + (size - 1) * pitch + size);
        // One component follows the other; the last sample of a block is the last of its memory.
        std::vector<uint8_t> got((is_luma ? 1 : 2) * length);
        const unsigned spread = 1 + rng() % (round % 7 == 0 ? 256 : 12),
                       level = rng() % (257 - spread);
        for (uint8_t& s : got) s = static_cast<uint8_t>(level + rng() % spread);
        std::vector<uint8_t> want = got;
        const auto run = [&](const DeblockKernels& set, uint8_t* first, const DeblockEdges* e) {
            const EdgeKernels& k = is_vertical ? set.vertical : set.horizontal;
            is_luma ? k.luma(first, pitch, distance, e)
                    : k.chroma(first, first + length, pitch, distance, e);
        };
        run(count == 1 ? kBest.deblock : kBest.deblock_two, got.data() + start, edges);
        for (int i = 0; i < count; ++i) {
            run(kReference.deblock, want.data() + start + i * distance, edges + 3 * i);
        }
        ASSERT_TRUE(got == want) << round;
    }
}
