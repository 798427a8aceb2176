// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_idct.h"

#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <random>

namespace {

constexpr int kBlocks = 10000;  // of each range and sign

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

// -256 to 255, out of three runs, since the kernel clamps: the DC moves the samples by 0, 128 and
// 256, exactly.
std::array<int, 64> transform_signed(M4vIdctFn idct, Coefficients block) {
    Samples moved[3];
    for (Samples& samples : moved) {
        samples = transform(idct, block);
        block.at[0] = static_cast<int16_t>(block.at[0] + 1024);
    }
    std::array<int, 64> out;
    for (unsigned i = 0; i < 64; ++i) {
        const int middle = moved[1][i];
        out[i] = middle == 0 ? moved[2][i] - 256 : middle == 255 ? moved[0][i] : middle - 128;
    }
    return out;
}

// out[y * 8 + x] from in[v * 8 + u], or with is_inverse false the other way round.
Values reference(Values in, bool is_inverse) {
    static const auto factors = [] {
        Values all;
        for (unsigned i = 0; i < 64; ++i) {  // [frequency * 8 + sample]
            all[i] = (i < 8 ? sqrt(0.125) : 0.5) * cos((i % 8 * 2 + 1) * (i / 8) * M_PI / 16);
        }
        return all;
    }();
    for (int pass = 0; pass < 2; ++pass) {  // along rows, transposing
        Values out{};
        for (unsigned i = 0; i < 512; ++i) {
            const unsigned row = i / 64, a = i / 8 % 8, b = i % 8;
            out[a * 8 + row] += in[row * 8 + b] * factors[is_inverse ? b * 8 + a : a * 8 + b];
        }
        in = out;
    }
    return in;
}

// The generator of IEEE 1180-1990, annex A.
struct Generator {
    int64_t state = 1;
    int next(int low, int high) {
        state = (state * 1103515245 + 12345) & 0xffffffff;
        const double x = static_cast<double>(state & 0x7ffffffe) / 0x7fffffff * (low + high + 1);
        return static_cast<int>(x) - low;
    }
};

}  // namespace

// The other variants agree with the scalar one, see below.
TEST(Idct, MeetsTheBoundsOfIeee1180) {
    static const int kRanges[3][2] = {{256, 255}, {5, 5}, {300, 300}};
    for (int run = 0; run < 6; ++run) {
        const int low = kRanges[run / 2][0], high = kRanges[run / 2][1], sign = run % 2 ? -1 : 1;
        double sum[65] = {}, squares[65] = {};  // of the errors of each sample, and at 64 of all
        Generator generator;
        for (int n = 0; n < kBlocks; ++n) {
            Values values;
            Coefficients block;
            for (double& v : values) v = sign * generator.next(low, high);
            values = reference(values, false);
            for (unsigned i = 0; i < 64; ++i) {
                values[i] = std::clamp(round(values[i]), -2048.0, 2047.0);
                block.at[m4v_position(i % 8, i / 8)] = static_cast<int16_t>(values[i]);
            }
            values = reference(values, true);
            const auto got = transform_signed(m4v_idct_scalar, block);
            for (unsigned i = 0; i < 64; ++i) {
                const double error = got[i] - std::clamp(floor(values[i] + 0.5), -256.0, 255.0);
                ASSERT_LE(fabs(error), 1);
                sum[i] += error, sum[64] += error / 64;
                squares[i] += error * error, squares[64] += error * error / 64;
            }
        }
        for (unsigned i = 0; i <= 64; ++i) {
            EXPECT_LE(squares[i] / kBlocks, i < 64 ? 0.06 : 0.02) << run;
            EXPECT_LE(fabs(sum[i]) / kBlocks, i < 64 ? 0.015 : 0.0015) << run;
        }
    }
    EXPECT_EQ(transform(m4v_idct_scalar, {}), Samples{});  // zeros in, zeros out
}

// A run that KEYSTILL_EXPECT_KERNELS tells what it should find: "scalar" or "simd".
TEST(Idct, ChoiceGoesByTheProcessor) {
    const char* const expected = getenv("KEYSTILL_EXPECT_KERNELS");
    if (!expected) GTEST_SKIP() << "KEYSTILL_EXPECT_KERNELS is not set";
    EXPECT_STREQ(m4v_idct_best() == m4v_idct_scalar ? "scalar" : "simd", expected);
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
