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

struct Variant {
    const char* name;
    M4vIdctFn idct;
};

std::vector<Variant> variants() {
    std::vector<Variant> all = {{"scalar", m4v_idct_scalar}};
#if KEYSTILL_M4V_X86
    all.push_back({"sse2", m4v_idct_sse2});
    if (__builtin_cpu_supports("avx2")) all.push_back({"avx2", m4v_idct_avx2});
#endif
    return all;
}

using Samples = std::array<uint8_t, 64>;

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
std::array<double, 64> reference(const std::array<double, 64>& in, bool is_inverse) {
    static const auto basis = [] {
        std::array<double, 64> b{};  // [frequency * 8 + sample]
        for (unsigned i = 0; i < 64; ++i) {
            b[i] = (i < 8 ? sqrt(0.125) : 0.5) * cos((i % 8 * 2 + 1) * (i / 8) * M_PI / 16);
        }
        return b;
    }();
    const auto pass = [&](const std::array<double, 64>& from) {  // along rows, transposing
        std::array<double, 64> to{};
        for (unsigned row = 0; row < 8; ++row) {
            for (unsigned a = 0; a < 8; ++a) {
                for (unsigned b = 0; b < 8; ++b) {
                    to[a * 8 + row] +=
                        from[row * 8 + b] * basis[is_inverse ? b * 8 + a : a * 8 + b];
                }
            }
        }
        return to;
    };
    return pass(pass(in));
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

struct Errors {
    int peak = 0;
    std::array<double, 64> sum{}, squares{};
};

Errors measure(M4vIdctFn idct, int low, int high, int sign, int blocks) {
    Errors errors;
    Generator generator;
    for (int n = 0; n < blocks; ++n) {
        std::array<double, 64> samples, exact;
        Coefficients block;
        for (double& v : samples) v = sign * generator.next(low, high);
        const auto frequencies = reference(samples, false);
        for (unsigned i = 0; i < 64; ++i) {
            exact[i] = std::clamp(round(frequencies[i]), -2048.0, 2047.0);
            block.at[m4v_position(i % 8, i / 8)] = static_cast<int16_t>(exact[i]);
        }
        exact = reference(exact, true);
        const auto got = transform_signed(idct, block);
        for (unsigned i = 0; i < 64; ++i) {
            const int want = static_cast<int>(std::clamp(floor(exact[i] + 0.5), -256.0, 255.0));
            const int error = got[i] - want;
            errors.peak = std::max(errors.peak, abs(error));
            errors.sum[i] += error;
            errors.squares[i] += error * error;
        }
    }
    return errors;
}

}  // namespace

TEST(Idct, MeetsTheBoundsOfIeee1180) {
    constexpr int kBlocks = 10000;
    static const int kRanges[3][2] = {{256, 255}, {5, 5}, {300, 300}};
    for (const Variant& variant : variants()) {
        for (const auto& range : kRanges) {
            for (const int sign : {1, -1}) {
                SCOPED_TRACE(testing::Message() << variant.name << " " << range[0] << " " << sign);
                const Errors e = measure(variant.idct, range[0], range[1], sign, kBlocks);
                double sum = 0, squares = 0;
                for (unsigned i = 0; i < 64; ++i) {
                    EXPECT_LE(e.squares[i] / kBlocks, 0.06);
                    EXPECT_LE(fabs(e.sum[i]) / kBlocks, 0.015);
                    sum += e.sum[i];
                    squares += e.squares[i];
                }
                EXPECT_LE(e.peak, 1);
                EXPECT_LE(squares / kBlocks / 64, 0.02);
                EXPECT_LE(fabs(sum) / kBlocks / 64, 0.0015);
            }
        }
        EXPECT_EQ(transform(variant.idct, {}), Samples{});  // zeros in, zeros out
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
        for (const Variant& variant : variants()) {
            ASSERT_EQ(transform(variant.idct, block, width, height), full) << variant.name;
        }
        if (width == 1 && height == 1) {
            ASSERT_EQ(std::count(full.begin(), full.end(), m4v_idct_dc_sample(block.at[0])), 64);
        }
    }
}
