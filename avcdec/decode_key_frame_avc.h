// SPDX-License-Identifier: BSD-2-Clause
// The one entry into the H.264 decoder: one key frame sample in, one picture out.
#pragma once

#include <stdint.h>

#include "avcdec/avc_refusal.h"
#include "avcdec/decoded_picture.h"

struct AvcFrameRequest {
    // SPS and PPS NAL units, each preceded by its 16-bit length; unescaped in place.
    uint8_t* parameter_sets;
    uint32_t parameter_sets_length;
    // NAL units, each preceded by a big-endian length; unescaped in place.
    uint8_t* sample;
    uint32_t sample_length;            // bytes
    int32_t nal_length_size;           // width of the sample's length fields: 1, 2 or 4 bytes
    bool allows_more_formats = false;  // as far as kAvcMoreFormats goes
    bool has_old_flags = false;        // see kAvcOldFlags
    AvcRefused* refused = nullptr;     // takes the reason of a failure; may be null
};

// Decodes one picture; the bytes of the request are changed by that (emulation prevention is
// removed in place), so decode a copy to decode twice. Returns 0 and fills *picture, whose planes
// the caller releases, or 1 on any failure; a block that is in *picture then is released by the
// caller too.
int DecodeKeyFrameAvc(const AvcFrameRequest* request, DecodedPicture* picture);
