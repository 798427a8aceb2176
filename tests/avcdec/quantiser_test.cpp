// SPDX-License-Identifier: BSD-2-Clause
// Scaling against the formulas of H.264 8.5.9 to 8.5.13.1, and the fall-back rules of the lists.
#include "avcdec/quantiser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

#include "avcdec/parameter_sets.h"
#include "avcdec/quant_tables.h"

namespace {

struct Place {
    int x, y;
};

// Frame zig-zag scan of an n x n block, drawn instead of looked up.
Place zigzag(int n, int index) {
    for (int sum = 0;; ++sum) {
        const int first = std::max(0, sum - n + 1);
        const int length = std::min(sum, n - 1) - first + 1;
        if (index >= length) {
            index -= length;
            continue;
        }
        const int near = first + index;
        return sum % 2 == 0 ? Place{near, sum - near} : Place{sum - near, near};
    }
}

int norm_adjust(int size, int m, Place p) {
    static const int v4[6][3] = {{10, 16, 13}, {11, 18, 14}, {13, 20, 16},
                                 {14, 23, 18}, {16, 25, 20}, {18, 29, 23}};
    static const int v8[6][6] = {{20, 18, 32, 19, 25, 24}, {22, 19, 35, 21, 28, 26},
                                 {26, 23, 42, 24, 33, 31}, {28, 25, 45, 26, 35, 33},
                                 {32, 28, 51, 30, 40, 38}, {36, 32, 58, 34, 46, 43}};
    const int x = p.x % 4;
    const int y = p.y % 4;
    if (size == 4) return v4[m][x % 2 == 0 && y % 2 == 0 ? 0 : x % 2 == 1 && y % 2 == 1 ? 1 : 2];
    if (x == 0 && y == 0) return v8[m][0];
    if (x % 2 == 1 && y % 2 == 1) return v8[m][1];
    if (x == 2 && y == 2) return v8[m][2];
    if (x % 2 == 1 || y % 2 == 1) return v8[m][x == 0 || y == 0 ? 3 : 5];
    return v8[m][4];
}

int chroma_qp(int index) {
    static const int high[] = {29, 30, 31, 32, 32, 33, 34, 34, 35, 35, 36,
                               36, 37, 37, 37, 38, 38, 38, 39, 39, 39, 39};
    const int clamped = std::clamp(index, 0, 51);
    return clamped < 30 ? clamped : high[clamped - 30];
}

// level * scale * 2^(qp / 6 - shift), rounded where that is a division.
int scaled(int level, int scale, int qp, int shift) {
    const int up = qp / 6 - shift;
    const int product = level * scale;
    return up >= 0 ? product * (1 << up) : (product + (1 << (-up - 1))) >> -up;
}

int apply(const AvcScale& s, int level, int index) {
    return scale_level(level, s.factors[index], s);
}

void expect_scales_of(const AvcQuantiser& q, const AvcSps& sps, int qp, const int8_t* offsets) {
    const bool is_flat = !sps.seq_scaling_matrix_present_flag;
    const bool is_sixteenth = is_flat && offsets[0] != offsets[1];
    const int component_qp[3] = {qp, chroma_qp(qp + offsets[0]), chroma_qp(qp + offsets[1])};
    const auto weight = [&](int c, int i) { return is_flat ? 16 : sps.scaling.list4x4[c][i]; };
    for (const int level : {-3, -1, 1, 2}) {
        for (int c = 0; c < 3; ++c) {
            const int p = component_qp[c];
            for (int i = 0; i < 16; ++i) {
                const int norm = norm_adjust(4, p % 6, zigzag(4, i));
                const int want = is_sixteenth ? (level * (norm << p / 6) + 8) >> 4
                                              : scaled(level, weight(c, i) * norm, p, 4);
                ASSERT_EQ(apply(q.scale4x4[c], level, i), want) << c << " " << i;
            }
            const int dc = weight(c, 0) * norm_adjust(4, p % 6, {0, 0});
            if (c > 0) {
                ASSERT_EQ(apply(q.chroma_dc[c - 1], level, 0), ((level * dc) << p / 6) >> 5);
            } else {
                ASSERT_EQ(apply(q.luma_dc, level, 0), scaled(level, dc, p, 6));
            }
        }
        for (int i = 0; i < 64; ++i) {
            const int scale =
                (is_flat ? 16 : sps.scaling.list8x8[0][i]) * norm_adjust(8, qp % 6, zigzag(8, i));
            const int entry = q.is_interleaved ? i % 4 * 16 + i / 4 : i;
            ASSERT_EQ(apply(q.scale8x8, level, entry), scaled(level, scale, qp, 6)) << i;
        }
    }
}

TEST(Quantiser, ScalesAsTheStandardDoesAtEveryQp) {
    static const struct {
        bool has_matrix, is_cabac;
        int8_t offsets[2];
    } kCases[] = {
        {false, false, {0, 0}}, {false, true, {-12, -12}}, {true, false, {12, 12}},
        {true, true, {-5, 7}},  {false, false, {3, 4}},  // flat with unequal offsets: 1/16
    };
    std::mt19937 rng(4);
    AvcSps sps = {};
    sps.scaling.state = 0x5555;  // all explicit
    for (auto& list : sps.scaling.list4x4) {
        for (uint8_t& w : list) w = static_cast<uint8_t>(1 + rng() % 20);
    }
    for (uint8_t& w : sps.scaling.list8x8[0]) w = static_cast<uint8_t>(1 + rng() % 20);
    const auto q = std::make_unique<AvcQuantiser>();
    for (const auto& c : kCases) {
        AvcPps pps = {};
        pps.transform_8x8_mode_flag = 1;
        pps.entropy_coding_mode_flag = c.is_cabac;
        pps.chroma_qp_index_offset = c.offsets[0];
        pps.second_chroma_qp_index_offset = c.offsets[1];
        sps.seq_scaling_matrix_present_flag = c.has_matrix;
        quantiser_apply_parameter_sets(q.get(), &sps, &pps);
        for (int round = 0; round < 2; ++round) {  // the second time from what was kept
            for (int qp = 0; qp < 52; ++qp) {
                SCOPED_TRACE(testing::Message() << &c - kCases << " at QP " << qp);
                quantiser_set_qp(q.get(), qp);
                expect_scales_of(*q, sps, qp, c.offsets);
                if (HasFatalFailure()) return;
            }
        }
    }
}

TEST(Quantiser, ScansFollowTheZigzag) {
    for (int i = 0; i < 16; ++i) {
        const Place p = zigzag(4, i);
        EXPECT_EQ(kScan4x4[i], p.x * 4 + p.y) << i;
        EXPECT_EQ(kZigzag4x4[i], p.y * 4 + p.x) << i;
    }
    for (int i = 0; i < 64; ++i) {
        const Place p = zigzag(8, i);
        EXPECT_EQ(kScan8x8[i], p.x * 8 + p.y) << i;
        EXPECT_EQ(kScan8x8Interleaved[i % 4 * 16 + i / 4], p.x * 8 + p.y) << i;
    }
}

TEST(Quantiser, QpWrapsOnceAndThenSaturates) {
    static const struct {
        int from, delta, want;
    } kCases[] = {{51, 1, 0},   {0, -1, 51},     {30, 25, 3},   {10, -26, 36},
                  {51, 52, 51}, {51, 60, 51},    {0, -60, 0},   {0, -52, 0},
                  {20, 0, 20},  {51, 32767, 51}, {0, -32767, 0}};
    const auto q = std::make_unique<AvcQuantiser>();
    const AvcSps sps = {};
    const AvcPps pps = {};
    quantiser_apply_parameter_sets(q.get(), &sps, &pps);
    for (const auto& c : kCases) {
        quantiser_set_qp(q.get(), c.from);
        quantiser_update(q.get(), c.delta);
        EXPECT_EQ(q->qp, c.want) << c.from << " " << c.delta;
    }
}

// One letter per list: '-' not sent, 'x' explicit, 'd' default; no letters: no matrices.
ScalingLists make_lists(const std::string& states, uint8_t first_weight) {
    static const int index[] = {0, 1, 2, 6};
    ScalingLists lists = {};
    for (size_t i = 0; i < states.size(); ++i) {
        const int state = states[i] == 'x' ? kListExplicit : states[i] == 'd' ? kListDefault : 0;
        lists.state = static_cast<uint16_t>(lists.state | state << 2 * index[i]);
        uint8_t* const list = i < 3 ? lists.list4x4[i] : lists.list8x8[0];
        std::fill(list, list + (i < 3 ? 16 : 64), static_cast<uint8_t>(first_weight + i));
    }
    return lists;
}

TEST(Quantiser, ListsFallBackByRuleAAndB) {
    // Wanted for intra Y, Cb, Cr and 8x8: a, b, c, h are the lists of the sequence set, the
    // capitals those of the picture set, d the defaults, f flat.
    static const struct {
        const char *sps, *pps, *want;
    } kCases[] = {
        {"", "", "ffff"},         {"xxxx", "", "abch"},     {"----", "", "dddd"},
        {"x---", "", "aaad"},     {"-x-x", "", "dbbh"},     {"dxd-", "", "dbdd"},
        {"", "xxxx", "ABCH"},     {"", "---x", "dddH"},     {"", "-x-d", "dBBd"},
        {"xxxx", "----", "aaah"},  // Cb and Cr repeat what Y has become
        {"xxxx", "-x--", "aBBh"}, {"xx--", "d-xd", "ddCd"}, {"--x-", "----", "dddd"},
    };
    const auto q = std::make_unique<AvcQuantiser>();
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.sps) + " " + c.pps);
        AvcSps sps = {};
        sps.seq_scaling_matrix_present_flag = *c.sps != 0;
        sps.scaling = make_lists(c.sps, 100);
        AvcPps pps = {};
        pps.transform_8x8_mode_flag = 1;
        pps.entropy_coding_mode_flag = 1;
        pps.pic_scaling_matrix_present_flag = *c.pps != 0;
        pps.scaling = make_lists(c.pps, 200);
        quantiser_apply_parameter_sets(q.get(), &sps, &pps);
        quantiser_set_qp(q.get(), 0);
        std::string got;
        for (int i = 0; i < 4; ++i) {
            const int32_t* const factors = (i < 3 ? q->scale4x4[i] : q->scale8x8).factors;
            const int last = i < 3 ? 15 : 63;
            const int size = i < 3 ? 4 : 8;
            const int first_weight = factors[0] / norm_adjust(size, 0, {0, 0});
            const int last_weight = factors[last] / norm_adjust(size, 0, {size - 1, size - 1});
            if (first_weight == last_weight) {
                got += first_weight >= 200   ? "ABCH"[first_weight - 200]
                       : first_weight >= 100 ? "abch"[first_weight - 100]
                                             : 'f';
            } else if (first_weight == 6 && last_weight == 42) {
                got += 'd';
            }
        }
        EXPECT_EQ(got, c.want);
    }
}

}  // namespace
