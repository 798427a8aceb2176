// SPDX-License-Identifier: BSD-2-Clause
// Turns one read macroblock into samples of the picture, and keeps the picture's progress: which
// macroblock comes next, and which rows can be deblocked.
#pragma once

#include <stdint.h>

#include "avcdec/deblock.h"

struct AvcDecoder;

// Predicts the macroblock and adds its residual.
void reconstruct_macroblock(AvcDecoder* decoder);

// Copies the samples of an I_PCM macroblock: 256 luma, and 64 Cb and 64 Cr unless monochrome.
void reconstruct_pcm(AvcDecoder* decoder, const uint8_t* samples);

// Expects the first macroblock of a picture next.
void picture_begin(AvcDecoder* decoder);

// Fills the macroblocks from the next expected one up to address with grey: no slice has them.
void picture_skip_to(AvcDecoder* decoder, uint32_t address);

// What deblocking will know of the current macroblock: all of it is written before it is done.
DeblockRecord* picture_record(const AvcDecoder* decoder);

// Moves on to the next macroblock. Rows are deblocked one behind the row that is decoded, as
// prediction needs the samples before deblocking.
void picture_macroblock_done(AvcDecoder* decoder);

// Completes a picture of which the remaining macroblocks never came.
void picture_finish(AvcDecoder* decoder);
