// SPDX-License-Identifier: BSD-2-Clause
// From one key frame to a JPEG file: decode, crop, fit, scale, pad, compress.
#pragma once

#include <stdint.h>

#include "runtime/key_frame.h"
#include "thumb/decode_key_frame.h"

enum class ThumbnailFailure : uint8_t {
    kNone,
    kNoMemory,
    kNotDecoded,      // the decoder says why
    kNothingVisible,  // cropping leaves no picture
    kSide,            // fitted to a width or height that no JPEG file has
    kNotCreated,      // the output file
    kNotWritten,      // whole: to the output file, or for memory
};

struct ThumbnailParams {
    const char* output_path;
    int32_t quality;  // JPEG, 0 to 100
    int32_t width;    // in: pixels asked for, 0 for the picture's own; out: fitted width
    int32_t height;   // in: pixels asked for, 0 for the picture's own; out: fitted height
    ThumbnailFailure failure = ThumbnailFailure::kNone;  // out
    KeyFrameRefusal refusal = {};                        // out: of the decoder
};

// Writes the thumbnail. Returns 0, or 1 on any failure, without a message. The output file is
// untouched unless decoding, scaling and padding succeeded; a failure after that leaves it empty
// or partial. Width and height of the params are overwritten once decoding has succeeded. The
// bytes of the sample may be changed by decoding it.
int WriteThumbnail(const KeyFrame* record, ThumbnailParams* params, int32_t codec_kind);
