// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/residual_cavlc.h"

#include <string.h>

#include "avcdec/cavlc_tables.h"
#include "avcdec/residual_target.h"

// The window stays in registers while the blocks of a macroblock are read: whatever takes its
// address is inlined.
#define KS_INLINE [[gnu::always_inline]] static inline

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

KS_INLINE CoeffToken read_coeff_token(BitWindow* w, uint32_t counts) {
    const uint32_t row = kCoeffTokenRows.of[counts];
    const int zeros = leading_zeros(w, kCoeffTokenMostZeros);
    const auto one_and_further = static_cast<uint32_t>(w->cache >> (kBitWordSize - 4 - zeros));
    const uint32_t usual =
        one_and_further + static_cast<uint32_t>(kCoeffTokenMostZeros - zeros) * 8;
    const uint32_t fixed = bits_cached(w, kCoeffTokenFixedBits);
    const CoeffToken token = kCoeffTokens.entry[row + (row == kCoeffToken8 ? fixed : usual)];
    bits_drop(w, token.length());
    return token;
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

KS_INLINE int32_t read_long_level(BlockReader* r, size_t* row) {
    static_cast<BitWindow&>(*r->source) = r->window;
    int index = static_cast<int>(*row >> kLevelBits);
    const int32_t level = read_long_level(r->source, &index);
    r->window = *r->source;
    *row = static_cast<size_t>(index) << kLevelBits;
    return level;
}

// The levels of a block from the lowest frequency up, which is from the last one that is coded to
// the first. Three trailing ones are always written, those that are not there in front of the
// others, for which two places are kept.
struct Levels {
    int32_t value[2 + 16];
};

KS_INLINE void read_levels(BlockReader* r, CoeffToken token, Levels* levels) {
    BitWindow* const w = &r->window;
    const int ones = token.trailing_ones();
    const int total = static_cast<int>(token.total_coeff());
    const uint32_t signs = static_cast<uint32_t>(w->cache >> (kBitWordSize - 3));
    bits_drop(w, ones);
    int32_t* const at = levels->value + 2;
    int32_t* const last = levels->value + total - 1;  // two before the highest frequency
    last[2] = 1 - static_cast<int32_t>(signs >> 1 & 2);
    last[1] = 1 - static_cast<int32_t>(signs & 2);
    last[0] = 1 - static_cast<int32_t>(signs << 1 & 2);
    size_t row = token.level_row();
    ptrdiff_t i = total - ones - 1;
    while (i > 0) {
        need(r, kLevelBits);
        const LevelEntry entry = kLevels.entry[row + bits_cached(w, kLevelBits)];
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
    const LevelEntry entry = kLevels.entry[row + bits_cached(w, kLevelBits)];
    if (entry.packed != 0) [[likely]] {
        bits_drop(w, entry.first_length());
        at[0] = entry.first();
    } else {
        at[0] = read_long_level(r, &row);
    }
}

// By a code that is longer than the table's: some zeros, a 1, and a bit unless there are eight
// zeros. For what is no code word, more than any block has room for.
KS_INLINE uint32_t read_many_zeros(BitWindow* w) {
    const int zeros = leading_zeros(w, 9);
    if (zeros == 9) return 16;
    const bool has_0 = zeros < 8 && (w->cache << zeros << 1 >> (kBitWordSize - 1)) == 0;
    bits_drop(w, zeros < 8 ? zeros + 2 : 9);
    return 2 * static_cast<uint32_t>(zeros) - 1 + has_0;
}

KS_INLINE uint32_t read_total_zeros(BlockReader* r, uint32_t total, bool is_chroma_dc) {
    BitWindow* const w = &r->window;
    refill(r);
    uint32_t entry;
    if (is_chroma_dc) [[unlikely]] {
        entry = kTotalZerosChroma.entry[total][bits_cached(w, kTotalZerosChromaBits)];
    } else {
        entry = kTotalZeros.entry[total][bits_cached(w, kTotalZerosBits)];
    }
    if (entry == 0) [[unlikely]]
        return read_many_zeros(w);
    bits_drop(w, static_cast<int>(entry >> 4));
    return entry & 15;
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

// Two runs, of which one is long. kLongRuns where they are longer than the zeros that are left.
KS_INLINE ZerosLeft read_long_runs(BlockReader* r, int zeros_left) {
    const int between = zeros_left - read_run_before(r, zeros_left);
    if (between < 0) return kLongRuns;
    const int zeros = between - read_run_before(r, between);
    return zeros < 0 ? kLongRuns : ZerosLeft::of(0, between, zeros);
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

// A place that no block has, nor has any its neighbours.
static constexpr uint8_t kChromaDcSeen = 51;

static constexpr CodedList coded_list(int row, int i) {
    const auto [block, grid] = block_place(i);
    if (i == 0) return {block, grid, kGridLuma, kScaleLumaDc, 0, 16};
    const auto cb_or_cr = static_cast<uint8_t>(i < 23 ? kCompCb : kCompCr);
    if (i >= 19) return {block, grid, grid, cb_or_cr, 1, 15};
    if (i >= 17) return {block, grid, kChromaDcSeen, kScaleChromaDc, 0, 4};
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

// Reads a list and writes its scaled coefficients; the others are left alone. Returns the number of
// coefficients that are not 0, or -1 for what is no code word; *highest is the scan index of the
// first one read.
//   counts   the sum of those of the neighbours, or kCountsOfChromaDc
KS_INLINE int read_coefficients(BlockReader* r, AvcSliceReader* s, const CodedList& list,
                                uint32_t counts, uint32_t* highest) {
    const uint32_t max_coefficients = list.max_coefficients;
    refill(r);
    const CoeffToken token = read_coeff_token(&r->window, counts);
    const uint32_t total = token.total_coeff();
    if (total == 0) return token.packed == 0 ? -1 : 0;
    if (total > max_coefficients) return -1;
    __attribute__((uninitialized)) Levels levels;
    read_levels(r, token, &levels);
    const uint32_t total_zeros =
        total < max_coefficients ? read_total_zeros(r, total, max_coefficients == 4) : 0;
    if (total + total_zeros > max_coefficients) return -1;
    *highest = total + total_zeros - 1;
    const ResidualTarget target = {s->quantiser.scales[list.scale] + list.start,
                                   s->mb.coefficients + list.block * 16};
    const auto put = [&](size_t coefficient, size_t zeros_left) {
        put_level(levels.value[2 + coefficient], target.scale[coefficient + zeros_left],
                  target.coefficients);
    };
    size_t left = total - 1;
    put(left, total_zeros);
    size_t row = size_t{total_zeros} << kRunPairBits;
    while (left > 1) {
        need(r, kRunPairBits);
        ZerosLeft zeros = kRunPairs.entry[row + bits_cached(&r->window, kRunPairBits)];
        if (zeros.packed == kLongRuns.packed) [[unlikely]] {
            zeros = read_long_runs(r, static_cast<int>(row >> kRunPairBits));
            if (zeros.packed == kLongRuns.packed) return -1;
        } else {
            bits_drop(&r->window, zeros.length());
        }
        row = zeros.row();
        put(left - 1, zeros.between());
        left -= 2;
        put(left, row >> kRunPairBits);
    }
    if (left != 0) {
        const int zeros = static_cast<int>(row >> kRunPairBits);
        const int zeros_left = zeros - read_run_before(r, zeros);
        if (zeros_left < 0) return -1;
        put(0, static_cast<size_t>(zeros_left));
    }
    return static_cast<int>(total);
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
KS_INLINE void read_list(BlockReader* r, AvcSliceReader* s, const CodedList& list,
                         CountGrid* grid) {
    AvcMacroblock* const mb = &s->mb;
    const uint32_t counts = uint32_t{grid->at[list.seen - 1]} + grid->at[list.seen - 8];
    uint32_t highest;
    const int total = read_coefficients(r, s, list, counts, &highest);
    if (total < 0) mb->has_error = 1;
    if (total <= 0) return;
    grid->at[list.grid] = static_cast<uint8_t>(total);
    const uint32_t bit = block_bit(list.block);
    mb->coded_mask |= bit;
    if (list.start + highest > 0) mb->ac_mask |= bit;
}

// Reads blocks (bits of blocks_of_pattern).
[[gnu::noinline]] static void read_blocks(AvcSliceReader* s, uint32_t blocks) {
    const CodedList* const lists = lists_of(s->mb.kind);
    CountGrid grid = {};
    grid.at[kChromaDcSeen - 8] = kCountsOfChromaDc;
    put_counts(&grid, kLeftColumn, s->left.counts);
    put_counts(&grid, kTopRow, s->top->counts);
    BlockReader r = {s->bits, &s->bits};
    // The place of the next list, or of none behind the last, is there before a block ends.
    const auto next_list = [&] { return lists + __builtin_ctz(blocks | 1U << kBlocks); };
    for (const CodedList* next = next_list(); blocks != 0;) {
        const CodedList& list = *next;
        blocks &= blocks - 1;
        next = next_list();
        read_list(&r, s, list, &grid);
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
