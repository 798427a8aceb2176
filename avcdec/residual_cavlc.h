// SPDX-License-Identifier: BSD-2-Clause
// One residual block in CAVLC (H.264 9.2).
#pragma once

#include <stdint.h>

#include "avcdec/bit_reader.h"
#include "avcdec/quantiser.h"

// nC of a chroma DC block of 4:2:0.
constexpr int kChromaDcNc = -2;

// Where the coefficients of a block go and how they are scaled.
struct ResidualTarget {
    const uint8_t* scan;  // scan index to element of coefficients
    AvcScale scale;       // factors by scan index
    int16_t* coefficients;
};

// DC levels are kept as they are coded until their own transform.
inline constexpr int32_t kUnitFactors[16] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
inline constexpr AvcScale kUnitScale = {kUnitFactors, 0, 0};
inline constexpr uint8_t kRasterScan[4] = {0, 1, 2, 3};

struct ResidualCount {
    int total;  // coefficients that are not 0: 0 to 16, or -1 for what is no code word
    int end;    // one past the highest scan index that was written
};

// Reads one block of at most max_coefficients (4, 15 or 16) and writes its scaled coefficients; the
// others are left alone. nC is kChromaDcNc or 0 to 16.
ResidualCount cavlc_read_block(AvcBitReader* r, int nc, int max_coefficients,
                               const ResidualTarget& target);
