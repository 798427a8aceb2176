// SPDX-License-Identifier: BSD-2-Clause
// Inverse transforms of residual blocks and their addition to the prediction, with SSE2 or NEON.
#include "avcdec/recon_kernels.h"
#include "avcdec/residual_vectors.h"

// Adds 16 transformed values that lack the last shift; those of low belong to the first 8 samples.
static inline U8x16 add_residual(U8x16 samples, U16x8 low, U16x8 high) {
    return clip_to_u8(widen_low(samples) + ((I16x8)low >> 6),
                      widen_high(samples) + ((I16x8)high >> 6));
}

static inline void add_two_rows(uint8_t* dst, ptrdiff_t pitch, U16x8 first, U16x8 second) {
    const U8x16 samples = load_8_8(dst, dst + pitch);
    store_8_8(dst, dst + pitch, add_residual(samples, first, second));
}

// The upper halves of the vectors do not count.
static void add_4x4(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients) {
    const U16x8 columns01 = load_8_values(coefficients);
    const U16x8 columns23 = load_8_values(coefficients + 8);
    clear<16>(coefficients);
    U16x8 x[4] = {columns01, high_halves(columns01, columns01), columns23,
                  high_halves(columns23, columns23)};
    transform(x);
    const U16x8 even = interleave_low(x[0], x[2]);
    const U16x8 odd = interleave_low(x[1], x[3]);
    x[0] = interleave_low(even, odd) + U16x8{32, 32, 32, 32};
    x[1] = high_halves(x[0], x[0]);
    x[2] = interleave_high(even, odd);
    x[3] = high_halves(x[2], x[2]);
    transform(x);
    const U8x16 samples = load_4x4(dst, pitch);
    store_4x4(dst, pitch, add_residual(samples, low_halves(x[0], x[1]), low_halves(x[2], x[3])));
}

// Two blocks beside each other.
static inline void add_pair(uint8_t* dst, ptrdiff_t pitch, const int16_t* coefficients) {
    const U16x8 a01 = load_8_values(coefficients);
    const U16x8 a23 = load_8_values(coefficients + 8);
    const U16x8 b01 = load_8_values(coefficients + 16);
    const U16x8 b23 = load_8_values(coefficients + 24);
    U16x8 x[4] = {low_halves(a01, b01), high_halves(a01, b01), low_halves(a23, b23),
                  high_halves(a23, b23)};
    transform_pairs(x);
    add_two_rows(dst, pitch, x[0], x[1]);
    add_two_rows(dst + 2 * pitch, pitch, x[2], x[3]);
}

static void add_four_4x4(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients) {
    add_pair(dst, pitch, coefficients);
    add_pair(dst + 4 * pitch, pitch, coefficients + 32);
    clear<64>(coefficients);
}

static void add_8x8(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients) {
    U16x8 x[8];
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) x[i] = load_8_values(coefficients + 8 * i);
    clear<64>(coefficients);
    transform(x);
    perfect_shuffle<3>(x);
    x[0] += 32;
    transform(x);
#pragma GCC unroll 4
    for (int y = 0; y < 8; y += 2) add_two_rows(dst + y * pitch, pitch, x[y], x[y + 1]);
}

// What to add to samples and what to take away, one of them 0.
struct Change {
    U8x16 up;
    U8x16 down;
};

// From DC coefficients to changes, in the lanes 0 to 7 of the result.
static inline Change dc_change(U16x8 dc) {
    const I16x8 residual = (I16x8)(dc + 32) >> 6;
    return {clip_to_u8(residual, residual), clip_to_u8(-residual, -residual)};
}

static inline Change splat_dc(int16_t dc) { return dc_change(U16x8{} + static_cast<uint16_t>(dc)); }

static inline U8x16 add_change(U8x16 samples, const Change& c) {
    return sub_saturate(add_saturate(samples, c.up), c.down);
}

static inline void change_two_rows(uint8_t* dst, ptrdiff_t pitch, const Change& c) {
    store_8_8(dst, dst + pitch, add_change(load_8_8(dst, dst + pitch), c));
}

static void add_4x4_dc(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients) {
    const Change c = splat_dc(coefficients[0]);
    coefficients[0] = 0;
    store_4x4(dst, pitch, add_change(load_4x4(dst, pitch), c));
}

static void add_8x8_dc(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients) {
    const Change c = splat_dc(coefficients[0]);
    coefficients[0] = 0;
#pragma GCC unroll 4
    for (int y = 0; y < 8; y += 2) change_two_rows(dst + y * pitch, pitch, c);
}

// Lanes 0 to 3, four times each.
static inline U8x16 repeat_4(U8x16 v) {
    const U8x16 twice = interleave_low(v, v);
    return interleave_low(twice, twice);
}

static void add_four_4x4_dc(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients) {
    const auto dc = [&](int b) { return static_cast<uint16_t>(coefficients[16 * b]); };
    const Change c = dc_change(U16x8{dc(0), dc(1), dc(2), dc(3)});
    for (int b = 0; b < 4; ++b) coefficients[16 * b] = 0;
    const U8x16 up = repeat_4(c.up);
    const U8x16 down = repeat_4(c.down);
    const Change top = {low_halves(up, up), low_halves(down, down)};
    const Change bottom = {high_halves(up, up), high_halves(down, down)};
    change_two_rows(dst, pitch, top);
    change_two_rows(dst + 2 * pitch, pitch, top);
    change_two_rows(dst + 4 * pitch, pitch, bottom);
    change_two_rows(dst + 6 * pitch, pitch, bottom);
}

void add_block_use_simd(ReconKernels* k) {
    k->add_4x4 = add_4x4;
    k->add_4x4_dc = add_4x4_dc;
    k->add_four_4x4 = add_four_4x4;
    k->add_four_4x4_dc = add_four_4x4_dc;
    k->add_8x8 = add_8x8;
    k->add_8x8_dc = add_8x8_dc;
}
