// SPDX-License-Identifier: BSD-2-Clause
// The sample description: codec and decoder configuration of the video track.
#pragma once

#include <stdint.h>

#include "mp4/parse_context.h"
#include "mp4/video_state.h"

struct ByteView {
    const uint8_t* bytes;
    int64_t length;
};

// Handler of "stsd". Only the first entry of a video track is looked at.
void mp4_parse_stsd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);

// The three take their bytes to the video state; what those name past the end of the data is 0.

// Finds the DecoderSpecificInfo, which starts with a visual object sequence header, after the
// type of an "esds" box.
void searchESD(ByteView data, VideoState* state);

// Takes what follows the first "d263", and four zero bytes after the data.
void get_H263_config(ByteView data, VideoState* state);

// Takes the parameter sets of an "avcC" record, which data enters at its lengthSizeMinusOne byte.
// The first record wins.
void parseAVCC(ByteView data, VideoState* state);
