// SPDX-License-Identifier: BSD-2-Clause
// The inverse DCT with AVX2: all eight columns at a time. The only file here that is built for it.
#include <immintrin.h>

#include "m4vdec/m4v_idct.h"
#include "m4vdec/m4v_idct_pass.h"

typedef int32_t I32x8 __attribute__((vector_size(32)));
typedef uint32_t U32x8 __attribute__((vector_size(32)));

// All lanes of two rows, in turns.
struct RowPair {
    __m256i both;
};

template <int kFirst, int kSecond>
static inline U32x8 products(RowPair v) {
    constexpr int kFactors = idct_factor(kSecond) * 65536 + (idct_factor(kFirst) & 0xffff);
    return (U32x8)_mm256_madd_epi16(v.both, _mm256_set1_epi32(kFactors));
}
template <int kFirst, int kSecond>
static inline U32x8 add_products(U32x8 sum, RowPair v) {
    return sum + products<kFirst, kSecond>(v);
}

// Rows two by two: rows[0] has row 0 in the lower halves of its lanes and row 1 in the upper ones,
// columns 0 to 3 in the lower lane and 4 to 7 in the upper. rows[1] to [3]: 2 and 3, 4 and 5, 6 and
// 7. kRows 4: rows 4 to 7 are zero. out[i]: row i of the result with 32 bits, shifted.
template <int kRows, int kShift>
static inline void pass(const __m256i rows[4], __m256i out[8]) {
    U32x8 sums[8];
    const RowPair x04 = {_mm256_unpacklo_epi16(rows[0], rows[2])};
    const RowPair x26 = {_mm256_unpacklo_epi16(rows[1], rows[3])};
    const RowPair x13 = {_mm256_unpackhi_epi16(rows[0], rows[1])};
    const RowPair x57 = {_mm256_unpackhi_epi16(rows[2], rows[3])};
    idct_pass<kRows>(x04, x26, x13, x57, U32x8{} + (1u << (kShift - 1)), sums);
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) out[i] = (__m256i)((I32x8)sums[i] >> kShift);
}

static inline __m256i pack_rows(__m256i lower, __m256i upper) {
    return _mm256_permute4x64_epi64(_mm256_packs_epi32(lower, upper), 0xd8);
}

// Rows of 32 bits into columns of 16, in the order that pass() takes.
static inline void transpose(const __m256i in[8], __m256i rows[4]) {
    const __m256i p04 = pack_rows(in[0], in[4]);
    const __m256i p15 = pack_rows(in[1], in[5]);
    const __m256i p26 = pack_rows(in[2], in[6]);
    const __m256i p37 = pack_rows(in[3], in[7]);
    const __m256i t0 = _mm256_unpacklo_epi16(p04, p15);
    const __m256i t1 = _mm256_unpackhi_epi16(p04, p15);
    const __m256i t2 = _mm256_unpacklo_epi16(p26, p37);
    const __m256i t3 = _mm256_unpackhi_epi16(p26, p37);
    rows[0] = _mm256_unpacklo_epi32(t0, t2);
    rows[1] = _mm256_unpackhi_epi32(t0, t2);
    rows[2] = _mm256_unpacklo_epi32(t1, t3);
    rows[3] = _mm256_unpackhi_epi32(t1, t3);
}

static inline void store_four_rows(uint8_t* dst, size_t pitch, const __m256i in[4]) {
    const __m256i words01 = _mm256_packs_epi32(in[0], in[1]);
    const __m256i words23 = _mm256_packs_epi32(in[2], in[3]);
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    const __m256i samples =
        _mm256_permutevar8x32_epi32(_mm256_packus_epi16(words01, words23), order);
    const __m128i low = _mm256_castsi256_si128(samples);
    const __m128i high = _mm256_extracti128_si256(samples, 1);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), low);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + pitch), _mm_srli_si128(low, 8));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + 2 * pitch), high);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + 3 * pitch), _mm_srli_si128(high, 8));
}

// kWidth and kHeight: 4 or 8, from there on the coefficients are zero.
template <int kWidth, int kHeight>
static void transform(uint8_t* dst, size_t pitch, int16_t* block) {
    __m256i* const in = reinterpret_cast<__m256i*>(block);
    __m256i rows[4] = {}, out[8];
#pragma GCC unroll 4
    for (int i = 0; i < kWidth / 2; ++i) {
        rows[i] = _mm256_permute4x64_epi64(_mm256_loadu_si256(in + i), 0xd8);
        _mm256_storeu_si256(in + i, _mm256_setzero_si256());
    }
    pass<kWidth, kIdctShift1>(rows, out);
    transpose(out, rows);
    pass<kHeight, kIdctShift2>(rows, out);
    store_four_rows(dst, pitch, out);
    store_four_rows(dst + 4 * pitch, pitch, out + 4);
}

void m4v_idct_avx2(uint8_t* dst, size_t pitch, int16_t* block, unsigned width, unsigned height) {
    if (width > 4) {
        (height > 4 ? transform<8, 8> : transform<8, 4>)(dst, pitch, block);
    } else {
        (height > 4 ? transform<4, 8> : transform<4, 4>)(dst, pitch, block);
    }
}
