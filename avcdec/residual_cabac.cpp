// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/residual_cabac.h"

// Context offsets of a category and its size. In 8x8 blocks and chroma DC blocks the context of a
// position is looked up; elsewhere it is the position.
struct CategoryLayout {
    uint16_t significant;
    uint16_t last;
    uint16_t abs_level;
    uint8_t coefficients;
    uint8_t max_greater;  // the highest ctxIdxInc - 5 of the bins behind the first
};

static constexpr CategoryLayout kLayouts[6] = {
    {kCtxSignificant + 0, kCtxLast + 0, kCtxAbsLevel + 0, 16, 4},
    {kCtxSignificant + 15, kCtxLast + 15, kCtxAbsLevel + 10, 15, 4},
    {kCtxSignificant + 29, kCtxLast + 29, kCtxAbsLevel + 20, 16, 4},
    {kCtxSignificant + 44, kCtxLast + 44, kCtxAbsLevel + 30, 4, 3},
    {kCtxSignificant + 47, kCtxLast + 47, kCtxAbsLevel + 39, 15, 4},
    {kCtxSignificant8x8, kCtxLast8x8, kCtxAbsLevel8x8, 64, 4},
};

// ctxIdxInc in frame coded 8x8 blocks (H.264 Table 9-43).
// clang-format off
static constexpr uint8_t kSignificant8x8[63] = {
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

// Reads the significance map: the scan indices of the coefficients that are not 0, in scan order.
// Returns their number, 1 to count.
template <bool kIs8x8>
[[gnu::always_inline]] static inline int read_significance(CabacEngine* e, uint8_t* significant,
                                                           uint8_t* last, int count,
                                                           uint8_t* indices) {
    int total = 0;
    for (int i = 0; i < count - 1; ++i) {
        uint8_t* const context = significant + (kIs8x8 ? kSignificant8x8[i] : i);
        if (!cabac_decode_decision(e, context)) continue;
        indices[total++] = static_cast<uint8_t>(i);
        if (cabac_decode_decision(e, last + (kIs8x8 ? kLast8x8[i] : i))) return total;
    }
    indices[total++] = static_cast<uint8_t>(count - 1);
    return total;
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
    while (cabac_decode_decision(e, &variable)) {
        if (++level == 15) {
            *context = variable;
            return 15 + read_level_suffix(e);
        }
    }
    *context = variable;
    return level;
}

template <bool kIs8x8>
static ResidualCount read_block(CabacEngine* engine, uint8_t* contexts,
                                const CategoryLayout& layout, const ResidualTarget& target) {
    CabacEngine e = *engine;  // in registers for the whole block
    uint8_t indices[64];
    const int total =
        read_significance<kIs8x8>(&e, contexts + layout.significant, contexts + layout.last,
                                  kIs8x8 ? 64 : layout.coefficients, indices);
    uint8_t* const abs_level = contexts + layout.abs_level;
    int ones = 1;     // ctxIdxInc of the first bin: 1 + levels of 1 so far, 0 behind a larger one
    int greater = 0;  // larger levels so far
    bool has_error = false;
    for (int n = total - 1; n >= 0; --n) {
        int level = 1;
        if (cabac_decode_decision(&e, abs_level + ones)) {
            level = read_large_level(&e, abs_level + 5 + greater);
            has_error |= level >= kLevelTooLong;
            if (greater < layout.max_greater) ++greater;
            ones = 0;
        } else if (ones > 0 && ones < 4) {
            ++ones;
        }
        const int sign = -static_cast<int>(cabac_decode_bypass(&e));
        const int index = indices[n];
        target.coefficients[target.scan[index]] =
            scale_level((level ^ sign) - sign, target.scale.factors[index], target.scale);
    }
    *engine = e;
    return {has_error ? -1 : total, indices[total - 1] + 1};
}

ResidualCount cabac_read_block(CabacEngine* engine, uint8_t* contexts, ResidualCategory category,
                               const ResidualTarget& target) {
    const CategoryLayout& layout = kLayouts[category];
    return category == kCatLuma8x8 ? read_block<true>(engine, contexts, layout, target)
                                   : read_block<false>(engine, contexts, layout, target);
}
