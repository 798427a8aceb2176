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

// Reads a block whose coded_block_flag is 1 (or is not coded) and writes its scaled coefficients;
// the others are left alone. total is -1 when a level has more bits than any profile allows.
ResidualCount cabac_read_block(CabacEngine* engine, uint8_t* contexts, ResidualCategory category,
                               const ResidualTarget& target);
