// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/cabac_engine.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "tests/support/cabac_packer.h"

namespace {

// Starts the engine on a block of exactly the packed bytes.
struct Decoding {
    explicit Decoding(const std::string& data) : block(data.begin(), data.end()) {
        cabac_start(&engine, block.data(), block.data() + block.size());
    }
    std::vector<uint8_t> block;
    CabacEngine engine;
};

TEST(CabacEngine, DecodesWhatWasEncoded) {
    std::mt19937 rng(3);
    for (const unsigned odds : {2U, 5U, 60U}) {  // one bin in so many is unlikely
        SCOPED_TRACE(odds);
        struct Bin {
            int kind, context, value;
        };
        std::vector<Bin> bins;
        for (int i = 0; i < 20000; ++i) {
            const int kind = static_cast<int>(rng() % 8);  // 0 bypass, 1 terminate, else decision
            const int value = kind == 1 ? 0 : rng() % odds == 0;
            bins.push_back({kind, static_cast<int>(rng() % 40), value});
        }
        uint8_t encoding[40];
        for (int i = 0; i < 40; ++i) encoding[i] = cabac_initial_context(2 * i - 40, 3 * i, 28);
        uint8_t decoding[40];
        std::copy(encoding, encoding + 40, decoding);

        BitPacker out;
        CabacPacker packer(&out);
        for (const Bin& bin : bins) {
            if (bin.kind == 0) packer.bypass(bin.value);
            if (bin.kind == 1) packer.terminate(bin.value);
            if (bin.kind > 1) packer.decision(&encoding[bin.context], bin.value);
        }
        packer.terminate(1);
        const size_t used = out.size();

        Decoding f(out.align().str());
        for (const Bin& bin : bins) {
            int got;
            if (bin.kind == 0) {
                got = static_cast<int>(cabac_decode_bypass(&f.engine));
            } else if (bin.kind == 1) {
                got = 1 - cabac_decode_terminate(&f.engine);
            } else {
                got = static_cast<int>(cabac_decode_decision(&f.engine, &decoding[bin.context]));
            }
            ASSERT_EQ(got, bin.value);
        }
        EXPECT_EQ(cabac_decode_terminate(&f.engine), 0);
        // H.264 9.3.1.2: the engine has read up to the last bit that the flush wrote.
        EXPECT_EQ(cabac_position(&f.engine, f.block.data()), used);
        EXPECT_TRUE(std::equal(encoding, encoding + 40, decoding));
    }
}

TEST(CabacEngine, PacksRunsOfDecisionsFirstBinHighest) {
    uint8_t encoding[3] = {20, 41, 90};
    uint8_t decoding[3] = {20, 41, 90};
    BitPacker out;
    CabacPacker packer(&out);
    const int bins[] = {1, 0, 1, 1, 0, 0, 1, 0};
    for (int i = 0; i < 8; ++i) packer.decision(&encoding[i % 3], bins[i]);
    packer.terminate(1);
    Decoding f(out.align().str());
    uint8_t* contexts[8];
    for (int i = 0; i < 8; ++i) contexts[i] = &decoding[i % 3];
    EXPECT_EQ(cabac_decode_decisions(&f.engine, contexts, 0), 0U);
    EXPECT_EQ(cabac_decode_decisions(&f.engine, contexts, -1), 0U);
    EXPECT_EQ(cabac_decode_decisions(&f.engine, contexts, 8), 0b10110010U);
    EXPECT_TRUE(std::equal(encoding, encoding + 3, decoding));
}

TEST(CabacEngine, ContextsAtTheEndsOfTheirRange) {
    static const struct {
        uint8_t context;
        int bin;
        uint8_t want;
    } kCases[] = {
        {0, 1, 1},     {1, 0, 0},      // an LPS at state 0 flips the likely value
        {124, 0, 124}, {125, 1, 125},  // state 62 is the last one that an MPS reaches
        {126, 0, 126}, {127, 1, 127},  // state 63 stays
        {2, 1, 0},     {122, 0, 124},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(int{c.context});
        uint8_t encoding = c.context;
        uint8_t decoding = c.context;
        BitPacker out;
        CabacPacker packer(&out);
        packer.decision(&encoding, c.bin);
        packer.terminate(1);
        Decoding f(out.align().str());
        EXPECT_EQ(cabac_decode_decision(&f.engine, &decoding), static_cast<uint32_t>(c.bin));
        EXPECT_EQ(decoding, c.want);
    }
}

TEST(CabacEngine, InitialisesContextsForAnySliceQp) {
    static const int8_t kPairs[][2] = {{20, -15},  {2, 54}, {-28, 127}, {-127, 0},
                                       {127, 127}, {0, 63}, {0, 64}};
    constexpr int kCount = sizeof kPairs / sizeof kPairs[0];
    for (const int32_t qp : {-40, 0, 1, 26, 51, 90}) {
        SCOPED_TRACE(qp);
        uint8_t contexts[kCount];
        cabac_init_contexts(kPairs, contexts, qp, kCount);
        for (int i = 0; i < kCount; ++i) {
            EXPECT_EQ(contexts[i], cabac_initial_context(kPairs[i][0], kPairs[i][1], qp)) << i;
        }
    }
    uint8_t ends[2];
    cabac_init_contexts(&kPairs[3], ends, 51, 2);
    EXPECT_EQ(ends[0], 124);
    EXPECT_EQ(ends[1], 125);
}

TEST(CabacEngine, ReadsZerosBehindTheEndAndCountsThem) {
    for (size_t length = 0; length < 20; ++length) {
        SCOPED_TRACE(length);
        Decoding f(std::string(length, 'U'));
        for (int i = 0; i < 400; ++i) cabac_decode_bypass(&f.engine);
        EXPECT_EQ(cabac_position(&f.engine, f.block.data()), 409U);
    }
}

}  // namespace
