// SPDX-License-Identifier: BSD-2-Clause
// Decodes an H.263 I-picture, or a picture with short video header: GOBs or slices, macroblocks,
// deblocking.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "m4vdec/m4v_idct.h"
#include "m4vdec/m4v_picture.h"
#include "m4vdec/m4v_refusal.h"

// data begins with the picture start code; what follows the last macroblock is not looked at. The
// header's size must be that of the picture, in macroblocks. Unless it is refused, every macroblock
// is written exactly once: no error is concealed.
[[nodiscard]] M4vRefusal h263_decode_picture(const uint8_t* data, size_t length,
                                             const M4vPicture& picture, M4vIdctFn idct);
