// SPDX-License-Identifier: BSD-2-Clause
// Decodes a coded I-VOP: video packets, macroblocks, with or without data partitioning.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "m4vdec/m4v_headers.h"
#include "m4vdec/m4v_idct.h"
#include "m4vdec/m4v_picture.h"
#include "m4vdec/m4v_refusal.h"

// No macroblock of an I-VOP or of an H.263 I-picture is shorter than this: MCBPC 1, ac_pred_flag
// or INTRA_MODE 1, and CBPY 4 with no luma block coded (every other CBPY adds at least one block,
// whose last event has 5 bits or more). H.263 without Annex I spends 48 bits on the DCs alone.
constexpr unsigned kMinMacroblockBits = 6;

// data begins after the VOP's start code; nothing is read past its end, and what follows the last
// macroblock is not looked at. Unless it is refused, every macroblock of the picture is written: no
// error is concealed.
[[nodiscard]] M4vRefusal m4v_decode_vop(const uint8_t* data, size_t length, const M4vLayer& layer,
                                        const M4vPicture& picture, M4vIdctFn idct);
