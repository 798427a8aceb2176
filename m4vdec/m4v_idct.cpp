// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_idct.h"

#include <assert.h>
#include <string.h>
#if defined(__ARM_FEATURE_SIMD32)
#include <arm_acle.h>
#endif

#include "m4vdec/m4v_idct_pass.h"
#include "runtime/byte_order.h"
#include "runtime/processor.h"

#if defined(__ARM_FEATURE_SIMD32)

// Both in one register, which 32-bit ARM multiplies and adds up in one instruction. Sums wrap.
struct ValuePair {
    int16x2_t both;
};
static inline ValuePair make_pair(int16_t first, int16_t second) {
    return {static_cast<int16x2_t>(static_cast<uint16_t>(first) |
                                   static_cast<uint32_t>(static_cast<uint16_t>(second)) << 16)};
}

template <int kFirst, int kSecond>
static inline uint32_t products(ValuePair v) {
    constexpr int kFactors = (idct_factor(kFirst) & 0xffff) | idct_factor(kSecond) << 16;
    return static_cast<uint32_t>(__smuad(v.both, kFactors));
}
template <int kFirst, int kSecond>
static inline uint32_t add_products(uint32_t sum, ValuePair v) {
    constexpr int kFactors = (idct_factor(kFirst) & 0xffff) | idct_factor(kSecond) << 16;
    return static_cast<uint32_t>(__smlad(v.both, kFactors, static_cast<int>(sum)));
}

static inline bool is_any(ValuePair a, ValuePair b, ValuePair c) {
    return (a.both | b.both | c.both) != 0;
}

static inline int16_t saturate_i16(int32_t v) { return static_cast<int16_t>(__ssat(v, 16)); }
static inline uint8_t saturate_u8(int32_t v) { return static_cast<uint8_t>(__usat(v, 8)); }

#else

// Unsigned, so that sums may wrap as they do in a vector register.
struct ValuePair {
    uint32_t first, second;
};
static inline ValuePair make_pair(int16_t first, int16_t second) {
    return {static_cast<uint32_t>(first), static_cast<uint32_t>(second)};
}

template <int kFirst, int kSecond>
static inline uint32_t products(ValuePair v) {
    return v.first * static_cast<uint32_t>(idct_factor(kFirst)) +
           v.second * static_cast<uint32_t>(idct_factor(kSecond));
}
template <int kFirst, int kSecond>
static inline uint32_t add_products(uint32_t sum, ValuePair v) {
    return sum + products<kFirst, kSecond>(v);
}

static inline bool is_any(ValuePair a, ValuePair b, ValuePair c) {
    return (a.first | a.second | b.first | b.second | c.first | c.second) != 0;
}

static inline int16_t saturate_i16(int32_t v) {
    return static_cast<int16_t>(clip3(INT16_MIN, INT16_MAX, v));
}
static inline uint8_t saturate_u8(int32_t v) { return clip_u8(v); }

#endif

// Arrays that a pass writes whole are spared the zeros that -ftrivial-auto-var-init gives them:
// these would be a sixth of the work.

// Between the passes a row of 8 values stands in pairs as idct_pass takes them: 0 and 4, 2 and 6, 1
// and 3, 5 and 7.
static constexpr uint8_t kSlots[8] = {0, 4, 2, 5, 1, 6, 3, 7};  // of values 0 to 7

// What the pass makes of a lone DC term.
static void spread_dc(int16_t dc, int16_t* out) {
    const int16_t value = saturate_i16(dc * 8);
    for (unsigned x = 0; x < 8; ++x) out[x * 8] = value;
}

// The pass along u. row: coefficient u stands at u * 8. out: the value of column x goes to x * 8.
// kWidth 4 or 8: coefficients from there on are zero. Many rows have a DC term only.
template <unsigned kWidth>
static void transform_row(const int16_t* row, int16_t* out) {
    __attribute__((uninitialized)) uint32_t sums[8];
    const auto pair = [&](unsigned a, unsigned b) {
        return make_pair(row[a * 8], b < kWidth ? row[b * 8] : int16_t{0});
    };
    const ValuePair x26 = pair(2, 6), x13 = pair(1, 3),
                    x57 = kWidth == 8 ? pair(5, 7) : ValuePair{};
    const bool has_x4 = kWidth == 8 && row[4 * 8] != 0;
    if (!has_x4 && !is_any(x26, x13, x57)) return spread_dc(row[0], out);
    idct_pass<kWidth>(pair(0, 4), x26, x13, x57, 1u << (kIdctShift1 - 1), sums);
#pragma GCC unroll 8
    for (unsigned x = 0; x < 8; ++x) {
        out[x * 8] = saturate_i16(static_cast<int32_t>(sums[x]) >> kIdctShift1);
    }
}

// The pass along v, from the slots of a column to its samples. kHeight: as kWidth.
template <unsigned kHeight>
static void transform_column(const int16_t* slots, uint8_t* dst, size_t pitch) {
    __attribute__((uninitialized)) uint32_t sums[8];
    const auto pair = [&](unsigned i) { return make_pair(slots[i], slots[i + 1]); };
    idct_pass<kHeight>(pair(0), pair(2), pair(4), kHeight == 8 ? pair(6) : ValuePair{},
                       1u << (kIdctShift2 - 1), sums);
#pragma GCC unroll 8
    for (unsigned y = 0; y < 8; ++y) {
        dst[y * pitch] = saturate_u8(static_cast<int32_t>(sums[y]) >> kIdctShift2);
    }
}

void m4v_idct_scalar(uint8_t* dst, size_t pitch, int16_t* block, unsigned width, unsigned height) {
    assert(width >= 1 && width <= 8 && height >= 1 && height <= 8);
    // After the pass along u: [x][slot of v].
    alignas(4) __attribute__((uninitialized)) int16_t rows[64];
    for (unsigned v = 0; v < 8; ++v) {
        int16_t* const out = rows + kSlots[v];
        if (v >= height || width == 1) {
            spread_dc(block[v], out);
        } else if (width <= 4) {
            transform_row<4>(block + v, out);
        } else {
            transform_row<8>(block + v, out);
        }
    }
    for (unsigned x = 0; x < 8; ++x) {
        if (height <= 4) {
            transform_column<4>(rows + x * 8, dst + x, pitch);
        } else {
            transform_column<8>(rows + x * 8, dst + x, pitch);
        }
    }
    memset(block, 0, 64 * sizeof(int16_t));
}

unsigned m4v_idct_variants(M4vIdctFn variants[kM4vIdctVariants]) {
    unsigned count = 0;
    variants[count++] = m4v_idct_scalar;
#if KEYSTILL_HAS_SIMD
    if (processor_has_simd()) variants[count++] = m4v_idct_simd;
#endif
#if KEYSTILL_HAS_AVX2
    if (processor_has_avx2()) variants[count++] = m4v_idct_avx2;
#endif
    return count;
}

M4vIdctFn m4v_idct_best() {
    M4vIdctFn variants[kM4vIdctVariants];
    return variants[m4v_idct_variants(variants) - 1];
}
