// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/cabac_engine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

// Decodes bit by bit, as H.264 9.3.3.2 has it.
struct Reference {
    explicit Reference(std::vector<uint8_t>* block) {
        bits_init(&bits, block->data(), static_cast<uint32_t>(block->size()));
        offset = bits_read(&bits, 9);
    }
    void normalise() {
        for (; range < 256; range <<= 1) offset = offset << 1 | bits_read_1(&bits);
    }
    uint32_t decision(uint8_t* context) {
        const uint32_t lps_range = kCabacLps[*context] >> (range >> 6 & 3) * 16 & 0xff;
        range -= lps_range;
        const bool is_lps = offset >= range;
        const uint32_t bin = (*context & 1) ^ is_lps;
        if (is_lps) {
            offset -= range;
            range = lps_range;
        }
        *context = static_cast<uint8_t>(kCabacNext[*context] >> (is_lps ? 0 : 8));
        normalise();
        return bin;
    }
    uint32_t bypass() {
        offset = offset << 1 | bits_read_1(&bits);
        if (offset < range) return 0;
        offset -= range;
        return 1;
    }
    int terminate() {
        range -= 2;
        if (offset >= range) return 0;
        normalise();
        return 1;
    }
    AvcBitReader bits;
    uint32_t range = 510, offset;
};

TEST(CabacEngine, DecodesAsTheStandardDoesPastTheEndToo) {
    std::mt19937 rng(3);
    for (int round = 0; round < 2000; ++round) {
        std::vector<uint8_t> data(2 + rng() % 40);
        for (uint8_t& b : data) b = static_cast<uint8_t>(rng());
        data[0] &= 0x7f;  // codIOffset is never above 509
        CabacEngine engine;
        cabac_start(&engine, data.data(), data.data() + data.size());
        Reference want(&data);
        uint8_t contexts[40], copies[40];
        for (uint8_t& c : contexts) c = static_cast<uint8_t>(rng() % 126);
        std::copy(contexts, contexts + 40, copies);
        for (int i = 0, goes_on = 1; i < 500 && goes_on; ++i) {
            const uint32_t kind = rng() % 8, c = rng() % 40;
            if (kind == 0) {
                ASSERT_EQ(cabac_decode_bypass(&engine), want.bypass());
            } else if (kind == 1) {
                goes_on = cabac_decode_terminate(&engine);
                ASSERT_EQ(goes_on, want.terminate());
            } else if (kind == 2) {
                uint8_t* const list[] = {&contexts[c], &contexts[39], &contexts[c]};
                uint32_t bins = 0;
                for (uint8_t* const p : list)
                    bins = bins << 1 | want.decision(p - contexts + copies);
                ASSERT_EQ(cabac_decode_decisions(&engine, list, -1), 0U);
                ASSERT_EQ(cabac_decode_decisions(&engine, list, 3), bins);
            } else {
                ASSERT_EQ(cabac_decode_decision(&engine, &contexts[c]), want.decision(&copies[c]));
            }
            // Where I_PCM samples would follow.
            ASSERT_EQ(cabac_position(&engine, data.data()), bits_position(&want.bits));
        }
        ASSERT_TRUE(std::equal(contexts, contexts + 40, copies));
    }
}

TEST(CabacEngine, ContextsAtTheEndsOfTheirRange) {
    static const uint8_t kCases[][3] = {
        // context, first byte (an LPS or an MPS), next context
        {0, 0xfe, 1},  {1, 0xfe, 0},  // an LPS at state 0 flips the likely value
        {124, 0, 124}, {125, 0, 125}, {126, 0, 126}, {127, 0, 127}};
    for (const auto& c : kCases) {
        const uint8_t data[8] = {c[1]};
        CabacEngine engine;
        cabac_start(&engine, data, data + sizeof data);
        uint8_t context = c[0];
        EXPECT_EQ(cabac_decode_decision(&engine, &context), (c[0] & 1U) ^ (c[1] != 0));
        EXPECT_EQ(context, c[2]);
    }
    static const int8_t kPairs[][2] = {{-127, 0}, {127, 127}, {0, 63}, {0, 64}, {-10, 127}};
    uint8_t contexts[5];
    cabac_init_contexts(kPairs, contexts, 90, 5);  // not clamped to 51
    EXPECT_EQ(std::vector<uint8_t>(contexts, contexts + 5),
              (std::vector<uint8_t>{124, 125, 0, 1, 13}));
}

}  // namespace
