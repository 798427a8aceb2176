// SPDX-License-Identifier: BSD-2-Clause
// Vectors of 16 samples, 8 coefficients or 4 sums, for kernels whose one source serves SSE2 and
// NEON. Arithmetic, comparisons and shuffles are GCC's vector extensions, which Clang has too: they
// read like scalar code, and the compilers make of them what intrinsics would give. What the
// extensions cannot say follows here. A comparison yields 0xff in the lanes where it holds.
//
// Everything is static: on 32-bit ARM these functions are built for NEON, and the linker must not
// take a copy of them for code that runs without.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#if defined(__ARM_NEON)
#include <arm_neon.h>
#else
#include <emmintrin.h>
#endif

typedef uint8_t U8x16 __attribute__((vector_size(16)));
typedef uint16_t U16x8 __attribute__((vector_size(16)));
typedef int16_t I16x8 __attribute__((vector_size(16)));
typedef int32_t I32x4 __attribute__((vector_size(16)));
typedef uint32_t U32x4 __attribute__((vector_size(16)));
typedef uint64_t U64x2 __attribute__((vector_size(16)));

#if defined(__AVX2__)
#include "runtime/simd_vectors_avx2.h"
#endif

static inline U8x16 splat_u8(int v) { return U8x16{} + static_cast<uint8_t>(v); }

static inline U8x16 load_16(const uint8_t* p) {
    U8x16 v;
    memcpy(&v, p, sizeof v);
    return v;
}

static inline void store_16(uint8_t* p, U8x16 v) { memcpy(p, &v, sizeof v); }

static inline uint32_t load_4(const uint8_t* p) {
    uint32_t v;
    memcpy(&v, p, sizeof v);
    return v;
}

// Samples 0 to 7 (8 to 15) of a and b, in turns.
static inline U8x16 interleave_low(U8x16 a, U8x16 b) {
    return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}

static inline U8x16 interleave_high(U8x16 a, U8x16 b) {
    return __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15,
                                   31);
}

static inline U16x8 interleave_low(U16x8 a, U16x8 b) {
    return __builtin_shufflevector(a, b, 0, 8, 1, 9, 2, 10, 3, 11);
}

static inline U16x8 interleave_high(U16x8 a, U16x8 b) {
    return __builtin_shufflevector(a, b, 4, 12, 5, 13, 6, 14, 7, 15);
}

static inline I16x8 interleave_low(I16x8 a, I16x8 b) {
    return (I16x8)interleave_low((U16x8)a, (U16x8)b);
}

static inline I16x8 interleave_high(I16x8 a, I16x8 b) {
    return (I16x8)interleave_high((U16x8)a, (U16x8)b);
}

// kRounds perfect shuffles over kCount vectors: with an element's place written as vector number
// and lane, the top bit of the vector number becomes the lowest bit of the lane and all others move
// up. Repeated, it turns rows into columns and back.
template <int kRounds, typename Vector, int kCount>
static inline void perfect_shuffle(Vector (&v)[kCount]) {
#pragma GCC unroll 4
    for (int round = 0; round < kRounds; ++round) {
        Vector out[kCount];
#pragma GCC unroll 8
        for (int i = 0; i < kCount / 2; ++i) {
            out[2 * i] = interleave_low(v[i], v[i + kCount / 2]);
            out[2 * i + 1] = interleave_high(v[i], v[i + kCount / 2]);
        }
#pragma GCC unroll 16
        for (int i = 0; i < kCount; ++i) v[i] = out[i];
    }
}

// The first (last) 8 samples with 16 bits each.
static inline I16x8 widen_low(U8x16 v) { return (I16x8)interleave_low(v, U8x16{}); }
static inline I16x8 widen_high(U8x16 v) { return (I16x8)interleave_high(v, U8x16{}); }

#if defined(__ARM_NEON)

// The first 4 (8) samples.
static inline void store_4(uint8_t* p, U8x16 v) {
    vst1q_lane_u32(reinterpret_cast<uint32_t*>(p), (uint32x4_t)v, 0);
}
static inline void store_8(uint8_t* p, U8x16 v) { vst1_u8(p, vget_low_u8((uint8x16_t)v)); }
// 8 samples from each address, those of low first.
static inline U8x16 load_8_8(const uint8_t* low, const uint8_t* high) {
    return (U8x16)vcombine_u8(vld1_u8(low), vld1_u8(high));
}
static inline void store_8_8(uint8_t* low, uint8_t* high, U8x16 v) {
    vst1_u8(low, vget_low_u8((uint8x16_t)v));
    vst1_u8(high, vget_high_u8((uint8x16_t)v));
}
// Four rows of four samples, of any alignment: so the processor has it.
static inline U8x16 load_4x4(const uint8_t* p, ptrdiff_t pitch) {
    const auto row = [&](int y) { return reinterpret_cast<const uint32_t*>(p + y * pitch); };
    uint32x4_t v = vdupq_n_u32(0);
    v = vld1q_lane_u32(row(0), v, 0);
    v = vld1q_lane_u32(row(1), v, 1);
    v = vld1q_lane_u32(row(2), v, 2);
    return (U8x16)vld1q_lane_u32(row(3), v, 3);
}
static inline void store_4x4(uint8_t* p, ptrdiff_t pitch, U8x16 v) {
    const auto row = [&](int y) { return reinterpret_cast<uint32_t*>(p + y * pitch); };
    vst1q_lane_u32(row(0), (uint32x4_t)v, 0);
    vst1q_lane_u32(row(1), (uint32x4_t)v, 1);
    vst1q_lane_u32(row(2), (uint32x4_t)v, 2);
    vst1q_lane_u32(row(3), (uint32x4_t)v, 3);
}
// The low (high) halves of a and b.
template <typename Vector>
static inline Vector low_halves(Vector a, Vector b) {
    return (Vector)vcombine_u8(vget_low_u8((uint8x16_t)a), vget_low_u8((uint8x16_t)b));
}
template <typename Vector>
static inline Vector high_halves(Vector a, Vector b) {
    return (Vector)vcombine_u8(vget_high_u8((uint8x16_t)a), vget_high_u8((uint8x16_t)b));
}
// Moves the samples down by kCount places; the first ones of fill follow.
template <int kCount>
static inline U8x16 slide(U8x16 v, U8x16 fill = U8x16{}) {
    return (U8x16)vextq_u8((uint8x16_t)v, (uint8x16_t)fill, kCount);
}
// (a + b + 1) >> 1 and (a + b) >> 1.
static inline U8x16 average(U8x16 a, U8x16 b) {
    return (U8x16)vrhaddq_u8((uint8x16_t)a, (uint8x16_t)b);
}
static inline U8x16 average_down(U8x16 a, U8x16 b) {
    return (U8x16)vhaddq_u8((uint8x16_t)a, (uint8x16_t)b);
}
static inline U8x16 distance(U8x16 a, U8x16 b) {
    return (U8x16)vabdq_u8((uint8x16_t)a, (uint8x16_t)b);
}
static inline U8x16 smaller(U8x16 a, U8x16 b) {
    return (U8x16)vminq_u8((uint8x16_t)a, (uint8x16_t)b);
}
static inline U8x16 larger(U8x16 a, U8x16 b) {
    return (U8x16)vmaxq_u8((uint8x16_t)a, (uint8x16_t)b);
}
static inline U8x16 add_saturate(U8x16 a, U8x16 b) {
    return (U8x16)vqaddq_u8((uint8x16_t)a, (uint8x16_t)b);
}
static inline U8x16 sub_saturate(U8x16 a, U8x16 b) {
    return (U8x16)vqsubq_u8((uint8x16_t)a, (uint8x16_t)b);
}
// Clamps to 0..255.
static inline U8x16 clip_to_u8(I16x8 low, I16x8 high) {
    return (U8x16)vcombine_u8(vqmovun_s16((int16x8_t)low), vqmovun_s16((int16x8_t)high));
}
// Whether any lane of a comparison holds.
static inline bool is_any(U8x16 mask) {
    const uint32x2_t folded =
        vreinterpret_u32_u8(vorr_u8(vget_low_u8((uint8x16_t)mask), vget_high_u8((uint8x16_t)mask)));
    return vget_lane_u32(vpmax_u32(folded, folded), 0) != 0;
}
// The sum of all lanes.
static inline uint32_t sum_16(U8x16 v) {
    const uint64x2_t halves = vpaddlq_u32(vpaddlq_u16(vpaddlq_u8((uint8x16_t)v)));
    return static_cast<uint32_t>(vgetq_lane_u64(halves, 0) + vgetq_lane_u64(halves, 1));
}

#else

// The first 4 (8) samples.
static inline void store_4(uint8_t* p, U8x16 v) {
    const uint32_t row = ((U32x4)v)[0];
    memcpy(p, &row, sizeof row);
}
static inline void store_8(uint8_t* p, U8x16 v) {
    const uint64_t row = ((U64x2)v)[0];
    memcpy(p, &row, sizeof row);
}
// 8 samples from each address, those of low first.
static inline U8x16 load_8_8(const uint8_t* low, const uint8_t* high) {
    uint64_t a, b;
    memcpy(&a, low, sizeof a);
    memcpy(&b, high, sizeof b);
    return (U8x16)U64x2{a, b};
}
static inline void store_8_8(uint8_t* low, uint8_t* high, U8x16 v) {
    const uint64_t a = ((U64x2)v)[0];
    const uint64_t b = ((U64x2)v)[1];
    memcpy(low, &a, sizeof a);
    memcpy(high, &b, sizeof b);
}
// Four rows of four samples.
static inline U8x16 load_4x4(const uint8_t* p, ptrdiff_t pitch) {
    return (U8x16)U32x4{load_4(p), load_4(p + pitch), load_4(p + 2 * pitch), load_4(p + 3 * pitch)};
}
static inline void store_4x4(uint8_t* p, ptrdiff_t pitch, U8x16 v) {
    const U32x4 rows = (U32x4)v;
    const uint32_t row[4] = {rows[0], rows[1], rows[2], rows[3]};
    memcpy(p, &row[0], 4);
    memcpy(p + pitch, &row[1], 4);
    memcpy(p + 2 * pitch, &row[2], 4);
    memcpy(p + 3 * pitch, &row[3], 4);
}
// The low (high) halves of a and b.
template <typename Vector>
static inline Vector low_halves(Vector a, Vector b) {
    return (Vector)_mm_unpacklo_epi64((__m128i)a, (__m128i)b);
}
template <typename Vector>
static inline Vector high_halves(Vector a, Vector b) {
    return (Vector)_mm_unpackhi_epi64((__m128i)a, (__m128i)b);
}
// Moves the samples down by kCount places; the first ones of fill follow.
template <int kCount>
static inline U8x16 slide(U8x16 v) {
    return (U8x16)_mm_srli_si128((__m128i)v, kCount);
}
template <int kCount>
static inline U8x16 slide(U8x16 v, U8x16 fill) {
    return slide<kCount>(v) | (U8x16)_mm_slli_si128((__m128i)fill, 16 - kCount);
}
// (a + b + 1) >> 1 and (a + b) >> 1.
static inline U8x16 average(U8x16 a, U8x16 b) {
    return (U8x16)_mm_avg_epu8((__m128i)a, (__m128i)b);
}
static inline U8x16 average_down(U8x16 a, U8x16 b) { return average(a, b) - ((a ^ b) & 1); }
static inline U8x16 smaller(U8x16 a, U8x16 b) {
    return (U8x16)_mm_min_epu8((__m128i)a, (__m128i)b);
}
static inline U8x16 larger(U8x16 a, U8x16 b) { return (U8x16)_mm_max_epu8((__m128i)a, (__m128i)b); }
static inline U8x16 add_saturate(U8x16 a, U8x16 b) {
    return (U8x16)_mm_adds_epu8((__m128i)a, (__m128i)b);
}
static inline U8x16 sub_saturate(U8x16 a, U8x16 b) {
    return (U8x16)_mm_subs_epu8((__m128i)a, (__m128i)b);
}
static inline U8x16 distance(U8x16 a, U8x16 b) { return sub_saturate(a, b) | sub_saturate(b, a); }
// Clamps to 0..255.
static inline U8x16 clip_to_u8(I16x8 low, I16x8 high) {
    return (U8x16)_mm_packus_epi16((__m128i)low, (__m128i)high);
}
// Whether any lane of a comparison holds.
static inline bool is_any(U8x16 mask) { return _mm_movemask_epi8((__m128i)mask) != 0; }
// The sum of all lanes.
static inline uint32_t sum_16(U8x16 v) {
    const U32x4 halves = (U32x4)_mm_sad_epu8((__m128i)v, (__m128i)U8x16{});
    return halves[0] + halves[2];
}

#endif
