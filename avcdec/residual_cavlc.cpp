// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/residual_cavlc.h"

#include "avcdec/cavlc_tables.h"

// The reader stays in registers while a block is read: whatever takes its address is inlined.
#define KS_INLINE [[gnu::always_inline]] static inline

static constexpr ResidualCount kNoCode = {-1, 0};

// Zeros in front of the next 1, at most limit. The cache holds more than limit bits.
KS_INLINE int leading_zeros(const AvcBitReader* r, int limit) {
    const BitWord guard = BitWord{1} << (kBitWordSize - 1 - limit);
    if constexpr (kBitWordSize == 64) return __builtin_clzll(r->cache | guard);
    return __builtin_clz(static_cast<uint32_t>(r->cache | guard));
}

KS_INLINE CoeffToken read_coeff_token(AvcBitReader* r, int nc) {
    if (nc >= 8) {  // fixed length: total_coeff - 1 and trailing ones; 000011 stands for none
        const uint32_t code = bits_cached(r, 6);
        bits_drop(r, 6);
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
    const int zeros = leading_zeros(r, 15);
    const uint32_t further = static_cast<uint32_t>(r->cache << zeros << 1 >> (kBitWordSize - 3));
    const CoeffToken token = row[zeros * 8 + static_cast<int>(further)];
    bits_drop(r, token.length);
    return token;
}

// The longest level code that is read in one step: level_prefix 14 and level_suffix of 6 bits.
static constexpr int kMaxShortLevel = 15 + 6;

// The level codes of long prefixes (H.264 9.2.2.1): 14 with suffix_length 0, 15, and the longer
// ones with longer suffixes; more than 24 zeros are no code word of any profile and read as 24.
static int32_t read_long_level_code(AvcBitReader* r, int suffix_length) {
    bits_refill(r);
    const int prefix = leading_zeros(r, 24);
    bits_drop(r, prefix);
    bits_need(r, 1);
    bits_drop(r, 1);
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

struct LevelCode {
    int prefix;  // level_prefix; for long codes any value from 14 on
    int32_t code;
};

// level_prefix and level_suffix.
KS_INLINE LevelCode read_level_code(AvcBitReader* r, int suffix_length) {
    bits_need(r, kMaxShortLevel);
    const int prefix = leading_zeros(r, 15);
    if (prefix + (suffix_length == 0) >= 15) [[unlikely]] {
        AvcBitReader copy = *r;
        const int32_t code = read_long_level_code(&copy, suffix_length);
        *r = copy;
        return {prefix, code};
    }
    // The 1 behind the prefix and the suffix, as one number.
    const int length = prefix + 1 + suffix_length;
    const uint32_t tail = bits_cached(r, length);
    bits_drop(r, length);
    return {prefix, ((prefix - 1) << suffix_length) + static_cast<int32_t>(tail)};
}

KS_INLINE int32_t level_of_code(int32_t code) {
    const int32_t sign = -(code & 1);
    return (((code + 2) >> 1) ^ sign) - sign;
}

// Fills levels from the highest frequency down: the trailing ones, then the coded levels.
//
// suffix_length grows behind a level above 3 << (suffix_length - 1). That is a code of 3 <<
// suffix_length and more, hence a prefix of 3 and more: the prefix alone tells, and the next code
// need not wait for the level.
KS_INLINE void read_levels(AvcBitReader* r, const CoeffToken& token, int32_t* levels) {
    const int ones = token.trailing_ones;
    const int total = token.total_coeff;
    const uint32_t signs = static_cast<uint32_t>(r->cache >> (kBitWordSize - 3));
    bits_drop(r, ones);
    levels[0] = 1 - static_cast<int32_t>(signs >> 1 & 2);
    levels[1] = 1 - static_cast<int32_t>(signs & 2);
    levels[2] = 1 - static_cast<int32_t>(signs << 1 & 2);
    if (ones == total) return;

    // Without three trailing ones in front, a level of 1 would have been one of them. The first
    // prefix that is worth a suffix_length of 2 is lower for that.
    const int first_length = total > 10 && ones < 3 ? 1 : 0;
    const int first_large = ones == 3 ? 6 : 4 - 2 * first_length;
    LevelCode level = read_level_code(r, first_length);
    levels[ones] = level_of_code(level.code + (ones < 3 ? 2 : 0));
    int suffix_length = 1 + (level.prefix >= first_large);
    for (int i = ones + 1; i < total; ++i) {
        level = read_level_code(r, suffix_length);
        levels[i] = level_of_code(level.code);
        suffix_length += (level.prefix >= 3) & (suffix_length < 6);
    }
}

// For what is no code word: more zeros than any block has room for.
static constexpr int kNoTotalZeros = 16;

KS_INLINE int read_total_zeros(AvcBitReader* r, int total, int max_coefficients) {
    bits_refill(r);
    const uint32_t entry =
        max_coefficients == 4
            ? kTotalZerosChroma.entry[total][bits_cached(r, kTotalZerosChromaBits)]
            : kTotalZeros.entry[total][bits_cached(r, kTotalZerosBits)];
    bits_drop(r, static_cast<int>(entry >> 4));
    return entry == 0 ? kNoTotalZeros : static_cast<int>(entry & 15);
}

KS_INLINE int read_run_before(AvcBitReader* r, int zeros_left) {
    bits_need(r, 11);
    const uint32_t entry = kRunBefore.entry[zeros_left][bits_cached(r, kRunBeforeBits)];
    if (entry == kLongRun) [[unlikely]] {
        const int zeros = leading_zeros(r, 10);  // 0001 is 7, each further zero one more
        bits_drop(r, zeros + 1);
        return zeros + 4;
    }
    bits_drop(r, static_cast<int>(entry >> 4));
    return static_cast<int>(entry & 15);
}

// The block behind its coeff_token.
[[gnu::noinline]] static ResidualCount read_coefficients(AvcBitReader* reader, CoeffToken token,
                                                         int max_coefficients,
                                                         const ResidualTarget& target) {
    AvcBitReader r = *reader;  // in registers for the whole block
    const int total = token.total_coeff;
    int32_t levels[16];
    read_levels(&r, token, levels);
    int zeros_left = total < max_coefficients ? read_total_zeros(&r, total, max_coefficients) : 0;
    if (total + zeros_left > max_coefficients) return kNoCode;

    // The target is copied out of reach of the stores into the coefficients.
    const uint8_t* const scan = target.scan;
    const AvcScale scale = target.scale;
    int16_t* const coefficients = target.coefficients;
    int index = total + zeros_left - 1;
    const int end = index + 1;
    for (int i = 0;; ++i, --index) {
        coefficients[scan[index]] = scale_level(levels[i], scale.factors[index], scale);
        if (i + 1 == total) break;
        const int run = read_run_before(&r, zeros_left);
        zeros_left -= run;
        index -= run;
        if (zeros_left < 0) return kNoCode;
    }
    *reader = r;
    return {total, end};
}

ResidualCount cavlc_read_block(AvcBitReader* reader, int nc, int max_coefficients,
                               const ResidualTarget& target) {
    bits_refill(reader);
    const CoeffToken token = read_coeff_token(reader, nc);
    const int total = token.total_coeff;
    if (total == 0 || total > max_coefficients) {
        return token.length == 0 || total != 0 ? kNoCode : ResidualCount{0, 0};
    }
    return read_coefficients(reader, token, max_coefficients, target);
}
