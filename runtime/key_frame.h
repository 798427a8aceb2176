// SPDX-License-Identifier: BSD-2-Clause
// One coded key frame, as a container reader finds it and a decoder takes it, and the numbers of
// the codecs.
#pragma once

#include <stdint.h>

// Codec kinds, as the sample description names them.
constexpr int32_t kCodecNone = -1;  // no supported sample entry, or a protected one
constexpr int32_t kCodecMpeg4 = 1;  // MPEG-4 Part 2, "mp4v" with "esds"
constexpr int32_t kCodecH263 = 2;   // H.263, "s263" with "d263"
constexpr int32_t kCodecAvc = 3;    // H.264, "avc1" with "avcC"

// Both blocks are owned by whoever owns the record and released with key_frame_release.
struct KeyFrame {
    uint8_t* config;             // decoder configuration that precedes the sample in decoding
    int32_t config_length;       // bytes
    uint8_t* sample;             // coded bytes as stored in the file
    int32_t bytes_read;          // bytes of the sample that were really read
    int32_t length_prefix_size;  // 1 to 4 for H.264, 0 for the other codecs
    int32_t sample_capacity;     // bytes asked for: sample size + length prefix size
    // H.264: see kAvcMoreFormats and kAvcOldFlags.
    bool allows_more_formats = false;
    bool has_old_flags = false;
};

// Releases both blocks and forgets them; the other fields stay.
void key_frame_release(KeyFrame* frame);
