// SPDX-License-Identifier: BSD-2-Clause
// Macroblocks of 4x4 blocks with AVX2. Modes are as good as random, and so is which blocks have
// coefficients: nothing here branches on a block. All residuals are transformed before the first
// block is predicted; a block then is its line of neighbours, the averages along it, and from these
// whatever its mode takes. As each block waits for the one before, they go in pairs.
#include "avcdec/intra_modes.h"
#include "avcdec/macroblock.h"
#include "avcdec/recon_kernels.h"
#include "avcdec/residual_vectors.h"

// The line of a block: the left column from the bottom up, the corner, the row above and to the
// right, with its first and last sample twice.
enum LinePlace { kBottomLeft = 1, kLeft = 4, kCorner = 5, kTop = 6, kLineEnd = 15 };

// Bytes of one of the sources for each sample of a block; none is a zero.
struct alignas(16) Places {
    uint8_t at[16];
};
static constexpr uint8_t kNone = 0x80;
static constexpr Places kNothing = {{kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone,
                                     kNone, kNone, kNone, kNone, kNone, kNone, kNone}};

// How a mode makes a block of its line. The block is the sum of what it takes of each source.
struct ModeRecipe {
    Places line_above;  // the part of the line that comes from the row above
    Places mean;        // the eight samples of which the DC modes take the mean; of the line
    Places from_mean;
    Places from_line;
    Places from_pairs;    // at i the mean of samples i and i + 1 of the line
    Places from_triples;  // at i the one of samples i to i + 2, the middle one counted twice
};

// What is above a block: the row above, four samples that end with the corner, and in the last four
// places those above and to the right.
enum AbovePlace { kAboveCorner = 7, kAboveRight = 12 };

static constexpr Places line_above(bool has_right) {
    Places p = kNothing;
    p.at[kCorner] = kAboveCorner;
    for (int i = 0; kTop + i < kLineEnd; ++i) {
        const int right = !has_right ? 3 : i < 8 ? kAboveRight + i - 4 : kAboveRight + 3;
        p.at[kTop + i] = static_cast<uint8_t>(i < 4 ? i : right);
    }
    return p;
}

static constexpr Places mean_of(bool has_left, bool has_top) {
    Places p = kNothing;
    for (int i = 0; i < 4; ++i) {
        p.at[i] = static_cast<uint8_t>(i + (has_left ? int{kBottomLeft} : int{kTop}));
        p.at[4 + i] = static_cast<uint8_t>(i + (has_top ? int{kTop} : int{kBottomLeft}));
    }
    return p;
}

// One sample of the directional modes (H.264 8.3.1.2.1 to 8.3.1.2.9).
static constexpr void add_sample(ModeRecipe* r, int mode, int x, int y) {
    const int i = 4 * y + x;
    const auto line = [&](int place) { r->from_line.at[i] = static_cast<uint8_t>(place); };
    const auto pair = [&](int place) { r->from_pairs.at[i] = static_cast<uint8_t>(place); };
    const auto around = [&](int place) { r->from_triples.at[i] = static_cast<uint8_t>(place - 1); };
    const int half_x = x >> 1, half_y = y >> 1;
    switch (mode) {
        case kIntraVertical:
            return line(kTop + x);
        case kIntraHorizontal:
            return line(kLeft - y);
        case kIntraDiagonalDownLeft:
        case kIntraDownLeftNoRight:
            return around(kTop + x + y + 1);
        case kIntraDiagonalDownRight:
            return around(kCorner + x - y);
        case kIntraVerticalRight:
            if (2 * x - y < -1) return around(kLeft - (y - 2));
            return y % 2 ? around(kCorner + x - half_y) : pair(kCorner + x - half_y);
        case kIntraHorizontalDown:
            if (2 * y - x < -1) return around(kTop + x - 2);
            return x % 2 ? around(kCorner - y + half_x) : pair(kLeft - y + half_x);
        case kIntraVerticalLeft:
        case kIntraVerticalLeftNoRight:
            return y % 2 ? around(kTop + x + half_y + 1) : pair(kTop + x + half_y);
        case kIntraHorizontalUp:
            if (x + 2 * y > 5) return line(kBottomLeft);
            return x % 2 ? around(kLeft - y - half_x - 1) : pair(kLeft - y - half_x - 1);
        default:
            r->from_mean.at[i] = 0;
    }
}

struct ModeRecipes {
    ModeRecipe of[kIntraVerticalLeftNoRight + 1];  // by IntraNxNMode
};

static constexpr ModeRecipes make_recipes() {
    ModeRecipes recipes = {};
    int mode = 0;
    for (ModeRecipe& r : recipes.of) {
        const bool has_right = mode != kIntraDownLeftNoRight && mode != kIntraVerticalLeftNoRight;
        r = {line_above(has_right),
             mean_of(mode != kIntraDcTop, mode != kIntraDcLeft),
             kNothing,
             kNothing,
             kNothing,
             kNothing};
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 4; ++x) add_sample(&r, mode, x, y);
        }
        ++mode;
    }
    return recipes;
}

static constexpr ModeRecipes kRecipes = make_recipes();

// Two blocks that do not need each other, in the halves of vectors.
struct BlockPair {
    uint8_t* block[2];
    int16_t* residual[2];
    const ModeRecipe* recipe[2];
};

static inline U8x32 take(U8x32 source, const Places& low, const Places& high) {
    return (U8x32)_mm256_shuffle_epi8((__m256i)source,
                                      (__m256i)join(load_16(low.at), load_16(high.at)));
}

static inline U8x32 take(U8x32 source, const BlockPair& pair, Places ModeRecipe::*places) {
    return take(source, pair.recipe[0]->*places, pair.recipe[1]->*places);
}

// left has the four rows before the blocks, four samples each; the last four samples of right are
// those above and to the right.
static inline U8x32 make_line(const BlockPair& pair, ptrdiff_t pitch, U8x32 left, U8x32 right) {
    static constexpr Places kLineLeft = {{15, 15, 11, 7, 3, kNone, kNone, kNone, kNone, kNone,
                                          kNone, kNone, kNone, kNone, kNone, kNone}};
    const auto load_above = [&](int i) {
        const uint8_t* const top = pair.block[i] - pitch;
        return (U8x16)U32x4{load_4(top), load_4(top - 4)};
    };
    const U8x32 above = join(load_above(0), load_above(1));
    constexpr int kLastOfEach = 0x88;
    const auto with_right = (U8x32)_mm256_blend_epi32((__m256i)above, (__m256i)right, kLastOfEach);
    return take(left, kLineLeft, kLineLeft) | take(with_right, pair, &ModeRecipe::line_above);
}

// Rows of four samples.
static inline U8x32 predict(U8x32 line, const BlockPair& pair) {
    const U8x32 next = slide<1>(line);
    const U8x32 pairs = average(line, next);
    const U8x32 triples = average(next, average_down(line, slide<2>(line)));
    const U8x32 eight = take(line, pair, &ModeRecipe::mean);
    const U64x4 sum = (U64x4)_mm256_sad_epu8((__m256i)eight, (__m256i)U8x32{});
    const U8x32 mean = (U8x32)((sum + 4) >> 3);
    return (take(mean, pair, &ModeRecipe::from_mean) | take(line, pair, &ModeRecipe::from_line)) |
           (take(pairs, pair, &ModeRecipe::from_pairs) |
            take(triples, pair, &ModeRecipe::from_triples));
}

// A macroblock whose coefficients have become residuals.
struct Macroblock {
    AvcMacroblock* mb;
    uint8_t* dst;
    ptrdiff_t pitch;

    uint8_t* block(int b) const { return dst + 4 * block_y(b) * pitch + 4 * block_x(b); }
    // What make_line takes from outside the macroblock.
    U8x16 left(int b) const { return load_4x4(block(b) - 4, pitch); }
    // To the right of the macroblock may be the other field, which has no samples yet.
    U8x16 right(int b) const {
        const bool is_there = b != 5 || mb->available & kHasTopRight;
        return (U8x16)U32x4{0, 0, 0, load_4(block(b) - pitch + (is_there ? 4 : 0))};
    }
};

// Makes two blocks, or one twice, and returns their samples.
[[gnu::noinline]] static U8x32 make_pair(const Macroblock& m, int b0, int b1, U8x32 left,
                                         U8x32 right) {
    const auto recipe = [&](int b) { return &kRecipes.of[m.mb->modes[b]]; };
    const BlockPair pair = {{m.block(b0), m.block(b1)},
                            {m.mb->coefficients + 16 * b0, m.mb->coefficients + 16 * b1},
                            {recipe(b0), recipe(b1)}};
    const auto load_two_rows = [&](int first) {
        return (I16x16)join((U8x16)load_8_values(pair.residual[0] + 4 * first),
                            (U8x16)load_8_values(pair.residual[1] + 4 * first));
    };
    const U8x32 samples = predict(make_line(pair, m.pitch, left, right), pair);
    const U8x32 sum =
        clip_to_u8(widen_low(samples) + load_two_rows(0), widen_high(samples) + load_two_rows(2));
    store_4x4(pair.block[0], m.pitch, low_half(sum));
    store_4x4(pair.block[1], m.pitch, high_half(sum));
    clear<16>(pair.residual[0]);
    clear<16>(pair.residual[1]);
    return sum;
}

static inline U8x32 twice(U8x16 v) { return join(v, v); }
static inline U8x32 swap_halves(U8x32 v) { return join(high_half(v), low_half(v)); }

// From the coefficients of four blocks to their residuals, row by row.
static inline void transform_four(int16_t* coefficients) {
    U16x16 x[4];
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) x[i] = load_16_values(coefficients + 16 * i);
    const U16x16 ab_even = low_halves(x[0], x[1]), ab_odd = high_halves(x[0], x[1]);
    const U16x16 cd_even = low_halves(x[2], x[3]), cd_odd = high_halves(x[2], x[3]);
    x[0] = join_low(ab_even, cd_even);
    x[1] = join_low(ab_odd, cd_odd);
    x[2] = join_high(ab_even, cd_even);
    x[3] = join_high(ab_odd, cd_odd);
    transform_pairs(x);
#pragma GCC unroll 4
    for (U16x16& rows : x) rows = (U16x16)((I16x16)rows >> 6);
    const U16x16 ac_rows01 = low_halves(x[0], x[1]), bd_rows01 = high_halves(x[0], x[1]);
    const U16x16 ac_rows23 = low_halves(x[2], x[3]), bd_rows23 = high_halves(x[2], x[3]);
    store_16_values(coefficients, join_low(ac_rows01, ac_rows23));
    store_16_values(coefficients + 16, join_low(bd_rows01, bd_rows23));
    store_16_values(coefficients + 32, join_high(ac_rows01, ac_rows23));
    store_16_values(coefficients + 48, join_high(bd_rows01, bd_rows23));
}

// Blocks of even rows are in the lower halves and those of odd rows, two columns behind, in the
// upper ones. Samples that the next pair waits for stay in registers.
static void intra_4x4(const ReconKernels&, AvcMacroblock* mb, uint8_t* dst, ptrdiff_t pitch) {
    for (int quadrant = 0; quadrant < 4; ++quadrant) {
        const bool is_coded = mb->coded_mask << 4 * quadrant >> 28;
        if (is_coded) transform_four(mb->coefficients + 64 * quadrant);
    }
    const Macroblock m = {mb, dst, pitch};
    U8x32 s = make_pair(m, 0, 0, twice(m.left(0)), twice(m.right(0)));
    s = make_pair(m, 1, 1, s, twice(m.right(1)));
    s = make_pair(m, 4, 2, join(low_half(s), m.left(2)), join(m.right(4), low_half(s)));
    s = make_pair(m, 5, 3, s, join(m.right(5), low_half(s)));
    s = make_pair(m, 8, 6, join(m.left(8), high_half(s)), swap_halves(s));
    s = make_pair(m, 9, 7, s, swap_halves(s));
    s = make_pair(m, 12, 10, join(low_half(s), m.left(10)), swap_halves(s));
    s = make_pair(m, 13, 11, s, swap_halves(s));
    s = make_pair(m, 14, 14, twice(high_half(s)), twice(low_half(s)));
    make_pair(m, 15, 15, s, s);
}

void intra_4x4_use_avx2(ReconKernels* k) { k->intra_4x4 = intra_4x4; }
