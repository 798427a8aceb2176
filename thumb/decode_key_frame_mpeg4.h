// SPDX-License-Identifier: BSD-2-Clause
// Runs the MPEG-4 Part 2 / H.263 decoder on one key frame record.
#pragma once

#include <stdint.h>

#include "avcdec/decoded_picture.h"
#include "m4vdec/m4v_refusal.h"
#include "runtime/key_frame.h"

// Decodes the record's sample (codec kind kCodecMpeg4 or kCodecH263). Returns 0 and fills
// *picture, whose planes the caller releases, or 1 on any failure; planes that are in *picture
// then are released by the caller too. The pitch is the width rounded up to a multiple of 16;
// width and height are the picture's own.
int DecodeKeyFrameMpeg4(const KeyFrame* record, DecodedPicture* picture, int32_t codec_kind);

// The same, for a record of one of these kinds, with the reason.
M4vRefusal decode_key_frame_mpeg4(const KeyFrame& record, bool is_mpeg4, DecodedPicture* picture);
