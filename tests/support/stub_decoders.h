// SPDX-License-Identifier: BSD-2-Clause
// Both decoders' entry points for a program that brings decoders of its own, which the linker finds
// before those of the libraries. To be included once.
#pragma once

#include "avcdec/decode_key_frame_avc.h"
#include "thumb/decode_key_frame_mpeg4.h"

// What they do, by the program. 0 is success.
static int hand_out(DecodedPicture* picture);

int DecodeKeyFrameAvc(const AvcFrameRequest*, DecodedPicture* picture) { return hand_out(picture); }
M4vRefusal decode_key_frame_mpeg4(const KeyFrame&, bool, DecodedPicture* picture) {
    return hand_out(picture) ? M4vRefusal::kDamagedData : M4vRefusal::kNone;
}
