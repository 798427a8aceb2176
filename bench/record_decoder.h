// SPDX-License-Identifier: BSD-2-Clause
// Runs the decoder of a key frame record's codec, for programs that want the picture alone.
#pragma once

#include <stdint.h>

#include "avcdec/decoded_picture.h"
#include "thumb/key_frame.h"

// Decodes the record, whose bytes are changed by that. Returns 0 and fills *picture, whose planes
// the caller releases with upnp_free, or 1 with nothing to release.
int decode_record(const KeyFrame* record, int32_t codec_kind, DecodedPicture* picture);

// Releases both blocks and clears the record.
void release_record(KeyFrame* record);
