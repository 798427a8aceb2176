// SPDX-License-Identifier: BSD-2-Clause
// One decoder instance: created, fed NAL units in stream order, destroyed. Decodes I slices of
// progressive 8-bit 4:2:0 and monochrome streams straight into the caller's picture.
#pragma once

#include <stdint.h>

#include "avcdec/avc_refusal.h"
#include "avcdec/decoded_picture.h"

struct AvcDecoder;

enum AvcError : uint32_t {
    kAvcOk = 0,
    kAvcNoInstanceMemory = 120,    // create: the instance could not be allocated
    kAvcNoDecoder = 127,           // decode: no instance
    kAvcBadOptionTable = 128,      // create: option table flagged but null, or longer than 32 bytes
    kAvcInfoNoDecoder = 130,       // stream info: no instance
    kAvcInfoNoSps = 131,           // stream info: id out of range, or no SPS stored under it
    kAvcNoTarget = 132,            // slice without a target picture
    kAvcBadSliceHeader = 133,      // slice header rejected, or the target is sized for another SPS
    kAvcSliceOfNextPicture = 134,  // slice starts before the next macroblock of a partial picture
    kAvcBadSliceData = 135,
    kAvcBadSps = 137,
    kAvcBadPps = 138,
};

enum AvcOptionFlags : uint32_t {
    kAvcStartCodes = 1,
    kAvcOptionTable = 4,
    // Interlaced streams, unless the macroblocks of a frame come in pairs (MbaffFrameFlag), and
    // 4:4:4, unless its planes are coded apart or have scaling lists of their own. A field is a
    // picture by itself: the lines of the other one are made of those around them.
    kAvcMoreFormats = 8,
    // 4:4:4 with CABAC as x264 wrote it before its core 151 (2017): for the coded_block_flag of an
    // 8x8 block a neighbour that has none counts as coded, not as what H.264 9.3.3.1.1.9 says.
    kAvcOldFlags = 16,
};
enum AvcCallFlags : uint32_t { kAvcFlush = 1, kAvcOption64 = 2 };
enum AvcEvents : uint32_t {
    kAvcEventSps = 1,
    kAvcEventPictureComplete = 2,
    kAvcEventIdr = 4,
    kAvcEventIdrRejected = 8,
    kAvcEventEnd = 16,
};

constexpr uint64_t kAvcNoTimeStamp = ~uint64_t{0};
constexpr uint32_t kAvcLastSps = ~uint32_t{0};  // avcdec_get_stream_info: the SPS parsed last

struct AvcDecoderOptions {
    uint32_t flags;  // AvcOptionFlags
    const uint8_t* table;
    uint32_t table_length;  // 0 to 32
};

struct AvcCreateResult {
    uint32_t error;
    AvcDecoder* decoder;  // null on failure
};

struct AvcDecodeInput {
    AvcDecoder* decoder;
    uint8_t* nal;     // first byte of the NAL unit, or of its start code; unescaped in place
    uint8_t* target;  // the picture to decode into, null until the first SPS is known
    uint32_t nal_length;
    uint64_t time_stamp;
    uint32_t stride;        // luma pitch of the target, its width; U follows after height rows,
                            // of half the pitch but in 4:4:4
    uint32_t target_size;   // bytes at target; a slice of pictures of another size is refused
    int32_t target_sps_id;  // the SPS for which the target was sized, -1 = none yet
    uint32_t option_index;
    uint32_t call_flags;  // AvcCallFlags
};

struct AvcDecodeOutput {
    uint32_t error;     // AvcError
    uint32_t consumed;  // bytes of the NAL unit used; 0: hand the same unit in again
    uint8_t* picture;   // flush only
    uint8_t* target;
    uint64_t time_stamp;
    int32_t picture_count;
    int32_t sps_id;      // of the active SPS, -1 when none is active
    uint32_t events;     // AvcEvents
    AvcRefused refused;  // the reason behind an error
};

struct AvcStreamInfo {
    uint32_t error;
    uint32_t sps_id;
    uint32_t width;  // luma samples of the macroblock grid
    uint32_t height;
    uint32_t planes;  // always 1
    uint32_t chroma_format;
    uint32_t cropped;
    uint32_t crop_left;  // as coded, for frames
    uint32_t crop_right;
    uint32_t crop_top;
    uint32_t crop_bottom;
    StreamPresentation presentation;
};

// The table is copied. The new instance is the caller's, who ends it with avcdec_destroy.
void avcdec_create(const AvcDecoderOptions* options, AvcCreateResult* result);

// Decodes one NAL unit and reports in *out, which is reset first.
void avcdec_decode_nal(const AvcDecodeInput* in, AvcDecodeOutput* out);

// sps_id is 0 to 31, or kAvcLastSps.
void avcdec_get_stream_info(const AvcDecoder* decoder, AvcStreamInfo* info, uint32_t sps_id);

// Null is allowed.
void avcdec_destroy(AvcDecoder* decoder);
