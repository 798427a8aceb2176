// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_idct.h"

#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

namespace {

std::vector<M4vIdctFn> variants() {
    std::vector<M4vIdctFn> all = {m4v_idct_scalar};
#if KEYSTILL_M4V_X86
    all.push_back(m4v_idct_sse2);
    if (__builtin_cpu_supports("avx2")) all.push_back(m4v_idct_avx2);
#endif
    return all;
}

using Samples = std::array<uint8_t, 64>;
using Values = std::array<double, 64>;

struct alignas(32) Coefficients {
    int16_t at[64];
};

// Inside a border that has to stay as it was.
Samples transform(M4vIdctFn idct, Coefficients block, unsigned width = 8, unsigned height = 8) {
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

double basis(unsigned frequency, unsigned sample) {
    const double scale = frequency == 0 ? sqrt(0.125) : 0.5;
    return scale * cos((sample * 2 + 1) * frequency * M_PI / 16);
}

// out[y * 8 + x] from in[v * 8 + u], or with is_inverse false the other way round.
Values reference(Values in, bool is_inverse) {
    for (int pass = 0; pass < 2; ++pass) {  // along rows, transposing
        Values out{};
        for (unsigned i = 0; i < 512; ++i) {
            const unsigned row = i / 64, a = i / 8 % 8, b = i % 8;
            out[a * 8 + row] += in[row * 8 + b] * (is_inverse ? basis(b, a) : basis(a, b));
        }
        in = out;
    }
    return in;
}

}  // namespace

// The error bounds of IEEE 1180-1990, around the middle of the range, since the kernel clamps.
TEST(Idct, MeetsTheBoundsOfIeee1180) {
    constexpr int kBlocks = 2000;
    std::mt19937 random(1);
    for (const int range : {5, 256, 300}) {
        SCOPED_TRACE(range);
        double sum[65] = {}, squares[65] = {};  // of each sample, and of all
        for (int n = 0; n < kBlocks; ++n) {
            Values values;
            Coefficients block;
            for (double& v : values) v = std::uniform_int_distribution<>(-range, range)(random);
            values = reference(values, false);
            for (double& v : values) v = std::clamp(round(v), -2048.0, 2047.0);
            values[0] += 1024;  // 128 on each sample
            for (unsigned i = 0; i < 64; ++i) {
                block.at[m4v_position(i % 8, i / 8)] = static_cast<int16_t>(values[i]);
            }
            values = reference(values, true);
            const Samples got = transform(m4v_idct_scalar, block);
            for (unsigned i = 0; i < 64; ++i) {
                const double error = got[i] - std::clamp(floor(values[i] + 0.5), 0.0, 255.0);
                ASSERT_LE(fabs(error), 1);
                sum[i] += error, sum[64] += error / 64;
                squares[i] += error * error, squares[64] += error * error / 64;
            }
        }
        EXPECT_LE(*std::max_element(squares, squares + 64) / kBlocks, 0.06);
        for (unsigned i = 0; i < 64; ++i) EXPECT_LE(fabs(sum[i]) / kBlocks, 0.015);
        EXPECT_LE(squares[64] / kBlocks, 0.02);
        EXPECT_LE(fabs(sum[64]) / kBlocks, 0.0015);
    }
}

// Also with blocks that no encoder makes.
TEST(Idct, VariantsAgreeToTheBit) {
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
        for (const M4vIdctFn variant : variants()) {
            ASSERT_EQ(transform(variant, block, width, height), full) << n;
        }
        if (width == 1 && height == 1) {
            ASSERT_EQ(std::count(full.begin(), full.end(), m4v_idct_dc_sample(block.at[0])), 64);
        }
    }
}
