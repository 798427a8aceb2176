// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_decoder.h"

#include <assert.h>

#include "m4vdec/h263_headers.h"
#include "m4vdec/h263_picture.h"
#include "m4vdec/m4v_headers.h"
#include "m4vdec/m4v_vop.h"
#include "runtime/accounted_memory.h"

struct M4vDecoder {
    M4vLayer layer;
    M4vIdctFn idct;
    M4vRefusal refusal;  // of the last call
    uint32_t state;
    uint32_t width;
    uint32_t height;
    M4vPicture output;
};

namespace {

enum class Coding { kNone, kVop, kH263 };

// Where the picture of a sample begins: after the VOP start code, or at the picture start code.
struct PictureStart {
    Coding coding;
    const uint8_t* data;
    uint32_t length;
};

}  // namespace

static uint32_t round_up_16(uint32_t v) { return (v + 15) & ~15u; }

static void set_size(M4vDecoder* d, uint32_t width, uint32_t height) {
    d->width = width;
    d->height = height;
    d->state |= kM4vHasSize;
}

static void read_layer(M4vDecoder* d, BitReader* bits) {
    if (m4v_parse_layer(bits, &d->layer) == 0) set_size(d, d->layer.width, d->layer.height);
}

static M4vRefusal read_h263_size(M4vDecoder* d, const uint8_t* data, size_t length) {
    H263Picture picture;
    BitReader bits = bits_start(data, length);
    const M4vRefusal refusal = h263_parse_picture(&bits, &picture);
    if (refusal != M4vRefusal::kNone) return refusal;
    set_size(d, picture.width, picture.height);
    d->layer.presentation = picture.presentation;
    return refusal;
}

// Reads the headers up to the first picture. A short video header stands at the start or after
// that of a video object; anywhere else its bits are ordinary data.
static PictureStart read_mpeg4_headers(M4vDecoder* d, const M4vInput& input) {
    const uint8_t* p = input.data;
    const uint8_t* const end = input.data + input.length;
    const auto rest = [&] { return static_cast<uint32_t>(end - p); };
    if (h263_is_picture_start(p, rest())) return {Coding::kH263, p, rest()};
    unsigned code;
    while ((p = m4v_find_start_code(p, end, &code)) != nullptr) {
        BitReader bits = bits_start(p, rest());
        if (code == kStartVop) return {Coding::kVop, p, rest()};
        if (code == kStartSequence) m4v_parse_sequence(&bits, &d->layer);
        if (code == kStartVisualObject) m4v_parse_visual_object(&bits, &d->layer);
        if (code >= kStartLayerFirst && code <= kStartLayerLast) read_layer(d, &bits);
        if (code <= kStartVideoObjectLast && h263_is_picture_start(p, rest())) {
            return {Coding::kH263, p, rest()};
        }
    }
    return {Coding::kNone, nullptr, 0};
}

// H.263 has only pictures; whatever stands in front of the first one is passed over.
static PictureStart find_h263_picture(const M4vInput& input) {
    for (uint32_t i = 0; i < input.length; ++i) {
        if (h263_is_picture_start(input.data + i, input.length - i)) {
            return {Coding::kH263, input.data + i, input.length - i};
        }
    }
    return {Coding::kNone, nullptr, 0};
}

static PictureStart find_picture(M4vDecoder* d, const M4vInput& sample) {
    return d->state & kM4vIsMpeg4 ? read_mpeg4_headers(d, sample) : find_h263_picture(sample);
}

int m4v_create(const M4vInput& configuration, uint32_t default_width, uint32_t default_height,
               bool is_mpeg4, M4vDecoder** decoder) {
    M4vDecoder* const d = static_cast<M4vDecoder*>(upnp_calloc(1, sizeof(M4vDecoder)));
    *decoder = d;
    if (!d) return 1;
    m4v_layer_init(&d->layer);
    d->idct = m4v_idct_best();
    d->width = default_width;
    d->height = default_height;
    if (is_mpeg4) {
        d->state = kM4vIsMpeg4;
        read_mpeg4_headers(d, configuration);
    }
    return 0;
}

void m4v_destroy(M4vDecoder* decoder) {
    if (decoder) upnp_free(decoder);
}

M4vRefusal m4v_refusal(const M4vDecoder* decoder) {
    return decoder ? decoder->refusal : M4vRefusal::kNoMemory;
}

uint32_t m4v_state(const M4vDecoder* decoder) { return decoder->state; }

// Reads the headers down to what gives the size of the picture that starts there.
static M4vRefusal read_size(M4vDecoder* d, const PictureStart& start) {
    switch (start.coding) {
        case Coding::kVop:
            return d->layer.refusal;
        case Coding::kH263:
            return read_h263_size(d, start.data, start.length);
        case Coding::kNone:
            break;
    }
    return M4vRefusal::kNoPicture;
}

int m4v_read_headers(M4vDecoder* d, const M4vInput& sample) {
    const M4vRefusal refusal = read_size(d, find_picture(d, sample));
    d->refusal = d->state & kM4vHasSize ? M4vRefusal::kNone : refusal;
    return d->refusal != M4vRefusal::kNone;
}

void m4v_picture_size(const M4vDecoder* decoder, uint32_t* width, uint32_t* height) {
    *width = decoder->width;
    *height = decoder->height;
}

M4vPresentation m4v_presentation(const M4vDecoder* decoder) { return decoder->layer.presentation; }

bool m4v_can_hold_picture(const M4vDecoder* decoder, uint32_t sample_length) {
    const uint64_t macroblocks =
        uint64_t{round_up_16(decoder->width)} * round_up_16(decoder->height) / 256;
    return macroblocks * kMinMacroblockBits <= uint64_t{sample_length} * 8;
}

void m4v_set_output(M4vDecoder* d, uint8_t* planes) {
    assert(planes && d->width != 0 && d->height != 0);
    const size_t pitch = round_up_16(d->width);
    const size_t luma = pitch * round_up_16(d->height);
    d->output = {{planes, planes + luma, planes + luma + luma / 4},
                 pitch,
                 static_cast<uint32_t>(pitch / 16),
                 round_up_16(d->height) / 16};
}

static M4vRefusal decode(M4vDecoder* d, const M4vInput& sample) {
    const uint32_t width = d->width;
    const uint32_t height = d->height;
    const PictureStart start = find_picture(d, sample);
    const M4vRefusal refusal = read_size(d, start);
    if (refusal != M4vRefusal::kNone) return refusal;
    // A header in the sample may not contradict the size that the output was made for.
    if (d->output.plane[0] == nullptr || d->width != width || d->height != height) {
        return M4vRefusal::kSizeChange;
    }
    if (start.coding == Coding::kH263) {
        return h263_decode_picture(start.data, start.length, d->output, d->idct);
    }
    return m4v_decode_vop(start.data, start.length, d->layer, d->output, d->idct);
}

int m4v_decode(M4vDecoder* d, const M4vInput& sample) {
    d->refusal = decode(d, sample);
    return d->refusal != M4vRefusal::kNone;
}
