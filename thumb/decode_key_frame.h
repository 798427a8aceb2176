// SPDX-License-Identifier: BSD-2-Clause
// The one way from a coded key frame to its picture, whatever the codec.
#pragma once

#include <stdint.h>

#include "avcdec/avc_refusal.h"
#include "avcdec/decoded_picture.h"
#include "m4vdec/m4v_refusal.h"
#include "runtime/key_frame.h"

// Why the decoder of the frame's codec refused it.
struct KeyFrameRefusal {
    AvcRefused avc;  // codec kind kCodecAvc
    M4vRefusal m4v;  // codec kinds kCodecMpeg4 and kCodecH263
};

// Decodes the frame, whose bytes are changed by that: decode a copy to decode twice. Returns 0 and
// fills *picture, whose planes the caller releases with upnp_free. Returns 1 on any failure (no
// bytes, a codec kind that is none of the three, a prefix length of 3, whatever a decoder refuses)
// with nothing to release; refusal says why, unless it is null.
int decode_key_frame(const KeyFrame& frame, int32_t codec_kind, DecodedPicture* picture,
                     KeyFrameRefusal* refusal = nullptr);
