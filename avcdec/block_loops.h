// SPDX-License-Identifier: BSD-2-Clause
// The loops over the blocks of a macroblock, where most of decoding is, and their choice. x86-64
// has them twice: a shift by a variable amount is three operations in many processors, and one with
// BMI2, which has no flags to set and takes the amount from any register.
#pragma once

#include "avcdec/macroblock.h"

struct AvcSliceReader;

struct BlockLoops {
    // Read blocks (bits of blocks_of_pattern), each with its coded_block_flag, or the 8x8 blocks of
    // quadrants. Return the grid.
    CodedGrid (*cabac)(AvcSliceReader* s, uint32_t blocks, CodedGrid grid);
    CodedGrid (*cabac_8x8)(AvcSliceReader* s, uint32_t quadrants);
};

// The fastest ones of this build for this processor.
BlockLoops block_loops_best();

// Those for any processor, each beside its functions.
void cabac_use_any(BlockLoops* loops);

// Copies for processors with BMI1 and BMI2, in builds that choose their kernels.
void cabac_use_bmi2(BlockLoops* loops);

// Has a function built for them. What it calls is, too, if it is inlined always.
#define KS_BMI2 [[gnu::target("bmi,bmi2")]]
