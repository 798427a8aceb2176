// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_idct.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <random>

using Samples = std::array<uint8_t, 64>;

struct alignas(32) Coefficients {
    int16_t at[64];
};

// Inside a border that has to stay as it was.
static Samples transform(M4vIdctFn idct, Coefficients block, unsigned width = 8,
                         unsigned height = 8) {
    constexpr size_t kPitch = 24;
    uint8_t picture[kPitch * 10];
    memset(picture, 77, sizeof picture);
    idct(picture + kPitch + 8, kPitch, block.at, width, height);
    Samples samples;
    for (size_t y = 0; y < 8; ++y) {
        memcpy(&samples[y * 8], picture + (y + 1) * kPitch + 8, 8);
        memset(picture + (y + 1) * kPitch + 8, 77, 8);
    }
    EXPECT_EQ(std::count(picture, picture + sizeof picture, 77), sizeof picture);
    EXPECT_EQ(std::count(block.at, block.at + 64, 0), 64);
    return samples;
}

// Also with blocks that no encoder makes.
TEST(Idct, VariantsAgreeToTheBit) {
    M4vIdctFn variants[kM4vIdctVariants];
    const unsigned count = m4v_idct_variants(variants);
    std::mt19937 random(5);
    for (int n = 0; n < 20000; ++n) {
        const unsigned width = 1 + random() % 8, height = 1 + random() % 8;
        const int limit = n % 4 == 0 ? 32768 : n % 4 == 1 ? 2048 : 100;
        Coefficients block = {};
        for (unsigned i = 0; i < 64; ++i) {
            if (i / 8 >= width || i % 8 >= height || random() % 3 == 0) continue;
            const int v = static_cast<int>(random() % static_cast<unsigned>(2 * limit)) - limit;
            block.at[i] = static_cast<int16_t>(n % 8 == 0 ? (v < 0 ? -32768 : 32767) : v);
        }
        const Samples full = transform(m4v_idct_scalar, block);
        for (unsigned i = 0; i < count; ++i) {
            ASSERT_EQ(transform(variants[i], block, width, height), full) << n << " " << i;
        }
        if (width == 1 && height == 1) {
            ASSERT_EQ(std::count(full.begin(), full.end(), m4v_idct_dc_sample(block.at[0])), 64);
        }
    }
}
