// SPDX-License-Identifier: BSD-2-Clause
// The ends of the engine's ranges, and readers that must agree; clips show that both decode what
// was encoded.
#include "avcdec/cabac_engine.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using Contexts = std::vector<CabacContext>;

// An engine on data that outlives it.
struct Started : CabacEngine {
    explicit Started(const Bytes& data) : all{data.data(), data.data() + data.size(), 0} {
        cabac_start(this, &all);
    }
    CabacBytes all;
};

// Callers choose by whether they branch on the bin.
TEST(CabacEngine, BothKindsOfDecisionAgree) {
    std::mt19937 random(1);
    Bytes data(5000);
    for (uint8_t& byte : data) byte = static_cast<uint8_t>(random());
    Started a(data);
    Started b(data);
    Contexts contexts[2];
    for (int i = 0; i < 100; ++i) contexts[0].push_back(kCabacContextOf[random() % 126]);
    contexts[1] = contexts[0];
    for (int i = 0; i < 20000; ++i) {
        const size_t c = random() % contexts[0].size();
        ASSERT_EQ(cabac_decode_decision(&a, &contexts[0][c]),
                  cabac_decode_branch(&b, &contexts[1][c]))
            << i;
        ASSERT_EQ(a.value, b.value) << i;
        ASSERT_EQ(a.range, b.range) << i;
    }
    EXPECT_EQ(contexts[0], contexts[1]);
    EXPECT_EQ(a.bytes->padding_bits, 0U);
}

TEST(CabacEngine, ContextsAtTheEndsOfTheirRange) {
    static const uint8_t kCases[][3] = {
        // context, first byte (an LPS or an MPS), next context
        {0, 0xfe, 1},  {1, 0xfe, 0},  // an LPS at state 0 flips the likely value
        {124, 0, 124}, {125, 0, 125}, {126, 0, 126}, {127, 0, 127}};
    for (const auto& c : kCases) {
        const Bytes data = {c[1], 0, 0};
        Started engine(data);
        CabacContext context = kCabacContextOf[c[0]];
        EXPECT_EQ(cabac_decode_decision(&engine, &context), (c[0] & 1U) ^ (c[1] != 0));
        EXPECT_EQ(context, kCabacContextOf[c[2]]);
    }
    static const int8_t kPairs[][2] = {{-127, 0}, {127, 127}, {0, 63}, {0, 64}, {-10, 127}};
    Contexts contexts(5);
    cabac_init_contexts(kPairs, contexts.data(), 90, 5);  // the QP is not clamped to 51
    const auto& of = kCabacContextOf;
    EXPECT_EQ(contexts, (Contexts{of[124], of[125], of[0], of[1], of[13]}));
}

TEST(CabacEngine, ForbiddenBeginningIsAnLpsAndATerminatingBin) {
    const Bytes ones(8, 0xff);  // codIOffset 511, as in a slice that was overwritten
    for (size_t i = 0; i < 126; ++i) {
        Started engine(ones);
        CabacContext context = kCabacContextOf[i];
        EXPECT_NE(cabac_decode_branch(&engine, &context), i & 1) << i;
        EXPECT_EQ(cabac_decode_terminate(&engine), 0) << i;
    }
}

TEST(CabacEngine, ReadsZerosBehindTheEndAndCountsThem) {
    for (size_t length = 0; length < 20; ++length) {
        const Bytes data(length, 'U');
        Started engine(data);
        for (int i = 0; i < 400; ++i) cabac_decode_bypass(&engine);
        EXPECT_EQ(cabac_position(&engine, data.data()), 409U) << length;
    }
}

}  // namespace
