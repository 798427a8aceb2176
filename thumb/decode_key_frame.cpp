// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/decode_key_frame.h"

#include "avcdec/decode_key_frame_avc.h"
#include "runtime/accounted_memory.h"
#include "thumb/decode_key_frame_mpeg4.h"

constexpr int32_t kSmallestAvcConfig = 4;

// Why the frame cannot be handed to the decoder.
static AvcRefused avc_frame_refusal(const KeyFrame& frame) {
    const int32_t prefix = frame.length_prefix_size;
    if (!frame.config || frame.config_length < kSmallestAvcConfig) {
        return {AvcRefusal::kNoConfiguration};
    }
    if (prefix != 1 && prefix != 2 && prefix != 4) {
        return {AvcRefusal::kNalLengthSize, static_cast<uint32_t>(prefix)};
    }
    if (!frame.sample || prefix + 1 >= frame.bytes_read) return {AvcRefusal::kSampleTooShort};
    return {};
}

static int decode_avc(const KeyFrame& frame, DecodedPicture* picture, AvcRefused* refused) {
    *refused = avc_frame_refusal(frame);
    if (*refused) return 1;
    AvcFrameRequest request = {};
    request.parameter_sets = frame.config;
    request.parameter_sets_length = static_cast<uint32_t>(frame.config_length);
    request.sample = frame.sample;
    request.sample_length = static_cast<uint32_t>(frame.bytes_read);
    request.nal_length_size = frame.length_prefix_size;
    request.allows_more_formats = frame.allows_more_formats;
    request.has_old_flags = frame.has_old_flags;
    request.refused = refused;
    return DecodeKeyFrameAvc(&request, picture);
}

static int decode(const KeyFrame& frame, int32_t codec_kind, DecodedPicture* picture,
                  KeyFrameRefusal* refusal) {
    switch (codec_kind) {
        case kCodecAvc:
            return decode_avc(frame, picture, &refusal->avc);
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
