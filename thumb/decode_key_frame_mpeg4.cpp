// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/decode_key_frame_mpeg4.h"

#include <stddef.h>

#include "m4vdec/m4v_decoder.h"
#include "runtime/accounted_memory.h"

static constexpr uint32_t kDefaultWidth = 352;
static constexpr uint32_t kDefaultHeight = 288;

static uint32_t align16(uint32_t v) { return (v + 15) & ~15u; }

static M4vRefusal decode(M4vDecoder* decoder, const M4vInput& sample, DecodedPicture* picture) {
    if ((m4v_state(decoder) & ~kM4vIsMpeg4) == 0 && m4v_read_headers(decoder, sample)) {
        return m4v_refusal(decoder);
    }
    if (!m4v_can_hold_picture(decoder, sample.length)) return M4vRefusal::kSampleTooShort;

    uint32_t width, height;
    m4v_picture_size(decoder, &width, &height);
    const uint32_t luma = align16(width) * align16(height);  // at most 2^26
    picture->planes = static_cast<uint8_t*>(upnp_malloc(luma / 2 * 3));
    if (!picture->planes) return M4vRefusal::kNoMemory;

    m4v_set_output(decoder, picture->planes);
    if (m4v_decode(decoder, sample)) return m4v_refusal(decoder);
    picture->width = width;
    picture->height = height;
    picture->stride = align16(width);
    picture->u_offset = luma;
    picture->v_offset = luma + luma / 4;
    picture->cropped = 0;
    const M4vPresentation presentation = m4v_presentation(decoder);
    picture->presentation = {presentation.pixel_width, presentation.pixel_height,
                             presentation.matrix_coefficients, presentation.is_full_range};
    return M4vRefusal::kNone;
}

M4vRefusal decode_key_frame_mpeg4(const KeyFrame& record, bool is_mpeg4, DecodedPicture* picture) {
    if (!record.config || record.config_length < 0) return M4vRefusal::kNoLayer;
    if (!record.sample || record.bytes_read <= 0) return M4vRefusal::kNoPicture;
    const M4vInput config = {record.config, static_cast<uint32_t>(record.config_length)};
    const M4vInput sample = {record.sample, static_cast<uint32_t>(record.bytes_read)};
    M4vDecoder* decoder;
    if (m4v_create(config, kDefaultWidth, kDefaultHeight, is_mpeg4, &decoder)) {
        return M4vRefusal::kNoMemory;
    }
    const M4vRefusal refusal = decode(decoder, sample, picture);
    m4v_destroy(decoder);
    return refusal;
}

int DecodeKeyFrameMpeg4(const KeyFrame* record, DecodedPicture* picture, int32_t codec_kind) {
    if (codec_kind != kCodecMpeg4 && codec_kind != kCodecH263) return 1;
    return decode_key_frame_mpeg4(*record, codec_kind == kCodecMpeg4, picture) != M4vRefusal::kNone;
}
