// SPDX-License-Identifier: BSD-2-Clause
// Inverse transforms of residual blocks with vectors. Coefficients come column by column, so the
// first pass, along the rows, needs no turning. Sums are unsigned, which wraps as the reference
// does. Everything is static, since files include this that are built for other processors.
#pragma once

#include "avcdec/residual_pass.h"
#include "runtime/simd_vectors.h"

static inline U16x8 half(U16x8 v) { return (U16x8)((I16x8)v >> 1); }
static inline U16x8 quarter(U16x8 v) { return (U16x8)((I16x8)v >> 2); }
#if defined(__AVX2__)
static inline U16x16 half(U16x16 v) { return (U16x16)((I16x16)v >> 1); }
#endif

template <typename Values>
using Shift = Values (*)(Values);

template <typename Values>
static inline void transform(Values (&x)[4]) {
    idct4<Shift<Values>{half}>(x);
}

static inline void transform(U16x8 (&x)[8]) { idct8<Shift<U16x8>{half}, quarter>(x); }

static inline U16x8 load_8_values(const int16_t* p) {
    U16x8 v;
    memcpy(&v, p, sizeof v);
    return v;
}

static constexpr U16x8 kZeros = {};

// Vector by vector: compilers make slow things of a memset of this size.
template <int kCount>
static inline void clear(int16_t* coefficients) {
#pragma GCC unroll 8
    for (int i = 0; i < kCount; i += 8) memcpy(coefficients + i, &kZeros, sizeof kZeros);
}

// Transforms pairs of 4x4 blocks, one in the lower halves of the vectors (or of each half of them)
// and one in the upper, from columns of coefficients to rows that lack the last shift.
template <typename Values>
static inline void transform_pairs(Values (&x)[4]) {
    transform(x);
    const Values a_even = interleave_low(x[0], x[2]);
    const Values a_odd = interleave_low(x[1], x[3]);
    const Values b_even = interleave_high(x[0], x[2]);
    const Values b_odd = interleave_high(x[1], x[3]);
    const Values a_rows01 = interleave_low(a_even, a_odd);
    const Values a_rows23 = interleave_high(a_even, a_odd);
    const Values b_rows01 = interleave_low(b_even, b_odd);
    const Values b_rows23 = interleave_high(b_even, b_odd);
    x[0] = low_halves(a_rows01, b_rows01) + 32;
    x[1] = high_halves(a_rows01, b_rows01);
    x[2] = low_halves(a_rows23, b_rows23);
    x[3] = high_halves(a_rows23, b_rows23);
    transform(x);
}

#if defined(__AVX2__)

// Adds what two blocks beside each other in the low halves of the rows, and two in the high ones,
// make of their coefficients. Rows come by twos, of eight samples in each half. The DC coefficients
// come apart, each in the lowest word of a quarter of dc: a load would wait for small stores.
static inline void add_four(U8x32* rows, int16_t* low, int16_t* high, U16x16 dc) {
    const U16x16 low0 = load_16_values(low), low1 = load_16_values(low + 16);
    const U16x16 high0 = load_16_values(high), high1 = load_16_values(high + 16);
    const U16x16 low_even = low_halves(low0, low1), low_odd = high_halves(low0, low1);
    const U16x16 high_even = low_halves(high0, high1), high_odd = high_halves(high0, high1);
    U16x16 x[4] = {join_low(low_even, high_even) | dc, join_low(low_odd, high_odd),
                   join_high(low_even, high_even), join_high(low_odd, high_odd)};
    transform_pairs(x);
#pragma GCC unroll 2
    for (int i = 0; i < 2; ++i) {
        const I16x16 even = (I16x16)x[2 * i] >> 6, odd = (I16x16)x[2 * i + 1] >> 6;
        rows[i] = clip_to_u8(widen_low(rows[i]) + even, widen_high(rows[i]) + odd);
    }
    clear<32>(low);
    clear<32>(high);
}

#endif
