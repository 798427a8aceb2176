// SPDX-License-Identifier: BSD-2-Clause
// Turns one read macroblock into samples of the picture.
#pragma once

#include <stdint.h>

#include "avcdec/macroblock.h"
#include "avcdec/picture_in_progress.h"

// Predicts the picture's next macroblock and adds its residual, which is cleared by that.
void reconstruct_macroblock(const AvcPictureInProgress& picture, AvcMacroblock* mb);

// The same for one plane of 4:4:4, with the coefficients of that plane.
void reconstruct_plane(const AvcPictureInProgress& picture, AvcMacroblock* mb, int plane);

// Copies the samples of an I_PCM macroblock: 256 luma, and 64 Cb and 64 Cr, 256 of each where the
// picture is 4:4:4, or none where it is monochrome.
void reconstruct_pcm(const AvcPictureInProgress& picture, const uint8_t* samples,
                     bool is_monochrome);
