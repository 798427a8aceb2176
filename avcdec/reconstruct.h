// SPDX-License-Identifier: BSD-2-Clause
// Turns one read macroblock into samples of the picture.
#pragma once

#include <stdint.h>

#include "avcdec/macroblock.h"
#include "avcdec/picture_in_progress.h"

// Predicts the picture's next macroblock and adds its residual, which is cleared by that.
void reconstruct_macroblock(const AvcPictureInProgress& picture, AvcMacroblock* mb);

// Copies the samples of an I_PCM macroblock: 256 luma, and 64 Cb and 64 Cr unless monochrome.
void reconstruct_pcm(const AvcPictureInProgress& picture, const uint8_t* samples,
                     bool is_monochrome);
