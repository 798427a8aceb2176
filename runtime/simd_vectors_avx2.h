// SPDX-License-Identifier: BSD-2-Clause
// Vectors of 32 samples, for kernels that are built for AVX2. Functions work on both halves as
// those of runtime/simd_vectors.h do on a vector of 16; that header includes this one.
#pragma once

#include <immintrin.h>
#include <stdint.h>

typedef uint8_t U8x32 __attribute__((vector_size(32)));
typedef uint16_t U16x16 __attribute__((vector_size(32)));
typedef int16_t I16x16 __attribute__((vector_size(32)));
typedef uint64_t U64x4 __attribute__((vector_size(32)));

// Lanes 0 to 15 from low, the others from high.
static inline U8x32 join(U8x16 low, U8x16 high) {
    return (U8x32)_mm256_setr_m128i((__m128i)low, (__m128i)high);
}
static inline U8x16 low_half(U8x32 v) { return (U8x16)_mm256_castsi256_si128((__m256i)v); }
static inline U8x16 high_half(U8x32 v) { return (U8x16)_mm256_extracti128_si256((__m256i)v, 1); }

// Not by memcpy: GCC would copy an array of vectors by halves, and wait for them.
static inline U16x16 load_16_values(const int16_t* p) {
    return (U16x16)_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
static inline void store_16_values(int16_t* p, U16x16 v) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), (__m256i)v);
}

static inline U8x32 interleave_low(U8x32 a, U8x32 b) {
    return (U8x32)_mm256_unpacklo_epi8((__m256i)a, (__m256i)b);
}
static inline U8x32 interleave_high(U8x32 a, U8x32 b) {
    return (U8x32)_mm256_unpackhi_epi8((__m256i)a, (__m256i)b);
}
static inline U16x16 interleave_low(U16x16 a, U16x16 b) {
    return (U16x16)_mm256_unpacklo_epi16((__m256i)a, (__m256i)b);
}
static inline U16x16 interleave_high(U16x16 a, U16x16 b) {
    return (U16x16)_mm256_unpackhi_epi16((__m256i)a, (__m256i)b);
}
static inline U16x16 low_halves(U16x16 a, U16x16 b) {
    return (U16x16)_mm256_unpacklo_epi64((__m256i)a, (__m256i)b);
}
static inline U16x16 high_halves(U16x16 a, U16x16 b) {
    return (U16x16)_mm256_unpackhi_epi64((__m256i)a, (__m256i)b);
}
// The first (second) vector of 16 bytes of a, then that of b.
static inline U16x16 join_low(U16x16 a, U16x16 b) {
    return (U16x16)_mm256_permute2x128_si256((__m256i)a, (__m256i)b, 0x20);
}
static inline U16x16 join_high(U16x16 a, U16x16 b) {
    return (U16x16)_mm256_permute2x128_si256((__m256i)a, (__m256i)b, 0x31);
}
template <int kCount>
static inline U8x32 slide(U8x32 v) {
    return (U8x32)_mm256_srli_si256((__m256i)v, kCount);
}
static inline I16x16 widen_low(U8x32 v) { return (I16x16)interleave_low(v, U8x32{}); }
static inline I16x16 widen_high(U8x32 v) { return (I16x16)interleave_high(v, U8x32{}); }

static inline U8x32 smaller(U8x32 a, U8x32 b) {
    return (U8x32)_mm256_min_epu8((__m256i)a, (__m256i)b);
}
static inline U8x32 larger(U8x32 a, U8x32 b) {
    return (U8x32)_mm256_max_epu8((__m256i)a, (__m256i)b);
}
static inline U8x32 add_saturate(U8x32 a, U8x32 b) {
    return (U8x32)_mm256_adds_epu8((__m256i)a, (__m256i)b);
}
static inline U8x32 sub_saturate(U8x32 a, U8x32 b) {
    return (U8x32)_mm256_subs_epu8((__m256i)a, (__m256i)b);
}
static inline U8x32 average(U8x32 a, U8x32 b) {
    return (U8x32)_mm256_avg_epu8((__m256i)a, (__m256i)b);
}
static inline U8x32 average_down(U8x32 a, U8x32 b) { return average(a, b) - ((a ^ b) & 1); }
static inline U8x32 distance(U8x32 a, U8x32 b) { return sub_saturate(a, b) | sub_saturate(b, a); }
static inline U8x32 clip_to_u8(I16x16 low, I16x16 high) {
    return (U8x32)_mm256_packus_epi16((__m256i)low, (__m256i)high);
}
static inline bool is_any(U8x32 mask) { return _mm256_movemask_epi8((__m256i)mask) != 0; }
