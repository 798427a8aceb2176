// SPDX-License-Identifier: BSD-2-Clause
// Where the coefficients of a residual block go, for both entropy coders.
#pragma once

#include <stdint.h>

// What becomes of a level of a block: (level * factor + 32) >> 6 goes to the element.
struct AvcScaleEntry {
    uint32_t factor;
    uint32_t element;
};
constexpr int kScaleShift = 6;

// The result is kept in 16 bits, as the transforms take it; products wrap.
inline void put_level(int32_t level, const AvcScaleEntry& entry, int16_t* coefficients) {
    const uint32_t product = static_cast<uint32_t>(level) * entry.factor;
    coefficients[entry.element] =
        static_cast<int16_t>((product + (1 << (kScaleShift - 1))) >> kScaleShift);
}

struct ResidualTarget {
    const AvcScaleEntry* scale;  // by scan index
    int16_t* coefficients;
};
