// SPDX-License-Identifier: BSD-2-Clause
// One residual block in CABAC (H.264 7.3.5.3.3, 9.3).
#pragma once

#include <stdint.h>

#include "avcdec/cabac_engine.h"
#include "avcdec/residual_cavlc.h"

// ctxBlockCat (H.264 Table 9-42).
enum ResidualCategory {
    kCatLumaDc = 0,
    kCatLumaAc = 1,
    kCatLuma4x4 = 2,
    kCatChromaDc = 3,
    kCatChromaAc = 4,
    kCatLuma8x8 = 5,
};

// Reads coded_block_flag and, when it is set, the block, and writes its scaled coefficients; the
// others are left alone. category is not kCatLuma8x8, flag_inc is ctxIdxInc of the flag, 0 to 3.
// total is 0 without the flag, -1 when a level has more bits than any profile allows.
ResidualCount cabac_read_block(CabacEngine* engine, uint8_t* contexts, ResidualCategory category,
                               int flag_inc, const ResidualTarget& target);

// The same for 8x8 luma blocks, which have no flag. is_dense says that many coefficients are to be
// expected: it changes the time that this takes, not the result.
ResidualCount cabac_read_block_8x8(CabacEngine* engine, uint8_t* contexts, bool is_dense,
                                   const ResidualTarget& target);
