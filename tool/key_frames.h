// SPDX-License-Identifier: BSD-2-Clause
// Collects key frames of the video track from a point of the clip onward.
#pragma once

#include <stdint.h>

#include "runtime/key_frame.h"

struct KeyFrameRequest {
    int32_t clip_offset_percent;  // in: 0 to 100
    int32_t key_frame_count;      // in: records in the array, at least 1; out: records filled
    KeyFrame* records;            // zero-filled by the caller, who releases every block in them
    int32_t codec_kind;           // out: kCodec...; preset to kCodecNone by the caller
    int32_t duration_s;           // out: the video track's duration in whole seconds
};

// Walks the file once and copies the sync samples from the given per cent of the video track's
// duration onward into the records, each with the decoder configuration. Returns 0 when the walk
// succeeded, even if no record could be filled, and -1 on failure; records that were filled before
// a failure keep their blocks. Not re-entrant: the container reader has one process-wide state.
int GetKeyFrameMpeg4(const char* path, KeyFrameRequest* request);
