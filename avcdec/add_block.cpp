// SPDX-License-Identifier: BSD-2-Clause
// Inverse transforms of residual blocks and their addition to the prediction, scalar. Values go in
// pairs, which 32-bit ARM keeps in one register.
#include <string.h>

#include "avcdec/recon_kernels.h"
#include "avcdec/residual_pass.h"
#include "runtime/byte_order.h"

#if defined(__ARM_FEATURE_SIMD32) && !defined(__ARM_BIG_ENDIAN)
#include <arm_acle.h>

struct Pair {
    int16x2_t both;
};
static inline Pair make_pair(int16_t first, int16_t second) {
    const uint32_t high = static_cast<uint32_t>(static_cast<uint16_t>(second)) << 16;
    return {static_cast<int16x2_t>(high | static_cast<uint16_t>(first))};
}
static inline Pair operator+(Pair a, Pair b) { return {__sadd16(a.both, b.both)}; }
static inline Pair operator-(Pair a, Pair b) { return {__ssub16(a.both, b.both)}; }
static inline Pair half(Pair a) { return {__shadd16(a.both, 0)}; }
static inline Pair firsts(Pair a, Pair b) {
    return {static_cast<int16x2_t>((static_cast<uint32_t>(a.both) & 0xffff) |
                                   static_cast<uint32_t>(b.both) << 16)};
}
static inline Pair seconds(Pair a, Pair b) {
    return {static_cast<int16x2_t>(static_cast<uint32_t>(a.both) >> 16 |
                                   (static_cast<uint32_t>(b.both) & 0xffff0000))};
}

// Adds residuals with 6 fractional bits to four samples: to 0 and 2, to 1 and 3. Saturation of the
// sum with 16 bits is beyond the largest sample.
static inline void add_to_samples(uint8_t* dst, Pair even, Pair odd) {
    uint32_t samples;
    memcpy(&samples, dst, sizeof samples);
    const auto add = [](Pair residual, uint32_t two_samples) {
        const int16x2_t scaled = static_cast<int16x2_t>(__uxtb16(two_samples) << 6);
        return static_cast<uint32_t>(__usat16(__qadd16(residual.both, scaled), 14));
    };
    samples = (add(even, samples) >> 6 & 0x00ff00ff) | (add(odd, samples >> 8) << 2 & 0xff00ff00);
    memcpy(dst, &samples, sizeof samples);
}

// Adds up to four samples and takes down away.
static inline void change_samples(uint8_t* dst, uint8_t up, uint8_t down) {
    uint32_t samples;
    memcpy(&samples, dst, sizeof samples);
    samples = __uqsub8(__uqadd8(samples, up * 0x01010101U), down * 0x01010101U);
    memcpy(dst, &samples, sizeof samples);
}

#else

struct Pair {
    int16_t first, second;
};
static inline Pair make_pair(int first, int second) {
    return {static_cast<int16_t>(first), static_cast<int16_t>(second)};
}
static inline Pair operator+(Pair a, Pair b) {
    return make_pair(a.first + b.first, a.second + b.second);
}
static inline Pair operator-(Pair a, Pair b) {
    return make_pair(a.first - b.first, a.second - b.second);
}
static inline Pair half(Pair a) { return make_pair(a.first >> 1, a.second >> 1); }
static inline Pair firsts(Pair a, Pair b) { return {a.first, b.first}; }
static inline Pair seconds(Pair a, Pair b) { return {a.second, b.second}; }

// Adds residuals with 6 fractional bits to four samples: to 0 and 2, to 1 and 3.
static inline void add_to_samples(uint8_t* dst, Pair even, Pair odd) {
    dst[0] = clip_u8(dst[0] + (even.first >> 6));
    dst[1] = clip_u8(dst[1] + (odd.first >> 6));
    dst[2] = clip_u8(dst[2] + (even.second >> 6));
    dst[3] = clip_u8(dst[3] + (odd.second >> 6));
}

// Adds up to four samples and takes down away.
static inline void change_samples(uint8_t* dst, uint8_t up, uint8_t down) {
    for (int x = 0; x < 4; ++x) dst[x] = clip_u8(clip_u8(dst[x] + up) - down);
}

#endif

static inline Pair quarter(Pair a) { return half(half(a)); }

static inline void transform(Pair (&x)[4]) { idct4<half>(x); }
static inline void transform(Pair (&x)[8]) { idct8<half, quarter>(x); }

// Two coefficients that follow each other; zeros take their place.
static inline Pair take_pair(int16_t* coefficients) {
    Pair v;
    static_assert(sizeof v == 2 * sizeof *coefficients);
    memcpy(&v, coefficients, sizeof v);
    const Pair zeros = {};
    memcpy(coefficients, &zeros, sizeof zeros);
    return v;
}

template <int kSize>
static void add_block(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients) {
    // After the pass along the rows: pair x of a row has columns x and x + 2, or x - 1 and x + 1.
    __attribute__((uninitialized)) Pair rows[kSize][kSize / 2];
    for (int y = 0; y < kSize; y += 2) {
        __attribute__((uninitialized)) Pair columns[kSize];  // two rows of each
#pragma GCC unroll 8
        for (int x = 0; x < kSize; ++x) columns[x] = take_pair(coefficients + x * kSize + y);
        transform(columns);
#pragma GCC unroll 4
        for (int x = 0; x < kSize / 2; ++x) {
            const int column = x / 2 * 4 + x % 2;
            rows[y][x] = firsts(columns[column], columns[column + 2]);
            rows[y + 1][x] = seconds(columns[column], columns[column + 2]);
        }
    }
    const Pair round = make_pair(32, 32);
    for (int x = 0; x < kSize / 2; x += 2, dst += 4) {
        __attribute__((uninitialized)) Pair even[kSize], odd[kSize];
#pragma GCC unroll 8
        for (int y = 0; y < kSize; ++y) {
            even[y] = rows[y][x];
            odd[y] = rows[y][x + 1];
        }
        even[0] = even[0] + round;
        odd[0] = odd[0] + round;
        transform(even);
        transform(odd);
#pragma GCC unroll 8
        for (int y = 0; y < kSize; ++y) add_to_samples(dst + y * pitch, even[y], odd[y]);
    }
}

// A block with nothing but a DC coefficient has the same residual everywhere.
template <int kSize>
static void add_dc(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients) {
    const int residual = static_cast<int16_t>(coefficients[0] + 32) >> 6;
    coefficients[0] = 0;
    for (int y = 0; y < kSize; ++y, dst += pitch) {
        for (int x = 0; x < kSize; x += 4) {
            change_samples(dst + x, clip_u8(residual), clip_u8(-residual));
        }
    }
}

template <AddBlockFn kAdd>
static void add_four(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients) {
    for (int b = 0; b < 4; ++b) {
        kAdd(dst + (b >> 1) * 4 * pitch + (b & 1) * 4, pitch, coefficients + 16 * b);
    }
}

void add_block_use_scalar(ReconKernels* k) {
    k->add_4x4 = add_block<4>;
    k->add_4x4_dc = add_dc<4>;
    k->add_four_4x4 = add_four<add_block<4>>;
    k->add_four_4x4_dc = add_four<add_dc<4>>;
    k->add_8x8 = add_block<8>;
    k->add_8x8_dc = add_dc<8>;
}
