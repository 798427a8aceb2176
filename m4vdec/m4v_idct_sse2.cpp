// SPDX-License-Identifier: BSD-2-Clause
// The inverse DCT with SSE2, four columns at a time through multiply-add of interleaved rows.
#include <emmintrin.h>

#include "m4vdec/m4v_idct.h"
#include "m4vdec/m4v_idct_constants.h"

// Multipliers of a pair of rows.
static inline __m128i pair(uint32_t even, uint32_t odd) {
    return _mm_set1_epi32(static_cast<int32_t>((odd << 16) | (even & 0xffff)));
}

// Four columns: in[0] rows 0 and 4 interleaved, in[1] rows 2 and 6, in[2] rows 1 and 3, in[3] rows
// 5 and 7; kRows 4 promises that rows 4 to 7 are zero. out[8] are the sums before the shift.
template <int kRows>
static inline void columns(const __m128i in[4], __m128i round, __m128i out[8]) {
    const __m128i e0 = _mm_add_epi32(_mm_madd_epi16(in[0], pair(kIdctC4, kIdctC4)), round);
    const __m128i e1 =
        kRows == 4 ? e0 : _mm_add_epi32(_mm_madd_epi16(in[0], pair(kIdctC4, -kIdctC4)), round);
    const __m128i f0 = _mm_madd_epi16(in[1], pair(kIdctC2, kIdctC6));
    const __m128i f1 = _mm_madd_epi16(in[1], pair(kIdctC6, -kIdctC2));
    const __m128i a[4] = {_mm_add_epi32(e0, f0), _mm_add_epi32(e1, f1), _mm_sub_epi32(e1, f1),
                          _mm_sub_epi32(e0, f0)};
    __m128i b[4] = {_mm_madd_epi16(in[2], pair(kIdctC1, kIdctC3)),
                    _mm_madd_epi16(in[2], pair(kIdctC3, -kIdctC7)),
                    _mm_madd_epi16(in[2], pair(kIdctC5, -kIdctC1)),
                    _mm_madd_epi16(in[2], pair(kIdctC7, -kIdctC5))};
    if (kRows == 8) {
        b[0] = _mm_add_epi32(b[0], _mm_madd_epi16(in[3], pair(kIdctC5, kIdctC7)));
        b[1] = _mm_sub_epi32(b[1], _mm_madd_epi16(in[3], pair(kIdctC1, kIdctC5)));
        b[2] = _mm_add_epi32(b[2], _mm_madd_epi16(in[3], pair(kIdctC7, kIdctC3)));
        b[3] = _mm_add_epi32(b[3], _mm_madd_epi16(in[3], pair(kIdctC3, -kIdctC1)));
    }
#pragma GCC unroll 8
    for (int i = 0; i < 4; ++i) {
        out[i] = _mm_add_epi32(a[i], b[i]);
        out[7 - i] = _mm_sub_epi32(a[i], b[i]);
    }
}

template <int kRows>
static inline void interleave_low(const __m128i row[8], __m128i in[4]) {
    const __m128i zero = _mm_setzero_si128();
    in[0] = _mm_unpacklo_epi16(row[0], kRows == 8 ? row[4] : zero);
    in[1] = _mm_unpacklo_epi16(row[2], kRows == 8 ? row[6] : zero);
    in[2] = _mm_unpacklo_epi16(row[1], row[3]);
    if (kRows == 8) in[3] = _mm_unpacklo_epi16(row[5], row[7]);
}

template <int kRows>
static inline void interleave_high(const __m128i row[8], __m128i in[4]) {
    const __m128i zero = _mm_setzero_si128();
    in[0] = _mm_unpackhi_epi16(row[0], kRows == 8 ? row[4] : zero);
    in[1] = _mm_unpackhi_epi16(row[2], kRows == 8 ? row[6] : zero);
    in[2] = _mm_unpackhi_epi16(row[1], row[3]);
    if (kRows == 8) in[3] = _mm_unpackhi_epi16(row[5], row[7]);
}

// One pass down all columns, in place. kRows: rows from there on are zero; kColumns 4: so are
// columns 4 to 7, before and after.
template <int kRows, int kColumns, int kShift>
static inline void pass(__m128i row[8]) {
    const __m128i round = _mm_set1_epi32(1 << (kShift - 1));
    __m128i in[4], low[8], high[8];
    interleave_low<kRows>(row, in);
    columns<kRows>(in, round, low);
    if (kColumns == 8) {
        interleave_high<kRows>(row, in);
        columns<kRows>(in, round, high);
    }
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) {
        const __m128i sums = _mm_srai_epi32(low[i], kShift);
        const __m128i upper = kColumns == 8 ? _mm_srai_epi32(high[i], kShift) : sums;
        row[i] = _mm_packs_epi32(sums, upper);
    }
}

// kColumns 4: only the low four columns count, and so do only rows 0 to 3 of the result.
template <int kColumns>
static inline void transpose(__m128i row[8]) {
    const __m128i a0 = _mm_unpacklo_epi16(row[0], row[1]);
    const __m128i a1 = _mm_unpacklo_epi16(row[2], row[3]);
    const __m128i a2 = _mm_unpacklo_epi16(row[4], row[5]);
    const __m128i a3 = _mm_unpacklo_epi16(row[6], row[7]);
    const __m128i b0 = _mm_unpacklo_epi32(a0, a1);
    const __m128i b1 = _mm_unpackhi_epi32(a0, a1);
    const __m128i b2 = _mm_unpacklo_epi32(a2, a3);
    const __m128i b3 = _mm_unpackhi_epi32(a2, a3);
    if (kColumns == 8) {
        const __m128i c0 = _mm_unpackhi_epi16(row[0], row[1]);
        const __m128i c1 = _mm_unpackhi_epi16(row[2], row[3]);
        const __m128i c2 = _mm_unpackhi_epi16(row[4], row[5]);
        const __m128i c3 = _mm_unpackhi_epi16(row[6], row[7]);
        const __m128i d0 = _mm_unpacklo_epi32(c0, c1);
        const __m128i d1 = _mm_unpackhi_epi32(c0, c1);
        const __m128i d2 = _mm_unpacklo_epi32(c2, c3);
        const __m128i d3 = _mm_unpackhi_epi32(c2, c3);
        row[4] = _mm_unpacklo_epi64(d0, d2);
        row[5] = _mm_unpackhi_epi64(d0, d2);
        row[6] = _mm_unpacklo_epi64(d1, d3);
        row[7] = _mm_unpackhi_epi64(d1, d3);
    }
    row[0] = _mm_unpacklo_epi64(b0, b2);
    row[1] = _mm_unpackhi_epi64(b0, b2);
    row[2] = _mm_unpacklo_epi64(b1, b3);
    row[3] = _mm_unpackhi_epi64(b1, b3);
}

// kWidth and kHeight: 4 or 8, from there on the coefficients are zero.
template <int kWidth, int kHeight>
static void transform(uint8_t* dst, size_t pitch, int16_t* block) {
    __m128i* const in = reinterpret_cast<__m128i*>(block);
    __m128i row[8];
#pragma GCC unroll 8
    for (int i = 0; i < kWidth; ++i) {
        row[i] = _mm_load_si128(in + i);
        _mm_store_si128(in + i, _mm_setzero_si128());
    }
    pass<kWidth, kHeight, kIdctShift1>(row);
    transpose<kHeight>(row);
    pass<kHeight, 8, kIdctShift2>(row);
#pragma GCC unroll 8
    for (int i = 0; i < 8; i += 2) {
        const __m128i samples = _mm_packus_epi16(row[i], row[i + 1]);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), samples);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + pitch), _mm_srli_si128(samples, 8));
        dst += 2 * pitch;
    }
}

void m4v_idct_sse2(uint8_t* dst, size_t pitch, int16_t* block, unsigned width, unsigned height) {
    if (width > 4) {
        (height > 4 ? transform<8, 8> : transform<8, 4>)(dst, pitch, block);
    } else {
        (height > 4 ? transform<4, 8> : transform<4, 4>)(dst, pitch, block);
    }
}
