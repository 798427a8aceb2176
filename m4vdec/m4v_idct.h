// SPDX-License-Identifier: BSD-2-Clause
// 8x8 inverse DCT of an intra block straight into the picture. Integer arithmetic that every
// variant follows to the bit; meets the accuracy bounds of IEEE 1180.
#pragma once

#include <stddef.h>
#include <stdint.h>

// The index of a coefficient in a block: by columns, so that a vector pass along u reads rows.
constexpr unsigned m4v_position(unsigned u, unsigned v) { return u * 8 + v; }

// Transforms and clamps to 0..255.
//   dst      8 rows of 8 samples, pitch bytes apart
//   block    64 coefficients, u (horizontal frequency) * 8 + v, each -2048..2047 (any int16 is
//            safe, but sums may wrap), 16-byte aligned; all zero afterwards
//   width    1 to 8: coefficients with u >= width are zero
//   height   1 to 8: coefficients with v >= height are zero
using M4vIdctFn = void (*)(uint8_t* dst, size_t pitch, int16_t* block, unsigned width,
                           unsigned height);

// The reference, always built, and what the build may add: for SSE2 or NEON, and for AVX2.
void m4v_idct_scalar(uint8_t* dst, size_t pitch, int16_t* block, unsigned width, unsigned height);
void m4v_idct_simd(uint8_t* dst, size_t pitch, int16_t* block, unsigned width, unsigned height);
void m4v_idct_avx2(uint8_t* dst, size_t pitch, int16_t* block, unsigned width, unsigned height);

// Lists the variants of this build that this processor can run, the reference first and the fastest
// last. Returns how many those are.
constexpr unsigned kM4vIdctVariants = 3;
unsigned m4v_idct_variants(M4vIdctFn variants[kM4vIdctVariants]);

M4vIdctFn m4v_idct_best();

// The transform of a block that has only a DC coefficient: every sample is this one.
constexpr int m4v_idct_dc_sample(int dc) {
    // The first pass gives 8 * dc, the second rounds 2^14 * 8 * dc to multiples of 2^20.
    const int sample = (dc + 4) >> 3;
    return sample < 0 ? 0 : sample > 255 ? 255 : sample;
}
