// SPDX-License-Identifier: BSD-2-Clause
// The one way from a coded key frame to its picture, whatever the codec.
#pragma once

#include <stdint.h>

#include "avcdec/decoded_picture.h"
#include "runtime/key_frame.h"

// Decodes the frame, whose bytes are changed by that: decode a copy to decode twice. Returns 0 and
// fills *picture, whose planes the caller releases with upnp_free. Returns 1 on any failure (no
// bytes, a codec kind that is none of the three, a prefix length of 3, whatever a decoder refuses)
// with nothing to release.
int decode_key_frame(const KeyFrame& frame, int32_t codec_kind, DecodedPicture* picture);
