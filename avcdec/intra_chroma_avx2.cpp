// SPDX-License-Identifier: BSD-2-Clause
// Chroma with AVX2, both components at once: Cb in the lower halves of vectors, Cr in the upper
// ones. All modes but the plane take each sample from a neighbour or from a mean; where the blocks
// have no more than a DC coefficient the residual is added before anything is stored.
#include "avcdec/intra_modes.h"
#include "avcdec/macroblock.h"
#include "avcdec/quantiser.h"
#include "avcdec/recon_kernels.h"
#include "avcdec/residual_vectors.h"

// What a half holds: the row above, then the left column; and their sums by fours.
enum ChromaSum { kSumTop0, kSumTop1, kSumLeft0, kSumLeft1 };

static constexpr uint8_t kNone = 0x80;

// How a mode makes a component.
struct alignas(16) ChromaRecipe {
    // Each block's mean is half of that of two sums.
    int32_t sums[2][4];
    // Bytes of the neighbours and of the means for two rows at a time; none is a zero.
    uint8_t from_neighbours[4][16];
    uint8_t from_means[4][16];
};

static constexpr int first_sum(int mode, int block) {
    if (mode == kIntraChromaDcLeft || (mode != kIntraChromaDcTop && block == 2)) {
        return block & 2 ? kSumLeft1 : kSumLeft0;
    }
    return block & 1 ? kSumTop1 : kSumTop0;
}

static constexpr int second_sum(int mode, int block) {
    const bool has_two = mode != kIntraChromaDcLeft && mode != kIntraChromaDcTop;
    if (has_two && block == 0) return kSumLeft0;
    if (has_two && block == 3) return kSumLeft1;
    return first_sum(mode, block);
}

static constexpr ChromaRecipe make_recipe(int mode) {
    ChromaRecipe r = {};
    for (int block = 0; block < 4; ++block) {
        r.sums[0][block] = first_sum(mode, block);
        r.sums[1][block] = second_sum(mode, block);
    }
    for (int i = 0; i < 64; ++i) {
        const int x = i & 7, y = i >> 3;
        uint8_t& neighbour = r.from_neighbours[y / 2][i & 15];
        uint8_t& mean = r.from_means[y / 2][i & 15];
        neighbour = mean = kNone;
        if (mode == kIntraChromaHorizontal) {
            neighbour = static_cast<uint8_t>(8 + y);
        } else if (mode == kIntraChromaVertical) {
            neighbour = static_cast<uint8_t>(x);
        } else {
            mean = static_cast<uint8_t>(4 * (2 * (y / 4) + x / 4));
        }
    }
    return r;
}

static constexpr ChromaRecipe kRecipes[8] = {
    make_recipe(0), make_recipe(1), make_recipe(2), make_recipe(3),
    make_recipe(4), make_recipe(5), make_recipe(6), make_recipe(7),
};

static inline U8x32 take(U8x32 source, const uint8_t* places) {
    const U8x16 both = load_16(places);
    return (U8x32)_mm256_shuffle_epi8((__m256i)source, (__m256i)join(both, both));
}

static inline U8x32 load_neighbours(const uint8_t* cb, const uint8_t* cr, ptrdiff_t pitch) {
    const __m256i above = (__m256i)join(load_4x4(cb - 4, pitch), load_4x4(cr - 4, pitch));
    const __m256i below =
        (__m256i)join(load_4x4(cb + 4 * pitch - 4, pitch), load_4x4(cr + 4 * pitch - 4, pitch));
    const __m256i left =
        _mm256_packus_epi32(_mm256_srli_epi32(above, 24), _mm256_srli_epi32(below, 24));
    const U8x16 none = {};
    const auto load_top = [&](const uint8_t* p) { return load_8_8(p - pitch, p - pitch); };
    const __m256i top = (__m256i)join(load_top(cb), load_top(cr));
    return (U8x32)_mm256_unpacklo_epi64(top, _mm256_packus_epi16(left, (__m256i)join(none, none)));
}

static inline __m256i load_sums(const int32_t (&sums)[4]) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(sums)));
}

// Rows by twos.
struct ChromaRows {
    U8x32 v[4];
};

static inline ChromaRows predict(U8x32 neighbours, const ChromaRecipe& r) {
    const __m256i pairs = _mm256_maddubs_epi16((__m256i)neighbours, _mm256_set1_epi8(1));
    const __m256 fours = _mm256_castsi256_ps(_mm256_madd_epi16(pairs, _mm256_set1_epi16(1)));
    const auto sum = [&](int i) {
        return _mm256_castps_si256(_mm256_permutevar_ps(fours, load_sums(r.sums[i])));
    };
    const __m256i eights = _mm256_add_epi32(sum(0), sum(1));
    const auto means = (U8x32)_mm256_srli_epi32(_mm256_add_epi32(eights, _mm256_set1_epi32(4)), 3);
    ChromaRows rows;
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) {
        rows.v[i] = take(neighbours, r.from_neighbours[i]) | take(means, r.from_means[i]);
    }
    return rows;
}

// The levels of both components, transformed (H.264 8.5.11) and scaled, the upper halves of the
// words 0.
static inline __m256i dc_coefficients(const int16_t* levels, const AvcDcScale* scales) {
    const auto level = [&](int i) { return static_cast<uint16_t>(levels[i]); };
    const U16x8 words = {level(0),  level(1),  level(2),  level(3),
                         level(16), level(17), level(18), level(19)};
    const __m256i x = _mm256_cvtepi16_epi32((__m128i)words);
    const __m256i pairs =
        _mm256_add_epi32(_mm256_shuffle_epi32(x, 0xb1),
                         _mm256_sign_epi32(x, _mm256_setr_epi32(1, -1, 1, -1, 1, -1, 1, -1)));
    const __m256i dc =
        _mm256_add_epi32(_mm256_shuffle_epi32(pairs, 0x4e),
                         _mm256_sign_epi32(pairs, _mm256_setr_epi32(1, 1, -1, -1, 1, 1, -1, -1)));
    const __m256i factors = _mm256_setr_m128i(_mm_set1_epi32(scales[kCompCb].factor),
                                              _mm_set1_epi32(scales[kCompCr].factor));
    const __m256i scaled = _mm256_srai_epi32(_mm256_mullo_epi32(dc, factors), 5);
    return _mm256_and_si256(scaled, _mm256_set1_epi32(0xffff));
}

// Adds to each block what its DC coefficient makes.
static inline void add_dc(ChromaRows* rows, __m256i dc) {
    const I16x16 residual = (I16x16)((U16x16)_mm256_packus_epi32(dc, dc) + 32) >> 6;
    const U8x32 up = clip_to_u8(residual, residual), down = clip_to_u8(-residual, -residual);
    alignas(16) static constexpr uint8_t kOfBlocks[2][16] = {
        {0, 0, 0, 0, 1, 1, 1, 1, 0, 0, 0, 0, 1, 1, 1, 1},
        {2, 2, 2, 2, 3, 3, 3, 3, 2, 2, 2, 2, 3, 3, 3, 3}};
#pragma GCC unroll 2
    for (int i = 0; i < 2; ++i) {
        const U8x32 more = take(up, kOfBlocks[i]), less = take(down, kOfBlocks[i]);
        rows->v[2 * i] = sub_saturate(add_saturate(rows->v[2 * i], more), less);
        rows->v[2 * i + 1] = sub_saturate(add_saturate(rows->v[2 * i + 1], more), less);
    }
}

static inline void store(const ChromaRows& rows, uint8_t* cb, uint8_t* cr, ptrdiff_t pitch) {
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i, cb += 2 * pitch, cr += 2 * pitch) {
        store_8_8(cb, cb + pitch, low_half(rows.v[i]));
        store_8_8(cr, cr + pitch, high_half(rows.v[i]));
    }
}

static inline ChromaRows load(const uint8_t* cb, const uint8_t* cr, ptrdiff_t pitch) {
    ChromaRows rows;
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i, cb += 2 * pitch, cr += 2 * pitch) {
        rows.v[i] = join(load_8_8(cb, cb + pitch), load_8_8(cr, cr + pitch));
    }
    return rows;
}

static bool is_recipe(uint8_t mode) {
    return mode != kIntraChromaPlane && mode != kIntraChromaNone;
}

static void intra_chroma(const ReconKernels& k, AvcMacroblock* mb, uint8_t* const plane[2],
                         ptrdiff_t pitch) {
    uint8_t *const cb = plane[0], *const cr = plane[1];
    ChromaRows rows;
    if (is_recipe(mb->chroma_mode)) {
        rows = predict(load_neighbours(cb, cr, pitch), kRecipes[mb->chroma_mode]);
    } else {
        k.pred_chroma[mb->chroma_mode](cb, pitch);
        k.pred_chroma[mb->chroma_mode](cr, pitch);
        rows = load(cb, cr, pitch);
    }
    __m256i dc = _mm256_setzero_si256();
    if (mb->coded_mask & kChromaDcMask) {
        int16_t* const levels = mb->coefficients + (kDcBlock + kCompCb) * 16;
        dc = dc_coefficients(levels, mb->dc_scales);
        memset(levels, 0, 4 * sizeof *levels);
        memset(levels + 16, 0, 4 * sizeof *levels);
    }
    if (mb->ac_mask & kChromaMask) {
        int16_t* const of_cb = mb->coefficients + 16 * 16;
        int16_t* const of_cr = of_cb + 4 * 16;
        const auto none = _mm256_setzero_si256();
        add_four(rows.v, of_cb, of_cr, (U16x16)_mm256_unpacklo_epi32(dc, none));
        add_four(rows.v + 2, of_cb + 32, of_cr + 32, (U16x16)_mm256_unpackhi_epi32(dc, none));
    } else if (mb->coded_mask & kChromaDcMask) {
        add_dc(&rows, dc);
    }
    store(rows, cb, cr, pitch);
}

void intra_chroma_use_avx2(ReconKernels* k) { k->intra_chroma = intra_chroma; }
