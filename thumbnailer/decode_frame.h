// SPDX-License-Identifier: BSD-2-Clause
// From a key frame of a movie to its picture.
#pragma once

#include "avcdec/decoded_picture.h"
#include "movie/movie.h"
#include "runtime/owned.h"
#include "thumbnailer/outcome.h"

struct DecodedFrame {
    DecodedPicture picture = {};
    Owned<uint8_t> planes;  // what the picture points to
};

// Reads and decodes it. Unless the verdict is kDone, *decoded has no planes.
Outcome decode_frame(Movie* movie, const MovieKeyFrame& key_frame, DecodedFrame* decoded);
