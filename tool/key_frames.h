// SPDX-License-Identifier: BSD-2-Clause
// Collects key frames of the video track from a point of the clip onward, and reads the one that
// is chosen.
#pragma once

#include <stdint.h>

#include "mp4/buffered_file.h"
#include "mp4/video_state.h"
#include "runtime/key_frame.h"
#include "runtime/owned.h"
#include "tool/refusal.h"

// More key frames than that cannot be asked for: a list of 24 bytes each would be no block.
constexpr int32_t kMostKeyFrames = kUpnpMaxBlock / 24;

// The longest sample that a picture can need. Of H.264 no more than 65535 macroblocks are accepted.
// A macroblock takes at most 3200 bits (H.264 A.3.1), since it can always be sent as I_PCM, and a
// slice of its own takes 32 bytes of length, header and alignment; emulation prevention adds half
// as much again. There is 1 MiB on top for units that are no slices. Of the other codecs' pictures
// the largest have four times as many macroblocks, but the rate buffers that their levels allow
// (ISO 14496-2 Annex N, H.263 Annex B) are far smaller.
constexpr int64_t kMostSample = 65535 * ((3200 / 8 + 32) * 3 / 2) + (1 << 20);
static_assert(kMostSample < 64 << 20);

// Key frames that come one after the other and are the same bytes of the file.
struct KeyFrameRun {
    uint32_t offset;      // in the file
    int32_t bytes_read;   // that a read gives: no more than the file held when it was opened
    int32_t count;        // key frames, at least 1
    int32_t stated_size;  // bytes, of each
};

// The collected key frames in the order of the file's tables.
struct KeyFrameList {
    Owned<KeyFrameRun> runs;
    int32_t run_count;
    int32_t capacity;  // runs that there is memory for
};

struct KeyFrameRequest {
    int32_t clip_offset_percent;  // in: 0 to 100
    int32_t key_frame_count;      // in: most to collect, 1 to kMostKeyFrames; out: collected
    int32_t codec_kind;           // out: kCodec...; preset to kCodecNone by the caller
    Refusal refusal;              // out: of a failure, and kNoKeyFrameTable
    int32_t duration_s;           // out: the video track's duration in whole seconds
    KeyFrameList list;            // out
    OpenFile file;                // out: that the key frames are read from
    int32_t length_prefix_size;   // out: of NAL units, 1 to 4 for H.264, 0 for the other codecs
    ConfigBlock config[2];        // out: decoder configuration, one block after the other
};

// Walks the file once and lists the sync samples from the given per cent of the video track's
// duration onward. Returns 0 when the walk succeeded, even if there is no key frame, else
// kCollectionFailed. Not re-entrant: the container reader has one process-wide state.
constexpr int kCollectionFailed = -1;
int GetKeyFrameMpeg4(const char* path, KeyFrameRequest* request);

// Reads one of the collected key frames with the decoder configuration. What is in the record is
// released with key_frame_release, also when the key frame is longer than a picture needs or there
// is no memory.
Refusal key_frame_read(const KeyFrameRequest* request, int32_t index, KeyFrame* record);
