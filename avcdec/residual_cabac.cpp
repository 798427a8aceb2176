// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/residual_cabac.h"

// Context offsets of a category and its size. In 8x8 blocks the context of a position is looked up;
// elsewhere it is the position.
struct CategoryLayout {
    uint16_t significant;
    uint16_t abs_level;
    uint8_t final;        // the highest scan index
    uint8_t max_greater;  // the highest ctxIdxInc - 5 of the bins behind the first
};

static constexpr CategoryLayout kLayouts[6] = {
    {kCtxSignificant + 0, kCtxAbsLevel + 0, 15, 4},
    {kCtxSignificant + 15, kCtxAbsLevel + 10, 14, 4},
    {kCtxSignificant + 29, kCtxAbsLevel + 20, 15, 4},
    {kCtxSignificant + 44, kCtxAbsLevel + 30, 3, 3},
    {kCtxSignificant + 47, kCtxAbsLevel + 39, 14, 4},
    {kCtxSignificant8x8, kCtxAbsLevel8x8, 63, 4},
};

// ctxIdxInc in frame coded 8x8 blocks (H.264 Table 9-43).
// clang-format off
static constexpr uint8_t kSignificant8x8[64] = {
     0,  1,  2,  3,  4,  5,  5,  4,  4,  3,  3,  4,  4,  4,  5,  5,
     4,  4,  4,  4,  3,  3,  6,  7,  7,  7,  8,  9, 10,  9,  8,  7,
     7,  6, 11, 12, 13, 11,  6,  7,  8,  9, 14, 10,  9,  8,  6, 11,
    12, 13, 11,  6,  9, 14, 10,  9, 11, 12, 13, 11, 14, 10, 12,
};
static constexpr uint8_t kLast8x8[63] = {
    0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,
    3, 3, 3, 3, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4,
    5, 5, 5, 5, 6, 6, 6, 6, 7, 7, 7, 7, 8, 8, 8,
};
// clang-format on

// Bit i: position i + 1 has the same context as position i.
static constexpr uint64_t repeated_contexts() {
    uint64_t repeated = 0;
    for (int i = 0; i < 62; ++i) {
        repeated |= uint64_t{kSignificant8x8[i] == kSignificant8x8[i + 1]} << i;
    }
    return repeated;
}

// The context of significant_coeff_flag at scan index i, from the first of its category.
template <bool kIs8x8>
static inline size_t significant_place(size_t i) {
    return kIs8x8 ? kSignificant8x8[i] : i;
}

// The same for last_significant_coeff_flag.
template <bool kIs8x8>
static inline size_t last_place(size_t i) {
    return kIs8x8 ? kCtxLast8x8 - kCtxSignificant8x8 + kLast8x8[i] : kCtxLast - kCtxSignificant + i;
}

// Reads the significance map: the scan indices of the coefficients that are not 0, in scan order.
// contexts begin with those of significant_coeff_flag, final is the highest scan index, indices has
// room for final + 2. Returns the number of indices, 1 to final + 1.
template <bool kIs8x8>
[[gnu::always_inline]] static inline int read_map_by_branches(CabacEngine* e, uint8_t* contexts,
                                                              size_t final, uint8_t* indices) {
    int total = 0;
    for (size_t i = 0; i < final; ++i) {
        if (!cabac_decode_branch(e, contexts + significant_place<kIs8x8>(i))) continue;
        indices[total++] = static_cast<uint8_t>(i);
        if (cabac_decode_branch(e, contexts + last_place<kIs8x8>(i))) return total;
    }
    indices[total++] = static_cast<uint8_t>(final);
    return total;
}

// b when mask is all ones, a when it is 0.
static inline uint64_t choose(uint64_t mask, uint64_t a, uint64_t b) {
    return a ^ ((a ^ b) & mask);
}

// The same map for processors that execute many instructions at once. At high rates its bins cannot
// be predicted, and a branch that goes wrong costs more than a decision. So each turn decodes one
// bin, of either flag, with both contexts that can follow looked up ahead, and what depends on the
// bin is chosen by mask: only the end of the map is a branch.
template <bool kIs8x8>
[[gnu::always_inline]] static inline int read_map_by_masks(CabacEngine* e, uint8_t* contexts,
                                                           size_t final, uint8_t* indices) {
    constexpr uint64_t kRepeated = repeated_contexts();
    uint8_t* out = indices;
    size_t i = 0;
    size_t place = 0;  // of the context of this bin
    uint64_t variable = contexts[0];
    uint64_t row = kCabacLps[variable];
    uint64_t is_last_flag = 0;  // all ones for last_significant_coeff_flag
    for (;;) {
        const size_t place_after_0 = significant_place<kIs8x8>(i + 1);
        const size_t place_after_1 = last_place<kIs8x8>(i);
        uint64_t after_0 = contexts[place_after_0];
        const uint64_t after_1 = contexts[place_after_1];
        if (kIs8x8) {  // the same context again: what a bin of 0 will make of it
            const uint64_t repeated = ~is_last_flag & (0 - (kRepeated >> i & 1));
            after_0 = choose(repeated, after_0, kCabacNext[variable + (variable & 1 ? 0 : 128)]);
        }
        const uint64_t row_after_0 = kCabacLps[after_0];
        const uint64_t row_after_1 = kCabacLps[after_1];

        const uint64_t mps = cabac_decide(e, row);
        contexts[place] = kCabacNext[variable + (mps & 128)];
        cabac_keep_lookahead(e);
        const uint64_t bin = mps ^ ((variable & 1) - 1);  // all ones for 1

        *out = static_cast<uint8_t>(i);
        if (bin & is_last_flag) return static_cast<int>(out - indices);
        out -= static_cast<intptr_t>(bin);
        i += 1 + bin;
        if (i == final) break;
        variable = choose(bin, after_0, after_1);
        row = choose(bin, row_after_0, row_after_1);
        place =
            kIs8x8 ? choose(bin, place_after_0, place_after_1) : i + (bin & last_place<false>(0));
        is_last_flag = bin;
    }
    *out++ = static_cast<uint8_t>(final);
    return static_cast<int>(out - indices);
}

// More bits than the level of any profile has: the stream is broken.
static constexpr int kLevelTooLong = 1 << 21;

// The suffix of coeff_abs_level_minus1, an Exp-Golomb code of order 0 (H.264 9.3.2.3).
[[gnu::always_inline]] static inline int read_level_suffix(CabacEngine* e) {
    int k = 0;
    int value = 0;
    while (cabac_decode_bypass(e)) {
        value += 1 << k;
        if (++k > 20) return kLevelTooLong;
    }
    while (k-- > 0) value += static_cast<int>(cabac_decode_bypass(e)) << k;
    return value;
}

// The absolute value of a level that is at least 2. Its bins share a context, which stays in a
// register.
[[gnu::always_inline]] static inline int read_large_level(CabacEngine* e, uint8_t* context) {
    int level = 2;
    uint8_t variable = *context;
    while (cabac_decode_branch(e, &variable)) {
        if (++level == 15) {
            *context = variable;
            return 15 + read_level_suffix(e);
        }
    }
    *context = variable;
    return level;
}

// Reads the levels of the coefficients at the given scan indices, 1 to 64 of them, from the last to
// the first, and writes them scaled. Returns false when one has more bits than any profile allows.
[[gnu::always_inline]] static inline bool read_levels(CabacEngine* e, uint8_t* contexts,
                                                      int max_greater, const uint8_t* indices,
                                                      int total, const ResidualTarget& target) {
    int ones = 1;     // ctxIdxInc of the first bin: 1 + levels of 1 so far, 0 behind a larger one
    int greater = 0;  // larger levels so far
    bool is_valid = true;
    for (int n = total - 1; n >= 0; --n) {
        int level = 1;
        if (cabac_decode_branch(e, contexts + ones)) {
            level = read_large_level(e, contexts + 5 + greater);
            is_valid &= level < kLevelTooLong;
            if (greater < max_greater) ++greater;
            ones = 0;
        } else if (ones > 0 && ones < 4) {
            ++ones;
        }
        const int sign = -static_cast<int>(cabac_decode_bypass(e));
        const int index = indices[n];
        target.coefficients[target.scan[index]] =
            scale_level((level ^ sign) - sign, target.scale.factors[index], target.scale);
    }
    return is_valid;
}

// Reads what stands behind coded_block_flag.
template <bool kIs8x8, bool kByMasks>
[[gnu::always_inline]] static inline ResidualCount read_coefficients(CabacEngine* e,
                                                                     uint8_t* contexts,
                                                                     ResidualCategory category,
                                                                     const ResidualTarget& target) {
    const CategoryLayout& layout = kLayouts[category];
    uint8_t* const map = contexts + layout.significant;
    const size_t final = kIs8x8 ? 63 : layout.final;
    uint8_t indices[65];
    const int total = kByMasks ? read_map_by_masks<kIs8x8>(e, map, final, indices)
                               : read_map_by_branches<kIs8x8>(e, map, final, indices);
    const bool is_valid =
        read_levels(e, contexts + layout.abs_level, layout.max_greater, indices, total, target);
    return {is_valid ? total : -1, indices[total - 1] + 1};
}

// Masks take twice the instructions of branches, too many for 32-bit processors, which execute
// few at once. (Not measured on one.)
static constexpr bool kHasMasks = kBitWordSize == 64;

ResidualCount cabac_read_block(CabacEngine* engine, uint8_t* contexts, ResidualCategory category,
                               int flag_inc, const ResidualTarget& target) {
    CabacEngine e = *engine;  // in registers for the whole block
    uint8_t* const flag = contexts + kCtxCodedBlockFlag + category * 4 + flag_inc;
    ResidualCount count = {0, 0};
    if (cabac_decode_branch(&e, flag)) {
        count = read_coefficients<false, kHasMasks>(&e, contexts, category, target);
    }
    *engine = e;
    return count;
}

template <bool kByMasks>
static ResidualCount read_block_8x8(CabacEngine* engine, uint8_t* contexts,
                                    const ResidualTarget& target) {
    CabacEngine e = *engine;  // in registers for the whole block
    const ResidualCount count =
        read_coefficients<true, kByMasks>(&e, contexts, kCatLuma8x8, target);
    *engine = e;
    return count;
}

ResidualCount cabac_read_block_8x8(CabacEngine* engine, uint8_t* contexts, bool is_dense,
                                   const ResidualTarget& target) {
    return is_dense && kHasMasks ? read_block_8x8<kHasMasks>(engine, contexts, target)
                                 : read_block_8x8<false>(engine, contexts, target);
}
