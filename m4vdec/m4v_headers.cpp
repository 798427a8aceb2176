// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_headers.h"

#include <string.h>

#include "m4vdec/m4v_idct.h"
#include "m4vdec/m4v_scan.h"

constexpr unsigned kVideoObject = 1;  // visual_object_type
constexpr unsigned kExtendedPar = 15;

// Marker bits are not insisted on in headers: some writers got them wrong.
static void skip_marker(M4vBits* bits) { bits->read(1); }

// clang-format off
// ISO/IEC 14496-2 6.3.3, default intra matrix, row by row.
static const uint8_t kDefaultIntraMatrix[64] = {
     8, 17, 18, 19, 21, 23, 25, 27,
    17, 18, 19, 21, 23, 25, 27, 28,
    20, 21, 22, 23, 24, 26, 28, 30,
    21, 22, 23, 24, 26, 28, 30, 32,
    22, 23, 24, 26, 28, 30, 32, 35,
    23, 24, 26, 28, 30, 32, 35, 38,
    25, 26, 28, 30, 32, 35, 38, 41,
    27, 28, 30, 32, 35, 38, 41, 45,
};
// clang-format on

void m4v_layer_init(M4vLayer* layer) {
    *layer = {};
    layer->refusal = M4vRefusal::kNoLayer;
    layer->visual_object_verid = 1;
}

void m4v_parse_sequence(M4vBits* bits, M4vLayer* layer) {
    const unsigned profile_and_level = bits->read(8);
    layer->is_studio = profile_and_level >= 0xe1 && profile_and_level <= 0xe8;
}

// ISO/IEC 14496-2 6.2.2.
static void parse_video_signal_type(M4vBits* bits, M4vPresentation* presentation) {
    presentation->matrix_coefficients = 0;
    presentation->is_full_range = false;
    if (!bits->flag()) return;
    bits->read(3);  // video_format
    presentation->is_full_range = bits->flag();
    if (!bits->flag()) return;
    bits->read(16);  // primaries, transfer characteristics
    presentation->matrix_coefficients = static_cast<uint8_t>(bits->read(8));
}

void m4v_parse_visual_object(M4vBits* bits, M4vLayer* layer) {
    layer->visual_object_verid = 1;
    if (bits->flag()) {
        layer->visual_object_verid = static_cast<uint8_t>(bits->read(4));
        bits->read(3);  // visual_object_priority
    }
    const unsigned type = bits->read(4);
    if (type == kVideoObject) parse_video_signal_type(bits, &layer->presentation);
}

static void skip_control_parameters(M4vBits* bits) {
    bits->read(3);  // chroma_format, low_delay
    if (!bits->flag()) return;
    bits->skip_long(3 * (15 + 1));             // bit rate and the upper half of the buffer size
    bits->skip_long(3 + (11 + 1) + (15 + 1));  // its lower half, and the occupancy
}

// Entries in zigzag order; a 0 ends the list and repeats the one before it.
static int read_matrix(M4vBits* bits, uint8_t* matrix) {
    unsigned value = 8;
    bool is_ended = false;
    for (unsigned i = 0; i < 64; ++i) {
        const unsigned entry = is_ended ? 0 : bits->read(8);
        if (entry == 0) {
            if (i == 0) return 1;
            is_ended = true;
        } else {
            value = entry;
        }
        if (matrix) matrix[kScanZigzag.position[i]] = static_cast<uint8_t>(value);
    }
    return 0;
}

static int parse_quantisation(M4vBits* bits, M4vLayer* layer) {
    layer->has_matrix = bits->flag();
    if (!layer->has_matrix) return 0;
    for (unsigned v = 0; v < 8; ++v) {
        for (unsigned u = 0; u < 8; ++u) {
            layer->intra_matrix[m4v_position(u, v)] = kDefaultIntraMatrix[v * 8 + u];
        }
    }
    if (bits->flag() && read_matrix(bits, layer->intra_matrix)) return 1;
    return bits->flag() && read_matrix(bits, nullptr);  // the matrix of inter blocks
}

// define_VOP_complexity_estimation_header(): adds up what an I-VOP's header has of it.
static int parse_complexity_estimation(M4vBits* bits, M4vLayer* layer) {
    const auto add = [&](unsigned flags, unsigned in_intra) {
        const unsigned present = bits->read(flags) & in_intra;
        layer->vop_complexity_bits =
            static_cast<uint8_t>(layer->vop_complexity_bits + 8 * __builtin_popcount(present));
        return present;
    };
    const unsigned method = bits->read(2);
    if (method > 1) return 1;
    if (!bits->flag()) add(6, 0x3f);  // shape: all six
    if (!bits->flag()) add(4, 0x9);   // intra blocks and not coded blocks of four
    skip_marker(bits);
    if (!bits->flag() && add(4, 0xf) & 1) layer->vop_complexity_bits -= 4;  // vlc_bits has 4
    if (!bits->flag()) add(6, 0);                                           // motion
    skip_marker(bits);
    if (method == 1 && !bits->flag()) add(2, 0x2);  // sadct, not quarterpel
    return 0;
}

// Global motion compensation leaves I-VOPs alone; a static sprite is another kind of picture.
static M4vRefusal parse_sprite(M4vBits* bits, unsigned verid) {
    const unsigned sprite_enable = bits->read(verid == 1 ? 1 : 2);
    if (sprite_enable == 1) return M4vRefusal::kStaticSprite;
    if (sprite_enable == 3) return M4vRefusal::kDamagedLayer;
    if (sprite_enable == 2) bits->read(6 + 2 + 1);  // warping points, accuracy, brightness change
    return M4vRefusal::kNone;
}

static int parse_rectangle(M4vBits* bits, M4vLayer* layer) {
    skip_marker(bits);
    layer->width = static_cast<uint16_t>(bits->read(13));
    skip_marker(bits);
    layer->height = static_cast<uint16_t>(bits->read(13));
    skip_marker(bits);
    return layer->width == 0 || layer->height == 0;
}

static unsigned bits_for(unsigned values) {  // bits that hold 0 to values - 1, at least one
    return values <= 2 ? 1 : 32 - static_cast<unsigned>(__builtin_clz(values - 1));
}

static int parse_timing(M4vBits* bits, M4vLayer* layer) {
    const unsigned resolution = bits->read(16);
    skip_marker(bits);
    if (resolution == 0) return 1;
    layer->time_increment_bits = static_cast<uint8_t>(bits_for(resolution));
    if (bits->flag()) bits->read(layer->time_increment_bits);  // fixed_vop_time_increment
    return 0;
}

static void parse_error_resilience(M4vBits* bits, M4vLayer* layer) {
    layer->has_resync_markers = !bits->flag();
    layer->is_data_partitioned = bits->flag();
    layer->has_reversible_vlc = layer->is_data_partitioned && bits->flag();
}

// Fine granularity scalability and the studio objects have layers of their own.
static M4vRefusal check_object_type(unsigned video_object_type_indication) {
    switch (video_object_type_indication) {
        case 0x12:
            return M4vRefusal::kFineGranularity;
        case 0x0e:
        case 0x0f:
            return M4vRefusal::kStudioProfile;
        default:
            return M4vRefusal::kNone;
    }
}

// From is_object_layer_identifier to the shape. Stores the version of the syntax.
static M4vRefusal parse_object(M4vBits* bits, M4vLayer* layer, unsigned* verid) {
    *verid = layer->visual_object_verid;
    if (bits->flag()) {
        *verid = bits->read(4);
        bits->read(3);
    }
    const unsigned aspect_ratio_info = bits->read(4);
    const unsigned par = aspect_ratio_info == kExtendedPar ? bits->read(16) : 0;
    m4v_set_pixel_shape(aspect_ratio_info, par >> 8, par & 0xff, &layer->presentation);
    if (bits->flag()) skip_control_parameters(bits);
    const unsigned video_object_layer_shape = bits->read(2);
    return video_object_layer_shape == 0 ? M4vRefusal::kNone : M4vRefusal::kShape;
}

// From the quantiser matrices on.
static M4vRefusal parse_tools(M4vBits* bits, unsigned verid, M4vLayer* layer) {
    if (parse_quantisation(bits, layer)) return M4vRefusal::kDamagedLayer;
    if (verid != 1) bits->read(1);  // quarter_sample
    if (!bits->flag() && parse_complexity_estimation(bits, layer)) return M4vRefusal::kDamagedLayer;
    parse_error_resilience(bits, layer);
    if (verid != 1) {
        if (bits->flag()) return M4vRefusal::kNewpred;
        layer->has_reduced_resolution = bits->flag();
    }
    return bits->flag() ? M4vRefusal::kScalability : M4vRefusal::kNone;
}

static M4vRefusal parse_layer_fields(M4vBits* bits, M4vLayer* layer) {
    bits->read(1);  // random_accessible_vol
    M4vRefusal refusal = check_object_type(bits->read(8));
    if (refusal != M4vRefusal::kNone) return refusal;
    unsigned verid;
    refusal = parse_object(bits, layer, &verid);
    if (refusal != M4vRefusal::kNone) return refusal;
    skip_marker(bits);
    if (parse_timing(bits, layer) || parse_rectangle(bits, layer)) return M4vRefusal::kDamagedLayer;
    layer->is_interlaced = bits->flag();
    bits->read(1);  // obmc_disable
    refusal = parse_sprite(bits, verid);
    if (refusal != M4vRefusal::kNone) return refusal;
    const bool not_8_bit = bits->flag();
    if (not_8_bit && bits->read(8) != 0x58) return M4vRefusal::kSampleDepth;  // quantiser 5, 8 bits
    return parse_tools(bits, verid, layer);
}

int m4v_parse_layer(M4vBits* bits, M4vLayer* layer) {
    M4vLayer next = {};
    next.visual_object_verid = layer->visual_object_verid;
    next.is_studio = layer->is_studio;
    next.presentation = layer->presentation;
    next.refusal = next.is_studio ? M4vRefusal::kStudioProfile : parse_layer_fields(bits, &next);
    if (bits->overrun()) next.refusal = M4vRefusal::kDamagedLayer;
    *layer = next;
    return next.refusal != M4vRefusal::kNone;
}

static void skip_modulo_time(M4vBits* bits, const M4vLayer& layer) {
    while (bits->flag()) {  // modulo_time_base; zeros follow the data
    }
    skip_marker(bits);
    bits->read(layer.time_increment_bits);
    skip_marker(bits);
}

static M4vRefusal parse_vop_fields(M4vBits* bits, const M4vLayer& layer, M4vVop* vop) {
    if (bits->read(2) != 0) return M4vRefusal::kNotIntra;  // vop_coding_type: I
    skip_modulo_time(bits, layer);
    const bool vop_coded = bits->flag();
    if (!vop_coded) return M4vRefusal::kNotCoded;
    if (layer.has_reduced_resolution && bits->flag()) return M4vRefusal::kReducedResolution;
    bits->skip_long(layer.vop_complexity_bits);
    vop->intra_dc_vlc_thr = static_cast<uint8_t>(bits->read(3));
    vop->alternate_vertical_scan = false;
    if (layer.is_interlaced) {
        bits->read(1);  // top_field_first
        vop->alternate_vertical_scan = bits->flag();
    }
    vop->quant = static_cast<uint8_t>(bits->read(5));
    return vop->quant == 0 ? M4vRefusal::kDamagedHeader : M4vRefusal::kNone;
}

M4vRefusal m4v_parse_vop(M4vBits* bits, const M4vLayer& layer, M4vVop* vop) {
    const M4vRefusal refusal = parse_vop_fields(bits, layer, vop);
    return bits->overrun() ? M4vRefusal::kDamagedHeader : refusal;
}

bool m4v_is_at_packet_end(M4vBits* bits) {
    bits->refill();
    // A zero and ones up to the byte boundary, then 16 zeros.
    const unsigned stuffing = bits->bits_to_alignment() ? bits->bits_to_alignment() : 8;
    const unsigned window = bits->peek(24);
    return window >> (8 - stuffing) == ((1u << (stuffing - 1)) - 1) << 16;
}

int m4v_parse_packet(M4vBits* bits, const M4vLayer& layer, unsigned number_bits,
                     M4vPacket* packet) {
    bits->read(bits->bits_to_alignment() ? bits->bits_to_alignment() : 8);
    if (bits->read(17) != 1) return 1;
    packet->macroblock_number = bits->read(number_bits);
    packet->quant = static_cast<uint8_t>(bits->read(5));
    if (bits->flag()) {  // header_extension_code
        skip_modulo_time(bits, layer);
        if (bits->read(2) != 0) return 1;  // vop_coding_type
        if (layer.has_reduced_resolution && bits->flag()) return 1;
        bits->read(3);  // intra_dc_vlc_thr, as in the VOP header
    }
    return packet->quant == 0 || bits->overrun();
}

const uint8_t* m4v_find_start_code(const uint8_t* p, const uint8_t* end, unsigned* value) {
    while (end - p >= 4) {
        const uint8_t* const one =
            static_cast<const uint8_t*>(memchr(p + 2, 1, static_cast<size_t>(end - p) - 3));
        if (!one) return nullptr;
        if (one[-1] == 0 && one[-2] == 0) {
            *value = one[1];
            return one + 2;
        }
        p = one - 1;
    }
    return nullptr;
}
