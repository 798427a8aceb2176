// SPDX-License-Identifier: BSD-2-Clause
#include "bench/record_decoder.h"

#include "avcdec/decode_key_frame_avc.h"
#include "runtime/accounted_memory.h"
#include "thumb/decode_key_frame_mpeg4.h"

static int decode_avc(const KeyFrame* record, DecodedPicture* picture) {
    const int32_t prefix = record->length_prefix_size;
    if (prefix != 1 && prefix != 2 && prefix != 4) return 1;
    AvcFrameRequest request = {};
    request.parameter_sets = record->config;
    request.parameter_sets_length = static_cast<uint32_t>(record->config_length);
    request.sample = record->sample;
    request.sample_length = static_cast<uint32_t>(record->bytes_read);
    request.nal_length_size = prefix;
    return DecodeKeyFrameAvc(&request, picture);
}

int decode_record(const KeyFrame* record, int32_t codec_kind, DecodedPicture* picture) {
    *picture = {};
    if (!record->config || !record->sample || record->bytes_read <= 0) return 1;
    const int result = codec_kind == kCodecAvc ? decode_avc(record, picture)
                                               : DecodeKeyFrameMpeg4(record, picture, codec_kind);
    if (result == 0) return 0;
    if (picture->planes) upnp_free(picture->planes);
    *picture = {};
    return 1;
}

void release_record(KeyFrame* record) {
    if (record->config) upnp_free(record->config);
    if (record->sample) upnp_free(record->sample);
    *record = {};
}
