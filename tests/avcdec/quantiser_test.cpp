// SPDX-License-Identifier: BSD-2-Clause
// What no clip shows: QP beyond its range, unequal flat chroma, and the fall-back of every list.
#include "avcdec/quantiser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "avcdec/parameter_sets.h"
#include "avcdec/quant_tables.h"

namespace {

TEST(Quantiser, QpWrapsOnceAndThenSaturates) {
    static const int kCases[][3] = {
        {51, 1, 0}, {0, -1, 51}, {51, 60, 51}, {0, -60, 0}, {51, 32767, 51}};
    const auto q = std::make_unique<AvcQuantiser>();
    const AvcSps sps = {};
    const AvcPps pps = {};
    quantiser_apply_parameter_sets(q.get(), &sps, &pps);
    for (const auto& [from, delta, want] : kCases) {
        quantiser_set_qp(q.get(), from);
        quantiser_update(q.get(), delta);
        EXPECT_EQ(q->qp, want) << from << " " << delta;
    }
}

// Without the weight of 16 that they are divided by, 4x4 coefficients come out at a sixteenth.
TEST(Quantiser, FlatFactorsWithUnequalChromaOffsetsAreSixteenths) {
    const auto q = std::make_unique<AvcQuantiser>();
    const AvcSps sps = {};
    AvcPps pps = {};
    pps.second_chroma_qp_index_offset = 4;
    quantiser_apply_parameter_sets(q.get(), &sps, &pps);
    quantiser_set_qp(q.get(), 14);            // normAdjust 13 << 14 / 6,
    const int factors[] = {52, 52, 10 << 3};  // and 10 << 18 / 6 for Cr
    for (int c = 0; c < 3; ++c) {
        const AvcScale& s = q->scale4x4[c];
        EXPECT_EQ(scale_level(3, s.factors[0], s), (3 * factors[c] + 8) >> 4) << c;
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
    static const char* const kCases[][3] = {
        {"", "", "ffff"},         {"xxxx", "", "abch"},     {"----", "", "dddd"},
        {"x---", "", "aaad"},     {"-x-x", "", "dbbh"},     {"dxd-", "", "dbdd"},
        {"", "xxxx", "ABCH"},     {"", "---x", "dddH"},     {"", "-x-d", "dBBd"},
        {"xxxx", "----", "aaah"},  // Cb and Cr repeat what Y has become
        {"xxxx", "-x--", "aBBh"}, {"xx--", "d-xd", "ddCd"}, {"--x-", "----", "dddd"},
    };
    const auto q = std::make_unique<AvcQuantiser>();
    for (const auto& [sps_lists, pps_lists, want] : kCases) {
        SCOPED_TRACE(std::string(sps_lists) + " " + pps_lists);
        AvcSps sps = {};
        sps.seq_scaling_matrix_present_flag = *sps_lists != 0;
        sps.scaling = make_lists(sps_lists, 100);
        AvcPps pps = {};
        pps.transform_8x8_mode_flag = 1;
        pps.entropy_coding_mode_flag = 1;
        pps.pic_scaling_matrix_present_flag = *pps_lists != 0;
        pps.scaling = make_lists(pps_lists, 200);
        quantiser_apply_parameter_sets(q.get(), &sps, &pps);
        quantiser_set_qp(q.get(), 0);
        std::string got;
        for (int i = 0; i < 4; ++i) {
            const int32_t* const factors = (i < 3 ? q->scale4x4[i] : q->scale8x8).factors;
            const int first = factors[0] / (i < 3 ? kNormAdjust4x4[0][0] : kNormAdjust8x8[0][0]);
            got += first == 6    ? 'd'
                   : first < 100 ? 'f'
                                 : (first < 200 ? "abch" : "ABCH")[first % 100];
        }
        EXPECT_EQ(got, want);
    }
}

}  // namespace
