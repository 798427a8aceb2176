// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_idct.h"

#include <string.h>

#include "m4vdec/m4v_idct_pass.h"
#include "runtime/byte_order.h"
#include "runtime/processor.h"

// Unsigned, so that sums may wrap as they do in a vector register.
struct ValuePair {
    uint32_t first, second;
};

template <int kFirst, int kSecond>
static inline uint32_t products(ValuePair v) {
    return v.first * static_cast<uint32_t>(idct_factor(kFirst)) +
           v.second * static_cast<uint32_t>(idct_factor(kSecond));
}
template <int kFirst, int kSecond>
static inline uint32_t add_products(uint32_t sum, ValuePair v) {
    return sum + products<kFirst, kSecond>(v);
}

template <unsigned kShift>
static void idct_1d(const int16_t* in, size_t stride, int32_t out[8]) {
    uint32_t sums[8];
    const auto pair = [&](size_t a, size_t b) {
        return ValuePair{static_cast<uint32_t>(in[a * stride]),
                         static_cast<uint32_t>(in[b * stride])};
    };
    idct_pass<8>(pair(0, 4), pair(2, 6), pair(1, 3), pair(5, 7), 1u << (kShift - 1), sums);
    for (unsigned i = 0; i < 8; ++i) out[i] = static_cast<int32_t>(sums[i]) >> kShift;
}

static int16_t saturate(int32_t v) { return static_cast<int16_t>(clip3(INT16_MIN, INT16_MAX, v)); }

void m4v_idct_scalar(uint8_t* dst, size_t pitch, int16_t* block, unsigned width, unsigned height) {
    int16_t rows[64];  // [x][v] after the pass along u
    int32_t out[8];
    for (unsigned v = 0; v < height; ++v) {
        if (width == 1) {  // what the pass makes of a lone DC term
            for (unsigned x = 0; x < 8; ++x) rows[x * 8 + v] = saturate(block[v] * 8);
            continue;
        }
        idct_1d<kIdctShift1>(block + v, 8, out);
        for (unsigned x = 0; x < 8; ++x) rows[x * 8 + v] = saturate(out[x]);
    }
    for (unsigned x = 0; x < 8; ++x) {
        memset(rows + x * 8 + height, 0, (8 - height) * sizeof(int16_t));
        idct_1d<kIdctShift2>(rows + x * 8, 1, out);
        for (unsigned y = 0; y < 8; ++y) dst[y * pitch + x] = clip_u8(out[y]);
    }
    memset(block, 0, 64 * sizeof(int16_t));
}

unsigned m4v_idct_variants(M4vIdctFn variants[kM4vIdctVariants]) {
    unsigned count = 0;
    variants[count++] = m4v_idct_scalar;
#if KEYSTILL_HAS_SIMD
    if (processor_has_simd()) variants[count++] = m4v_idct_simd;
#endif
#if KEYSTILL_M4V_AVX2
    if (__builtin_cpu_supports("avx2")) variants[count++] = m4v_idct_avx2;
#endif
    return count;
}

M4vIdctFn m4v_idct_best() {
    M4vIdctFn variants[kM4vIdctVariants];
    return variants[m4v_idct_variants(variants) - 1];
}
