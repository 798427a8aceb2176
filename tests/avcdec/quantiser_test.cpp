// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/quantiser.h"

#include <gtest/gtest.h>

#include <memory>

#include "avcdec/parameter_sets.h"

// Without the weight of 16 that they are divided by, 4x4 coefficients come out at a sixteenth.
TEST(Quantiser, FlatFactorsWithUnequalChromaOffsetsAreSixteenths) {
    const auto q = std::make_unique<AvcQuantiser>();
    const AvcSps sps = {};
    AvcPps pps = {};
    pps.second_chroma_qp_index_offset = 4;
    quantiser_apply_parameter_sets(q.get(), &sps, &pps, false);
    quantiser_set_qp(q.get(), 14);            // normAdjust 13 << 14 / 6,
    const int factors[] = {52, 52, 10 << 3};  // and 10 << 18 / 6 for Cr
    for (int c = 0; c < 3; ++c) {
        int16_t coefficient = 0;
        put_level(3, q->scales[c][0], &coefficient);
        EXPECT_EQ(coefficient, (3 * factors[c] + 8) >> 4) << c;
    }
}
