// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/residual_cavlc.h"

#include <string.h>

#include "avcdec/cavlc_tables.h"
#include "avcdec/residual_target.h"

// The window stays in registers while the blocks of a macroblock are read: whatever takes its
// address is inlined.
#define KS_INLINE [[gnu::always_inline]] static inline

// nC of a chroma DC block of 4:2:0.
static constexpr int kChromaDcNc = -2;

// The reader of a macroblock's blocks.
struct BlockReader {
    BitWindow window;
    AvcBitReader* source;
};

KS_INLINE void need(BlockReader* r, int n) { bits_need(&r->window, r->source, n); }
KS_INLINE void refill(BlockReader* r) { bits_refill(&r->window, r->source); }

// Zeros in front of the next 1, at most limit. The cache holds more than limit bits.
KS_INLINE int leading_zeros(const BitWindow* w, int limit) {
    const BitWord guard = BitWord{1} << (kBitWordSize - 1 - limit);
    if constexpr (kBitWordSize == 64) return __builtin_clzll(w->cache | guard);
    return __builtin_clz(static_cast<uint32_t>(w->cache | guard));
}

// By nC + 2: chroma DC, a value that does not occur, 0 to 7.
static constexpr uint8_t kCoeffTokenRowOf[10] = {
    kCoeffTokenChromaDc, kCoeffToken0, kCoeffToken0, kCoeffToken0, kCoeffToken2,
    kCoeffToken2,        kCoeffToken4, kCoeffToken4, kCoeffToken4, kCoeffToken4,
};

KS_INLINE const CoeffToken& read_coeff_token(BitWindow* w, int nc) {
    const CoeffToken* token;
    if (nc >= 8) {
        token = kCoeffTokens.row[kCoeffToken8] + bits_cached(w, kCoeffTokenFixedBits);
    } else {
        const int zeros = leading_zeros(w, 15);
        const auto further = static_cast<int>(w->cache << zeros << 1 >> (kBitWordSize - 3));
        token = kCoeffTokens.row[kCoeffTokenRowOf[nc + 2]] + zeros * 8 + further;
    }
    bits_drop(w, token->length);
    return *token;
}

// The level codes of long prefixes (H.264 9.2.2.1): 14 with suffix_length 0, 15, and the longer
// ones with longer suffixes; more than 24 zeros are no code word of any profile and read as 24.
static int32_t read_escape(AvcBitReader* r, int prefix, int suffix_length) {
    if (prefix == 14) return 14 + static_cast<int32_t>(bits_read(r, 4));
    int32_t code = 15 << suffix_length;
    if (suffix_length == 0) code += 15;
    if (prefix > 15) code += (1 << (prefix - 3)) - 4096;
    const int size = prefix - 3;
    bits_need(r, size);
    code += static_cast<int32_t>(bits_cached(r, size));
    bits_drop(r, size);
    return code;
}

// A level whose code is longer than the table's. Its row becomes that of the next one.
[[gnu::noinline, gnu::cold]] static int32_t read_long_level(AvcBitReader* r, int* row) {
    const LevelRow& rules = kLevelRowTable[*row];
    const int length = rules.suffix_length;
    bits_need(r, 25);
    const int prefix = leading_zeros(r, 24);
    bits_drop(r, prefix);
    bits_need(r, 1 + length);
    bits_drop(r, 1);
    int32_t code;
    if (prefix + (length == 0) >= 15) {
        code = read_escape(r, prefix, length);
    } else {
        code = prefix << length;
        if (length > 0) code += static_cast<int32_t>(bits_cached(r, length));
        bits_drop(r, length);
    }
    *row = level_row_behind(*row, prefix);
    return level_of_code(code + rules.code_offset);
}

KS_INLINE int32_t read_long_level(BlockReader* r, int* row) {
    static_cast<BitWindow&>(*r->source) = r->window;
    int in_memory = *row;
    const int32_t level = read_long_level(r->source, &in_memory);
    r->window = *r->source;
    *row = in_memory;
    return level;
}

// The levels of a block from the lowest frequency up, which is from the last one that is coded to
// the first. Three trailing ones are always written, those that are not there in front of the
// others, for which two places are kept.
struct Levels {
    int32_t value[2 + 16];
};

KS_INLINE void read_levels(BlockReader* r, const CoeffToken& token, Levels* levels) {
    BitWindow* const w = &r->window;
    const int ones = token.trailing_ones;
    const int total = token.total_coeff;
    const uint32_t signs = static_cast<uint32_t>(w->cache >> (kBitWordSize - 3));
    bits_drop(w, ones);
    int32_t* const at = levels->value + 2;
    int32_t* const last = levels->value + total - 1;  // two before the highest frequency
    last[2] = 1 - static_cast<int32_t>(signs >> 1 & 2);
    last[1] = 1 - static_cast<int32_t>(signs & 2);
    last[0] = 1 - static_cast<int32_t>(signs << 1 & 2);
    int row = ones == 3 ? kFirstBehindOnes : total > 10 ? kFirstOfMany : kFirstLevel;
    int i = total - ones - 1;
    while (i > 0) {
        need(r, kLevelBits);
        const LevelEntry entry = kLevels.entry[row][bits_cached(w, kLevelBits)];
        if (entry.packed != 0) [[likely]] {
            bits_drop(w, entry.length());
            row = entry.next_row();
            at[i] = entry.first();
            at[i - 1] = entry.second();
            i -= entry.count();
        } else {
            at[i--] = read_long_level(r, &row);
        }
    }
    if (i < 0) return;
    need(r, kLevelBits);
    const LevelEntry entry = kLevels.entry[row][bits_cached(w, kLevelBits)];
    if (entry.packed != 0) [[likely]] {
        bits_drop(w, entry.first_length());
        at[0] = entry.first();
    } else {
        at[0] = read_long_level(r, &row);
    }
}

// For what is no code word: more zeros than any block has room for.
static constexpr int kNoTotalZeros = 16;

KS_INLINE int read_total_zeros(BlockReader* r, int total, int max_coefficients) {
    BitWindow* const w = &r->window;
    refill(r);
    const uint32_t entry =
        max_coefficients == 4
            ? kTotalZerosChroma.entry[total][bits_cached(w, kTotalZerosChromaBits)]
            : kTotalZeros.entry[total][bits_cached(w, kTotalZerosBits)];
    bits_drop(w, static_cast<int>(entry >> 4));
    return entry == 0 ? kNoTotalZeros : static_cast<int>(entry & 15);
}

KS_INLINE int read_run_before(BlockReader* r, int zeros_left) {
    BitWindow* const w = &r->window;
    // Others look up that nothing is coded rather than guess.
    if (kBitWordSize == 32 && zeros_left == 0) return 0;
    need(r, 11);
    const uint32_t entry = kRunBefore.entry[zeros_left][bits_cached(w, kRunBeforeBits)];
    if (entry == kLongRun) [[unlikely]] {
        asm("");  // or 32-bit ARM goes through all this, predicated, with every run
        const int zeros = leading_zeros(w, 10);  // 0001 is 7, each further zero one more
        bits_drop(w, zeros + 1);
        return zeros + 4;
    }
    bits_drop(w, static_cast<int>(entry >> 4));
    return static_cast<int>(entry & 15);
}

// The zeros left in front of the next coefficient and of the one after it.
struct TwoZerosLeft {
    int first;
    int second;  // below 0 when a run is longer than the zeros that are left
};

KS_INLINE TwoZerosLeft read_two_runs(BlockReader* r, int zeros_left) {
    BitWindow* const w = &r->window;
    need(r, kRunPairBits);
    const RunPair pair = kRunPairs.entry[zeros_left][bits_cached(w, kRunPairBits)];
    if (pair.packed == kLongRuns) [[unlikely]] {
        const int first = zeros_left - read_run_before(r, zeros_left);
        return {first, first < 0 ? first : first - read_run_before(r, first)};
    }
    bits_drop(w, pair.length());
    const int first = zeros_left - pair.first();
    return {first, first - pair.second()};
}

// Reads one block of at most max_coefficients (4, 15 or 16) and writes its scaled coefficients; the
// others are left alone. nC is kChromaDcNc or 0 to 16. Returns the number of coefficients that are
// not 0, or -1 for what is no code word; *highest is the scan index of the first one read.
KS_INLINE int read_block(BlockReader* r, int nc, int max_coefficients, const ResidualTarget& target,
                         int* highest) {
    refill(r);
    const CoeffToken& token = read_coeff_token(&r->window, nc);
    const int total = token.total_coeff;
    if (total == 0) return token.length == 0 ? -1 : 0;
    if (total > max_coefficients) return -1;
    __attribute__((uninitialized)) Levels levels;
    read_levels(r, token, &levels);
    int zeros_left = total < max_coefficients ? read_total_zeros(r, total, max_coefficients) : 0;
    if (total + zeros_left > max_coefficients) return -1;
    *highest = total + zeros_left - 1;
    const auto put = [&](int coefficient, int zeros) {
        const int index = coefficient + zeros;
        put_level(levels.value[2 + coefficient], target.scale[index], target.coefficients);
    };
    int left = total - 1;
    put(left, zeros_left);
    while (left > 1) {
        const TwoZerosLeft zeros = read_two_runs(r, zeros_left);
        if (zeros.second < 0) return -1;
        zeros_left = zeros.second;
        put(left - 1, zeros.first);
        left -= 2;
        put(left, zeros_left);
    }
    if (left == 0) return total;
    zeros_left -= read_run_before(r, zeros_left);
    if (zeros_left < 0) return -1;
    put(0, zeros_left);
    return total;
}

// H.264 9.2.1. Each count is 0 to 16, or kCountMissing.
KS_INLINE int block_nc(uint32_t left, uint32_t top) {
    const uint32_t sum = left + top;
    // With both there, the rounded mean; else the one that is there, or 0.
    return static_cast<int>(sum < kCountMissing ? (sum + 1) >> 1 : sum & 31);
}

// A list of coefficients, in the order of the syntax. An 8x8 block is four of them, interleaved.
struct alignas(8) CodedList {
    uint8_t block;  // in AvcMacroblock.coefficients
    uint8_t grid;   // MbGridPlace
    uint8_t seen;   // the place whose neighbours it goes by
    uint8_t scale;  // AvcComponent or AvcBlockScale
    uint8_t start;  // scan index of the first coefficient
    uint8_t max_coefficients;
};
enum ListRow { kRow4x4, kRow8x8, kRow16x16, kListRows };
struct CodedLists {
    CodedList row[kListRows][kBlocks];
};

static constexpr CodedList coded_list(int row, int i) {
    const auto [block, grid] = block_place(i);
    if (i == 0) return {block, grid, kGridLuma, kScaleLumaDc, 0, 16};
    const auto cb_or_cr = static_cast<uint8_t>(i < 23 ? kCompCb : kCompCr);
    if (i >= 19) return {block, grid, grid, cb_or_cr, 1, 15};
    if (i >= 17) return {block, grid, grid, kScaleChromaDc, 0, 4};
    if (row == kRow16x16) return {block, grid, grid, kCompY, 1, 15};
    if (row == kRow4x4) return {block, grid, grid, kCompY, 0, 16};
    const auto start = static_cast<uint8_t>(block % 4 * 16);
    return {static_cast<uint8_t>(block & 0xfc), grid, grid, kScale8x8, start, 16};
}

static constexpr CodedLists coded_lists() {
    CodedLists lists{};
    for (int row = 0; row < kListRows; ++row) {
        for (int i = 0; i < kBlocks; ++i) lists.row[row][i] = coded_list(row, i);
    }
    return lists;
}
static constexpr CodedLists kCodedLists = coded_lists();

static const CodedList* lists_of(MbKind kind) {
    const ListRow row = kind == MbKind::kIntra16x16 ? kRow16x16
                        : kind == MbKind::kIntra8x8 ? kRow8x8
                                                    : kRow4x4;
    return kCodedLists.row[row];
}

// The counts of coefficients by MbGridPlace. Nobody looks at those of DC blocks.
struct CountGrid {
    uint8_t at[8 * 8];
};

// Where MbNeighbour.counts stand in a grid: the right column and the bottom row of a macroblock,
// and what it sees of its neighbours.
static constexpr uint8_t kRightColumn[8] = {12, 20, 28, 36, 15, 23, 39, 47};
static constexpr uint8_t kLeftColumn[8] = {8, 16, 24, 32, 13, 21, 37, 45};
static constexpr uint8_t kBottomRow[8] = {33, 34, 35, 36, 22, 23, 46, 47};
static constexpr uint8_t kTopRow[8] = {1, 2, 3, 4, 6, 7, 30, 31};

KS_INLINE void put_counts(CountGrid* grid, const uint8_t* places, const uint8_t* counts) {
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) grid->at[places[i]] = counts[i];
}

KS_INLINE void take_counts(const CountGrid& grid, const uint8_t* places, uint8_t* counts) {
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) counts[i] = grid.at[places[i]];
}

// Reads one list and puts its count into the grid.
KS_INLINE void read_list(BlockReader* r, AvcMacroblock* mb, const CodedList& list,
                         const AvcScaleEntry* scale, CountGrid* grid) {
    const ResidualTarget target = {scale + list.start, mb->coefficients + list.block * 16};
    const int nc = list.max_coefficients == 4
                       ? kChromaDcNc
                       : block_nc(grid->at[list.seen - 1], grid->at[list.seen - 8]);
    int highest;
    const int total = read_block(r, nc, list.max_coefficients, target, &highest);
    if (total < 0) mb->has_error = 1;
    if (total <= 0) return;
    grid->at[list.grid] = static_cast<uint8_t>(total);
    const uint32_t bit = block_bit(list.block);
    mb->coded_mask |= bit;
    if (list.start + highest > 0) mb->ac_mask |= bit;
}

// Reads blocks (bits of blocks_of_pattern).
[[gnu::noinline]] static void read_blocks(AvcSliceReader* s, uint32_t blocks) {
    AvcMacroblock* const mb = &s->mb;
    const CodedList* const lists = lists_of(mb->kind);
    CountGrid grid = {};
    put_counts(&grid, kLeftColumn, s->left.counts);
    put_counts(&grid, kTopRow, s->top->counts);
    BlockReader r = {s->bits, &s->bits};
    for (; blocks != 0; blocks &= blocks - 1) {
        const CodedList& list = lists[__builtin_ctz(blocks)];
        read_list(&r, mb, list, s->quantiser.scales[list.scale], &grid);
    }
    static_cast<BitWindow&>(s->bits) = r.window;
    take_counts(grid, kRightColumn, s->left.counts);
    take_counts(grid, kBottomRow, s->top->counts);
}

void cavlc_read_residual(AvcSliceReader* s) {
    const int32_t mb_qp_delta = bits_se(&s->bits);
    if (mb_qp_delta != 0) quantiser_update(&s->quantiser, mb_qp_delta);
    cavlc_read_plane(s);
}

void cavlc_read_plane(AvcSliceReader* s) {
    read_blocks(s, blocks_of_pattern(s->mb.cbp, s->mb.kind == MbKind::kIntra16x16));
}
