// SPDX-License-Identifier: BSD-2-Clause
// The ends of the engine's ranges, and readers that must agree; clips show that both decode what
// was encoded.
#include "avcdec/cabac_engine.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "avcdec/quant_tables.h"
#include "avcdec/residual_cabac.h"

namespace {

using Bytes = std::vector<uint8_t>;

CabacEngine started(const Bytes& data) {
    CabacEngine engine;
    cabac_start(&engine, data.data(), data.data() + data.size());
    return engine;
}

TEST(CabacEngine, PacksRunsOfDecisionsFirstBinHighest) {
    const Bytes data = {0xfe, 0xfe, 0xc7};  // the bins below in three contexts, then the end
    CabacEngine engine = started(data);
    uint8_t c[] = {20, 41, 90};
    uint8_t* const contexts[] = {&c[0], &c[1], &c[2], &c[0], &c[1], &c[2], &c[0], &c[1]};
    EXPECT_EQ(cabac_decode_decisions(&engine, contexts, -1), 0U);
    EXPECT_EQ(cabac_decode_decisions(&engine, contexts, 8), 0b10110010U);
    EXPECT_EQ(Bytes(c, c + 3), (Bytes{8, 23, 66}));
    EXPECT_EQ(cabac_decode_terminate(&engine), 0);
}

TEST(CabacEngine, ContextsAtTheEndsOfTheirRange) {
    static const uint8_t kCases[][3] = {
        // context, first byte (an LPS or an MPS), next context
        {0, 0xfe, 1},  {1, 0xfe, 0},  // an LPS at state 0 flips the likely value
        {124, 0, 124}, {125, 0, 125}, {126, 0, 126}, {127, 0, 127}};
    for (const auto& c : kCases) {
        const Bytes data = {c[1], 0, 0};
        CabacEngine engine = started(data);
        uint8_t context = c[0];
        EXPECT_EQ(cabac_decode_decision(&engine, &context), (c[0] & 1U) ^ (c[1] != 0));
        EXPECT_EQ(context, c[2]);
    }
    static const int8_t kPairs[][2] = {{-127, 0}, {127, 127}, {0, 63}, {0, 64}, {-10, 127}};
    uint8_t contexts[5];
    cabac_init_contexts(kPairs, contexts, 90, 5);  // the QP is not clamped to 51
    EXPECT_EQ(Bytes(contexts, contexts + 5), (Bytes{124, 125, 0, 1, 13}));
}

TEST(CabacEngine, ReadsZerosBehindTheEndAndCountsThem) {
    for (size_t length = 0; length < 20; ++length) {
        const Bytes data(length, 'U');
        CabacEngine engine = started(data);
        for (int i = 0; i < 400; ++i) cabac_decode_bypass(&engine);
        EXPECT_EQ(cabac_position(&engine, data.data()), 409U) << length;
    }
}

// Any bytes are some block. Contexts are kept from block to block, so that they grow skewed.
TEST(CabacEngine, DenseAndSparseBlocksAreReadAlike) {
    static constexpr int kBlocks = 2000;
    std::mt19937 random(1);
    Bytes data(40 * kBlocks);
    for (uint8_t& byte : data) byte = static_cast<uint8_t>(random());
    const std::vector<int32_t> factors(64, 1);
    CabacEngine engines[2] = {started(data), started(data)};
    std::vector<Bytes> contexts(2, Bytes(kCabacContexts));
    for (int block = 0; block < kBlocks; ++block) {
        if (block % 50 == 0) {
            for (uint8_t& context : contexts[0]) context = static_cast<uint8_t>(random() % 124);
            contexts[1] = contexts[0];
        }
        std::vector<int16_t> levels[2];
        for (const bool is_dense : {false, true}) {
            levels[is_dense].assign(64, 0);
            const ResidualTarget target = {
                kScan8x8.data(), {factors.data(), 0, 0}, levels[is_dense].data()};
            const ResidualCount count = cabac_read_block_8x8(
                &engines[is_dense], contexts[is_dense].data(), is_dense, target);
            levels[is_dense].push_back(static_cast<int16_t>(count.total));
            levels[is_dense].push_back(static_cast<int16_t>(count.end));
        }
        ASSERT_EQ(levels[0], levels[1]) << block;
        ASSERT_EQ(contexts[0], contexts[1]) << block;
    }
    EXPECT_EQ(engines[0].padding_bits, 0U);
}

}  // namespace
