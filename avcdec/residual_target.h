// SPDX-License-Identifier: BSD-2-Clause
// Where the coefficients of a residual block go, for both entropy coders.
#pragma once

#include <stdint.h>

#include "avcdec/quantiser.h"

struct ResidualTarget {
    const uint8_t* scan;  // scan index to element of coefficients
    AvcScale scale;       // factors by scan index
    int16_t* coefficients;
};

// DC levels are kept as they are coded until their own transform.
inline constexpr int32_t kUnitFactors[16] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
inline constexpr AvcScale kUnitScale = {kUnitFactors, 0, 0};
inline constexpr uint8_t kRasterScan[4] = {0, 1, 2, 3};
