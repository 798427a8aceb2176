// SPDX-License-Identifier: BSD-2-Clause
// The inverse DCT with SSE2 or NEON, four columns at a time.
#include "m4vdec/m4v_idct.h"
#include "m4vdec/m4v_idct_pass.h"
#include "runtime/simd_vectors.h"

// What a pass makes of columns 0 to 3 (4 to 7) before the shift: see idct_parts.
struct Parts {
    U32x4 even[4], odd[4];
};

#if defined(__ARM_NEON)

// Lanes 0 to 3 (4 to 7) of two rows.
struct LanePairs {
    int16x4_t first, second;
};
static inline LanePairs pair_low(I16x8 a, I16x8 b) {
    return {vget_low_s16((int16x8_t)a), vget_low_s16((int16x8_t)b)};
}
static inline LanePairs pair_high(I16x8 a, I16x8 b) {
    return {vget_high_s16((int16x8_t)a), vget_high_s16((int16x8_t)b)};
}

template <int kFactor>
static inline int32x4_t add_product(int32x4_t sum, int16x4_t v) {
    constexpr int kIndex = kFactor < 0 ? -kFactor : kFactor;
    const int16x4_t factors = vld1_s16(kIdctFactors + kIndex / 4 * 4);
    if (kFactor == 0) return sum;
    return kFactor < 0 ? vmlsl_lane_s16(sum, v, factors, kIndex % 4)
                       : vmlal_lane_s16(sum, v, factors, kIndex % 4);
}
template <int kFirst, int kSecond>
static inline U32x4 add_products(U32x4 sum, const LanePairs& v) {
    return (U32x4)add_product<kSecond>(add_product<kFirst>((int32x4_t)sum, v.first), v.second);
}
template <int kFirst, int kSecond>
static inline U32x4 products(const LanePairs& v) {
    const int16x4_t factors = vld1_s16(kIdctFactors + kFirst / 4 * 4);
    const int32x4_t product = vmull_lane_s16(v.first, factors, kFirst % 4);
    return (U32x4)add_product<kSecond>(product, v.second);
}

// Signed sums, shifted down and saturated to 16 bits.
template <int kShift>
static inline I16x8 shift_to_i16(U32x4 low, U32x4 high) {
    return (I16x8)vcombine_s16(vqshrn_n_s32((int32x4_t)low, kShift),
                               vqshrn_n_s32((int32x4_t)high, kShift));
}
// Values i (7 - i) of the result, shifted down as far as one instruction does it.
template <int kShift>
static inline I16x8 shift_sums(const Parts& low, const Parts& high, int i) {
    if constexpr (kShift < 16) {
        return shift_to_i16<kShift>(low.even[i] + low.odd[i], high.even[i] + high.odd[i]);
    }
    return (I16x8)vcombine_u16(vaddhn_u32((uint32x4_t)low.even[i], (uint32x4_t)low.odd[i]),
                               vaddhn_u32((uint32x4_t)high.even[i], (uint32x4_t)high.odd[i]));
}
template <int kShift>
static inline I16x8 shift_differences(const Parts& low, const Parts& high, int i) {
    if constexpr (kShift < 16) {
        return shift_to_i16<kShift>(low.even[i] - low.odd[i], high.even[i] - high.odd[i]);
    }
    return (I16x8)vcombine_u16(vsubhn_u32((uint32x4_t)low.even[i], (uint32x4_t)low.odd[i]),
                               vsubhn_u32((uint32x4_t)high.even[i], (uint32x4_t)high.odd[i]));
}

// The samples of two rows of those, with the rest of the shift.
template <int kShift>
static inline U8x16 finish_shift(I16x8 a, I16x8 b) {
    return (U8x16)vcombine_u8(vqshrun_n_s16((int16x8_t)a, kShift - 16),
                              vqshrun_n_s16((int16x8_t)b, kShift - 16));
}

#else

// Lanes 0 to 3 (4 to 7) of two rows.
struct LanePairs {
    I16x8 both;
};
static inline LanePairs pair_low(I16x8 a, I16x8 b) { return {interleave_low(a, b)}; }
static inline LanePairs pair_high(I16x8 a, I16x8 b) { return {interleave_high(a, b)}; }

template <int kFirst, int kSecond>
static inline U32x4 products(const LanePairs& v) {
    constexpr int16_t a = idct_factor(kFirst), b = idct_factor(kSecond);
    const I16x8 factors = {a, b, a, b, a, b, a, b};
    return (U32x4)_mm_madd_epi16((__m128i)v.both, (__m128i)factors);
}
template <int kFirst, int kSecond>
static inline U32x4 add_products(U32x4 sum, const LanePairs& v) {
    return sum + products<kFirst, kSecond>(v);
}

// Signed sums, shifted down and saturated to 16 bits.
template <int kShift>
static inline I16x8 shift_to_i16(U32x4 low, U32x4 high) {
    return (I16x8)_mm_packs_epi32((__m128i)((I32x4)low >> kShift),
                                  (__m128i)((I32x4)high >> kShift));
}

// Values i (7 - i) of the result.
template <int kShift>
static inline I16x8 shift_sums(const Parts& low, const Parts& high, int i) {
    return shift_to_i16<kShift>(low.even[i] + low.odd[i], high.even[i] + high.odd[i]);
}
template <int kShift>
static inline I16x8 shift_differences(const Parts& low, const Parts& high, int i) {
    return shift_to_i16<kShift>(low.even[i] - low.odd[i], high.even[i] - high.odd[i]);
}

// The samples of two rows of those.
template <int kShift>
static inline U8x16 finish_shift(I16x8 a, I16x8 b) {
    return clip_to_u8(a, b);
}

#endif

// One pass down columns 0 to 3 (4 to 7). kRows: rows from there on are zero.
template <int kRows, int kShift, LanePairs (*pair)(I16x8, I16x8)>
[[gnu::always_inline]] static inline void transform_columns(const I16x8 row[8], Parts* out) {
    const U32x4 round = U32x4{} + (1u << (kShift - 1));
    idct_parts<kRows>(pair(row[0], row[4]), pair(row[2], row[6]), pair(row[1], row[3]),
                      pair(row[5], row[7]), round, out->even, out->odd);
}

// One pass down all columns, in place.
template <int kRows, int kShift>
[[gnu::always_inline]] static inline void transform_rows(I16x8 row[8]) {
    Parts low, high;
    transform_columns<kRows, kShift, pair_low>(row, &low);
    transform_columns<kRows, kShift, pair_high>(row, &high);
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) {
        row[i] = shift_sums<kShift>(low, high, i);
        row[7 - i] = shift_differences<kShift>(low, high, i);
    }
}

// The first pass and the transposition when columns 4 to 7 are zero: rows 0 to 3 of the result.
template <int kRows>
[[gnu::always_inline]] static inline void transform_half_rows(I16x8 row[8]) {
    Parts parts;
    transform_columns<kRows, kIdctShift1, pair_low>(row, &parts);
    const U32x4* const even = parts.even;
    const U32x4* const odd = parts.odd;
    I16x8 two_rows[4] = {shift_to_i16<kIdctShift1>(even[0] + odd[0], even[1] + odd[1]),
                         shift_to_i16<kIdctShift1>(even[2] + odd[2], even[3] + odd[3]),
                         shift_to_i16<kIdctShift1>(even[3] - odd[3], even[2] - odd[2]),
                         shift_to_i16<kIdctShift1>(even[1] - odd[1], even[0] - odd[0])};
    perfect_shuffle<3>(two_rows);
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) row[i] = two_rows[i];
}

// kWidth and kHeight: 4 or 8, from there on the coefficients are zero.
template <int kWidth, int kHeight>
static void transform(uint8_t* dst, size_t pitch, int16_t* block) {
    I16x8* const in = reinterpret_cast<I16x8*>(block);
    I16x8 row[8] = {};
#pragma GCC unroll 8
    for (int i = 0; i < kWidth; ++i) {
        row[i] = in[i];
        in[i] = I16x8{};
    }
    if (kHeight == 8) {
        transform_rows<kWidth, kIdctShift1>(row);
        perfect_shuffle<3>(row);
    } else {
        transform_half_rows<kWidth>(row);
    }
    transform_rows<kHeight, kIdctShift2>(row);
#pragma GCC unroll 4
    for (int i = 0; i < 8; i += 2, dst += 2 * pitch) {
        store_8_8(dst, dst + pitch, finish_shift<kIdctShift2>(row[i], row[i + 1]));
    }
}

void m4v_idct_simd(uint8_t* dst, size_t pitch, int16_t* block, unsigned width, unsigned height) {
    if (width > 4) {
        (height > 4 ? transform<8, 8> : transform<8, 4>)(dst, pitch, block);
    } else {
        (height > 4 ? transform<4, 8> : transform<4, 4>)(dst, pitch, block);
    }
}
