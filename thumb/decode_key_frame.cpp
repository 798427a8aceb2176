// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/decode_key_frame.h"

#include "avcdec/decode_key_frame_avc.h"
#include "runtime/accounted_memory.h"
#include "thumb/decode_key_frame_mpeg4.h"

constexpr int32_t kSmallestAvcConfig = 4;

static int decode_avc(const KeyFrame& frame, DecodedPicture* picture) {
    const int32_t prefix = frame.length_prefix_size;
    if (prefix != 1 && prefix != 2 && prefix != 4) return 1;
    if (frame.config_length < kSmallestAvcConfig || prefix + 1 >= frame.bytes_read) return 1;
    AvcFrameRequest request = {};
    request.parameter_sets = frame.config;
    request.parameter_sets_length = static_cast<uint32_t>(frame.config_length);
    request.sample = frame.sample;
    request.sample_length = static_cast<uint32_t>(frame.bytes_read);
    request.nal_length_size = prefix;
    return DecodeKeyFrameAvc(&request, picture);
}

static int decode(const KeyFrame& frame, int32_t codec_kind, DecodedPicture* picture,
                  KeyFrameRefusal* refusal) {
    if (!frame.config || !frame.sample) return 1;
    switch (codec_kind) {
        case kCodecAvc:
            return decode_avc(frame, picture);
        case kCodecMpeg4:
        case kCodecH263:
            refusal->m4v = decode_key_frame_mpeg4(frame, codec_kind == kCodecMpeg4, picture);
            return refusal->m4v != M4vRefusal::kNone;
        default:
            return 1;
    }
}

int decode_key_frame(const KeyFrame& frame, int32_t codec_kind, DecodedPicture* picture,
                     KeyFrameRefusal* refusal) {
    KeyFrameRefusal reason = {};
    *picture = {};
    const int result = decode(frame, codec_kind, picture, &reason);
    if (refusal) *refusal = reason;
    if (result == 0) return 0;
    if (picture->planes) upnp_free(picture->planes);
    *picture = {};
    return 1;
}
