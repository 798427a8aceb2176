// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/residual_cavlc.h"

#include <string.h>

#include "avcdec/cavlc_tables.h"
#include "avcdec/quant_tables.h"
#include "avcdec/residual_target.h"

// The window stays in registers while a group of blocks is read: whatever takes its address is
// inlined.
#define KS_INLINE [[gnu::always_inline]] static inline

// nC of a chroma DC block of 4:2:0.
static constexpr int kChromaDcNc = -2;

// The reader of a group of blocks.
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

KS_INLINE CoeffToken read_coeff_token(BitWindow* w, int nc) {
    if (nc >= 8) {  // fixed length: total_coeff - 1 and trailing ones; 000011 stands for none
        const uint32_t code = bits_cached(w, 6);
        bits_drop(w, 6);
        if (code == 3) return {6, 0, 0};
        const uint32_t ones = code & 3;
        const uint32_t total = (code >> 2) + 1;
        if (ones > total) return {0, 0, 0};
        return {6, static_cast<uint8_t>(ones), static_cast<uint8_t>(total)};
    }
    // By nC + 2: chroma DC, a value that does not occur, 0 to 7.
    static constexpr uint8_t kRows[10] = {
        kCoeffTokenChromaDc, kCoeffToken0, kCoeffToken0, kCoeffToken0, kCoeffToken2,
        kCoeffToken2,        kCoeffToken4, kCoeffToken4, kCoeffToken4, kCoeffToken4,
    };
    const CoeffToken* const row = kCoeffTokens.row[kRows[nc + 2]];
    const int zeros = leading_zeros(w, 15);
    const uint32_t further = static_cast<uint32_t>(w->cache << zeros << 1 >> (kBitWordSize - 3));
    const CoeffToken token = row[zeros * 8 + static_cast<int>(further)];
    bits_drop(w, token.length);
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

struct Level {
    int32_t value;
    int next_row;
};

// A level whose code is longer than the table's.
[[gnu::noinline, gnu::cold]] static Level read_long_level(AvcBitReader* r, int row) {
    const LevelRow& rules = kLevelRowTable[row];
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
    return {level_of_code(code + rules.code_offset), level_row_behind(row, prefix)};
}

// Fills levels from the highest frequency down: the trailing ones, then the coded levels.
KS_INLINE void read_levels(BlockReader* r, const CoeffToken& token, int32_t* levels) {
    BitWindow* const w = &r->window;
    const int ones = token.trailing_ones;
    const int total = token.total_coeff;
    const uint32_t signs = static_cast<uint32_t>(w->cache >> (kBitWordSize - 3));
    bits_drop(w, ones);
    levels[0] = 1 - static_cast<int32_t>(signs >> 1 & 2);
    levels[1] = 1 - static_cast<int32_t>(signs & 2);
    levels[2] = 1 - static_cast<int32_t>(signs << 1 & 2);
    int row = ones == 3 ? kFirstBehindOnes : total > 10 ? kFirstOfMany : kFirstLevel;
    for (int i = ones; i < total; ++i) {
        need(r, kLevelBits);
        const int entry = kLevels.entry[row][bits_cached(w, kLevelBits)];
        if (entry != 0) [[likely]] {
            bits_drop(w, entry & 15);
            row = entry >> 4 & 15;
            levels[i] = entry >> 8;
        } else {
            static_cast<BitWindow&>(*r->source) = *w;
            const Level level = read_long_level(r->source, row);
            *w = *r->source;
            row = level.next_row;
            levels[i] = level.value;
        }
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
    need(r, 11);
    const uint32_t entry = kRunBefore.entry[zeros_left][bits_cached(w, kRunBeforeBits)];
    if (entry == kLongRun) [[unlikely]] {
        const int zeros = leading_zeros(w, 10);  // 0001 is 7, each further zero one more
        bits_drop(w, zeros + 1);
        return zeros + 4;
    }
    bits_drop(w, static_cast<int>(entry >> 4));
    return static_cast<int>(entry & 15);
}

struct ResidualCount {
    int total;  // coefficients that are not 0: 0 to 16, or -1 for what is no code word
    int end;    // one past the highest scan index that was written
};

// Reads one block of at most max_coefficients (4, 15 or 16) and writes its scaled coefficients; the
// others are left alone. nC is kChromaDcNc or 0 to 16.
KS_INLINE ResidualCount read_block(BlockReader* r, int nc, int max_coefficients,
                                   const ResidualTarget& target) {
    constexpr ResidualCount kNoCode = {-1, 0};
    refill(r);
    const CoeffToken token = read_coeff_token(&r->window, nc);
    const int total = token.total_coeff;
    if (total == 0) return token.length == 0 ? kNoCode : ResidualCount{0, 0};
    if (total > max_coefficients) return kNoCode;
    __attribute__((uninitialized)) int32_t levels[16];
    read_levels(r, token, levels);
    int zeros_left = total < max_coefficients ? read_total_zeros(r, total, max_coefficients) : 0;
    if (total + zeros_left > max_coefficients) return kNoCode;
    int index = total + zeros_left - 1;
    const int end = index + 1;
    for (int i = 0;; ++i, --index) {
        target.coefficients[target.scan[index]] =
            scale_level(levels[i], target.scale.factors[index], target.scale);
        if (i + 1 == total) break;
        const int run = read_run_before(r, zeros_left);
        zeros_left -= run;
        index -= run;
        if (zeros_left < 0) return kNoCode;
    }
    return {total, end};
}

// H.264 9.2.1. Each count is 0 to 16, or kCountMissing.
KS_INLINE int block_nc(uint32_t left, uint32_t top) {
    const uint32_t sum = left + top;
    // With both there, the rounded mean; else the one that is there, or 0.
    return static_cast<int>(sum < kCountMissing ? (sum + 1) >> 1 : sum & 31);
}

// What the blocks of a group have in common.
struct GroupLayout {
    ResidualTarget target;  // of the first block
    int list_step;          // from block to block in scan and factors
    int block_step;         // and in coefficients
    int max_coefficients;
    int first;  // scan index of the first coefficient
};

static GroupLayout layout_of(AvcSliceReader* s, const BlockGroup& group) {
    AvcMacroblock* const mb = &s->mb;
    int16_t* const coefficients = mb->coefficients + group.block * 16;
    const bool is_luma = group.component == kCompY;
    if (group.block >= kDcBlock) {
        const uint8_t* const scan = is_luma ? kZigzag4x4.data() : kRasterScan;
        return {{scan, kUnitScale, coefficients}, 0, 0, is_luma ? 16 : 4, 0};
    }
    if (is_luma && mb->kind == kMbIntra8x8) {  // interleaved lists of one block
        return {{kScan8x8Interleaved.data(), s->quantiser.scale8x8, coefficients}, 16, 0, 16, 0};
    }
    const int first = !is_luma || mb->kind == kMbIntra16x16;
    AvcScale scale = s->quantiser.scale4x4[group.component];
    scale.factors += first;
    return {{kScan4x4.data() + first, scale, coefficients}, 0, 16, 16 - first, first};
}

// A DC block leaves the counts of its neighbours alone.
[[gnu::noinline]] static void read_group(AvcSliceReader* s, const BlockGroup& group) {
    AvcMacroblock* const mb = &s->mb;
    GroupLayout layout = layout_of(s, group);
    const bool is_dc = group.block >= kDcBlock;
    uint8_t* const left = s->left.counts + group.left;
    uint8_t* const top = s->top->counts + group.top;
    BlockReader r = {s->bits, &s->bits};
    for (int i = 0; i < group.count; ++i) {
        uint8_t* const l = left + (i >> 1);
        uint8_t* const t = top + (i & 1);
        const int nc = layout.max_coefficients == 4 ? kChromaDcNc : block_nc(*l, *t);
        ResidualCount count = read_block(&r, nc, layout.max_coefficients, layout.target);
        if (count.total < 0) {
            mb->has_error = 1;
            count = {0, 0};
        }
        if (!is_dc) *l = *t = static_cast<uint8_t>(count.total);
        if (count.total != 0) {
            const uint32_t bit = block_bit(group.block + i * layout.block_step / 16);
            mb->coded_mask |= bit;
            // A list behind the first one has no DC coefficient.
            if (layout.first + count.end + i * layout.list_step > 1) mb->ac_mask |= bit;
        }
        layout.target.scan += layout.list_step;
        layout.target.scale.factors += layout.list_step;
        layout.target.coefficients += layout.block_step;
    }
    static_cast<BitWindow&>(s->bits) = r.window;
}

static void set_no_counts(AvcSliceReader* s, const BlockGroup& group) {
    if (group.block >= kDcBlock) return;
    memset(s->left.counts + group.left, 0, 2);
    memset(s->top->counts + group.top, 0, 2);
}

void cavlc_read_residual(AvcSliceReader* s) {
    const int32_t mb_qp_delta = bits_se(&s->bits);
    if (mb_qp_delta != 0) quantiser_update(&s->quantiser, mb_qp_delta);
    const uint32_t groups = mb_coded_groups(s->mb);
    for (int g = 0; g < kBlockGroups; ++g) {
        const BlockGroup& group = kBlockGroupTable[g];
        if (groups >> g & 1) {
            read_group(s, group);
        } else {
            set_no_counts(s, group);
        }
    }
    mb_set_dc(s);
}
