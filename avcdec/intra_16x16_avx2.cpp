// SPDX-License-Identifier: BSD-2-Clause
// Intra 16x16 luma with AVX2: prediction and residual are one, and no mode but the plane has code
// of its own.
#include "avcdec/intra_modes.h"
#include "avcdec/macroblock.h"
#include "avcdec/quantiser.h"
#include "avcdec/recon_kernels.h"
#include "avcdec/residual_vectors.h"

// How a mode makes two rows at a time.
struct Recipe16 {
    uint8_t top, left, mean;          // all ones for the one that it takes
    uint8_t step;                     // from the bytes for two rows to those for the next two
    uint8_t top_weight, left_weight;  // of the sums of neighbours in the mean, 2 together
};

static constexpr Recipe16 kRecipes[8] = {
    {0xff, 0, 0, 0, 1, 1}, {0, 0xff, 0, 2, 1, 1}, {0, 0, 0xff, 0, 1, 1}, {0, 0, 0xff, 0, 1, 1},
    {0, 0, 0xff, 0, 0, 2}, {0, 0, 0xff, 0, 2, 0}, {0, 0, 0xff, 0, 1, 1}, {0, 0, 0xff, 0, 1, 1},
};

// Rows by twos.
struct LumaRows {
    U8x32 v[8];
};

static inline U8x32 twice(U8x16 v) { return join(v, v); }
// Of the quarters, the first and the last stay.
static inline U8x32 swap_quarters(U8x32 v) {
    return (U8x32)_mm256_permute4x64_epi64((__m256i)v, 0xd8);
}
static inline U8x32 take(U8x32 source, U8x32 places) {
    return (U8x32)_mm256_shuffle_epi8((__m256i)source, (__m256i)places);
}

// The left column downward.
static inline U8x16 load_left(const uint8_t* dst, ptrdiff_t pitch) {
    const auto four = [&](int y) {
        return _mm_srli_epi32((__m128i)load_4x4(dst + y * pitch - 4, pitch), 24);
    };
    return (U8x16)_mm_packus_epi16(_mm_packus_epi32(four(0), four(4)),
                                   _mm_packus_epi32(four(8), four(12)));
}

static inline LumaRows predict(const uint8_t* dst, ptrdiff_t pitch, const Recipe16& r) {
    static constexpr U8x32 kAcross = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15,
                                      0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    static constexpr U8x32 kDown = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    const U8x16 top = load_16(dst - pitch), left = load_left(dst, pitch);
    const uint32_t sum = sum_16(top) * r.top_weight + sum_16(left) * r.left_weight;
    const U8x16 mean = splat_u8(static_cast<int>((sum + 16) >> 5));
    const U8x32 source = twice((top & r.top) | (left & r.left) | (mean & r.mean));
    U8x32 places = (kDown & r.left) | (kAcross & static_cast<uint8_t>(~r.left));
    LumaRows rows;
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i, places += r.step) rows.v[i] = take(source, places);
    return rows;
}

static inline LumaRows load(const uint8_t* dst, ptrdiff_t pitch) {
    LumaRows rows;
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i, dst += 2 * pitch) {
        rows.v[i] = join(load_16(dst), load_16(dst + pitch));
    }
    return rows;
}

// Four values of each half.
static inline __m256i hadamard_rows(__m256i x) {
    const __m256i pairs =
        _mm256_add_epi32(_mm256_shuffle_epi32(x, 0xb1),
                         _mm256_sign_epi32(x, _mm256_setr_epi32(1, -1, 1, -1, 1, -1, 1, -1)));
    return _mm256_add_epi32(_mm256_shuffle_epi32(pairs, 0x50),
                            _mm256_sign_epi32(_mm256_shuffle_epi32(pairs, 0xfa),
                                              _mm256_setr_epi32(1, -1, -1, 1, 1, -1, -1, 1)));
}

// The levels, transformed (H.264 8.5.10) and scaled, of 16 bits: rows 0, 2, 1 and 3.
static inline U16x16 dc_coefficients(const int16_t* levels, const AvcDcScale& scale) {
    const __m256i all = (__m256i)load_16_values(levels);
    const auto rows = [](__m128i v) { return hadamard_rows(_mm256_cvtepi16_epi32(v)); };
    const __m256i r01 = rows(_mm256_castsi256_si128(all));
    const __m256i r23 = rows(_mm256_extracti128_si256(all, 1));
    const __m256i sum = _mm256_add_epi32(r01, r23), difference = _mm256_sub_epi32(r01, r23);
    const __m256i even = _mm256_permute2x128_si256(sum, difference, 0x20);
    const __m256i odd = _mm256_permute2x128_si256(sum, difference, 0x31);
    const __m256i dc30 = _mm256_sub_epi32(even, odd);
    const auto scaled = [&](__m256i dc) {
        const __m256i product = _mm256_mullo_epi32(dc, _mm256_set1_epi32(scale.factor));
        const __m256i rounded = _mm256_add_epi32(product, _mm256_set1_epi32(scale.add));
        return _mm256_and_si256(_mm256_sra_epi32(rounded, _mm_cvtsi32_si128(scale.shift)),
                                _mm256_set1_epi32(0xffff));
    };
    return (U16x16)_mm256_packus_epi32(scaled(_mm256_add_epi32(even, odd)),
                                       scaled(_mm256_permute2x128_si256(dc30, dc30, 0x01)));
}

// Adds to each block what its DC coefficient makes.
static inline void add_dc(LumaRows* rows, U16x16 dc) {
    const I16x16 residual = (I16x16)(dc + 32) >> 6;
    const U8x32 up = clip_to_u8(residual, residual), down = clip_to_u8(-residual, -residual);
    const U8x32 of_row[4] = {twice(low_half(up)), twice(high_half(up)), twice(low_half(down)),
                             twice(high_half(down))};
    constexpr U8x32 kOfBlocks = {0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3,
                                 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3};
#pragma GCC unroll 4
    for (int y = 0; y < 4; ++y) {
        const U8x32 places = kOfBlocks + static_cast<uint8_t>(4 * (y >> 1));
        const U8x32 more = take(of_row[y & 1], places), less = take(of_row[2 + (y & 1)], places);
        for (int i = 2 * y; i < 2 * y + 2; ++i) {
            rows->v[i] = sub_saturate(add_saturate(rows->v[i], more), less);
        }
    }
}

// Adds what the coefficients make of the four blocks beside each other, whose DC ones come apart.
static inline void add_row_of_blocks(U8x32* rows, int16_t* coefficients, __m128i dc) {
    U8x32 halves[2] = {swap_quarters(rows[0]), swap_quarters(rows[1])};
    add_four(halves, coefficients, coefficients + 64, (U16x16)_mm256_cvtepu16_epi64(dc));
    rows[0] = swap_quarters(halves[0]);
    rows[1] = swap_quarters(halves[1]);
}

static inline void add_blocks(LumaRows* rows, int16_t* coefficients, U16x16 dc) {
    const __m128i rows02 = (__m128i)low_half((U8x32)dc), rows13 = (__m128i)high_half((U8x32)dc);
    add_row_of_blocks(rows->v, coefficients, rows02);
    add_row_of_blocks(rows->v + 2, coefficients + 32, rows13);
    add_row_of_blocks(rows->v + 4, coefficients + 128, _mm_srli_si128(rows02, 8));
    add_row_of_blocks(rows->v + 6, coefficients + 160, _mm_srli_si128(rows13, 8));
}

static void intra_16x16(const ReconKernels& k, AvcMacroblock* mb, uint8_t* dst, ptrdiff_t pitch) {
    LumaRows rows;
    if (mb->intra16_mode == kIntra16Plane) {
        k.pred16x16[kIntra16Plane](dst, pitch);
        rows = load(dst, pitch);
    } else {
        rows = predict(dst, pitch, kRecipes[mb->intra16_mode]);
    }
    const bool has_dc = mb->coded_mask & block_bit(kDcBlock);
    U16x16 dc = {};
    if (has_dc) {
        int16_t* const levels = mb->coefficients + kDcBlock * 16;
        dc = dc_coefficients(levels, mb->dc_scales[kCompY]);
        clear<16>(levels);
    }
    if (mb->ac_mask & kLumaMask) {
        add_blocks(&rows, mb->coefficients, dc);
    } else if (has_dc) {
        add_dc(&rows, dc);
    }
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i, dst += 2 * pitch) {
        store_16(dst, low_half(rows.v[i]));
        store_16(dst + pitch, high_half(rows.v[i]));
    }
}

void intra_16x16_use_avx2(ReconKernels* k) { k->intra_16x16 = intra_16x16; }
