// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_headers.h"

#include <string.h>

#include "m4vdec/m4v_idct.h"
#include "m4vdec/m4v_scan.h"

constexpr unsigned kVideoObject = 1;  // visual_object_type
constexpr unsigned kExtendedPar = 15;

// Marker bits are not insisted on in headers: some writers got them wrong.
static void skip_marker(BitReader* bits) { bits_read_1(bits); }

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

void m4v_parse_sequence(BitReader* bits, M4vLayer* layer) {
    const unsigned profile_and_level = bits_read(bits, 8);
    layer->is_studio = profile_and_level >= 0xe1 && profile_and_level <= 0xe8;
}

// ISO/IEC 14496-2 6.2.2.
static void parse_video_signal_type(BitReader* bits, M4vPresentation* presentation) {
    presentation->matrix_coefficients = 0;
    presentation->is_full_range = false;
    if (!bits_read_1(bits)) return;
    bits_read(bits, 3);  // video_format
    presentation->is_full_range = bits_read_1(bits);
    if (!bits_read_1(bits)) return;
    bits_read(bits, 16);  // primaries, transfer characteristics
    presentation->matrix_coefficients = static_cast<uint8_t>(bits_read(bits, 8));
}

void m4v_parse_visual_object(BitReader* bits, M4vLayer* layer) {
    layer->visual_object_verid = 1;
    if (bits_read_1(bits)) {
        layer->visual_object_verid = static_cast<uint8_t>(bits_read(bits, 4));
        bits_read(bits, 3);  // visual_object_priority
    }
    const unsigned type = bits_read(bits, 4);
    if (type == kVideoObject) parse_video_signal_type(bits, &layer->presentation);
}

static void skip_control_parameters(BitReader* bits) {
    bits_read(bits, 3);  // chroma_format, low_delay
    if (!bits_read_1(bits)) return;
    bits_skip(bits, 3 * (15 + 1));             // bit rate and the upper half of the buffer size
    bits_skip(bits, 3 + (11 + 1) + (15 + 1));  // its lower half, and the occupancy
}

// Entries in zigzag order; a 0 ends the list and repeats the one before it.
static int read_matrix(BitReader* bits, uint8_t* matrix) {
    unsigned value = 8;
    bool is_ended = false;
    for (unsigned i = 0; i < 64; ++i) {
        const unsigned entry = is_ended ? 0 : bits_read(bits, 8);
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

static int parse_quantisation(BitReader* bits, M4vLayer* layer) {
    layer->has_matrix = bits_read_1(bits);
    if (!layer->has_matrix) return 0;
    for (unsigned v = 0; v < 8; ++v) {
        for (unsigned u = 0; u < 8; ++u) {
            layer->intra_matrix[m4v_position(u, v)] = kDefaultIntraMatrix[v * 8 + u];
        }
    }
    if (bits_read_1(bits) && read_matrix(bits, layer->intra_matrix)) return 1;
    return bits_read_1(bits) && read_matrix(bits, nullptr);  // the matrix of inter blocks
}

// define_VOP_complexity_estimation_header(): adds up what an I-VOP's header has of it.
static int parse_complexity_estimation(BitReader* bits, M4vLayer* layer) {
    const auto add = [&](unsigned flags, unsigned in_intra) {
        const unsigned present = bits_read(bits, flags) & in_intra;
        layer->vop_complexity_bits =
            static_cast<uint8_t>(layer->vop_complexity_bits + 8 * __builtin_popcount(present));
        return present;
    };
    const unsigned method = bits_read(bits, 2);
    if (method > 1) return 1;
    if (!bits_read_1(bits)) add(6, 0x3f);  // shape: all six
    if (!bits_read_1(bits)) add(4, 0x9);   // intra blocks and not coded blocks of four
    skip_marker(bits);
    if (!bits_read_1(bits) && add(4, 0xf) & 1) layer->vop_complexity_bits -= 4;  // vlc_bits has 4
    if (!bits_read_1(bits)) add(6, 0);                                           // motion
    skip_marker(bits);
    if (method == 1 && !bits_read_1(bits)) add(2, 0x2);  // sadct, not quarterpel
    return 0;
}

// Global motion compensation leaves I-VOPs alone; a static sprite is another kind of picture.
static M4vRefusal parse_sprite(BitReader* bits, unsigned verid) {
    const unsigned sprite_enable = bits_read(bits, verid == 1 ? 1 : 2);
    if (sprite_enable == 1) return M4vRefusal::kStaticSprite;
    if (sprite_enable == 3) return M4vRefusal::kDamagedLayer;
    if (sprite_enable == 2)
        bits_read(bits, 6 + 2 + 1);  // warping points, accuracy, brightness change
    return M4vRefusal::kNone;
}

static int parse_rectangle(BitReader* bits, M4vLayer* layer) {
    skip_marker(bits);
    layer->width = static_cast<uint16_t>(bits_read(bits, 13));
    skip_marker(bits);
    layer->height = static_cast<uint16_t>(bits_read(bits, 13));
    skip_marker(bits);
    return layer->width == 0 || layer->height == 0;
}

static unsigned bits_for(unsigned values) {  // bits that hold 0 to values - 1, at least one
    return values <= 2 ? 1 : 32 - static_cast<unsigned>(__builtin_clz(values - 1));
}

static int parse_timing(BitReader* bits, M4vLayer* layer) {
    const unsigned resolution = bits_read(bits, 16);
    skip_marker(bits);
    if (resolution == 0) return 1;
    layer->time_increment_bits = static_cast<uint8_t>(bits_for(resolution));
    if (bits_read_1(bits)) bits_read(bits, layer->time_increment_bits);  // fixed_vop_time_increment
    return 0;
}

static void parse_error_resilience(BitReader* bits, M4vLayer* layer) {
    layer->has_resync_markers = !bits_read_1(bits);
    layer->is_data_partitioned = bits_read_1(bits);
    layer->has_reversible_vlc = layer->is_data_partitioned && bits_read_1(bits);
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
static M4vRefusal parse_object(BitReader* bits, M4vLayer* layer, unsigned* verid) {
    *verid = layer->visual_object_verid;
    if (bits_read_1(bits)) {
        *verid = bits_read(bits, 4);
        bits_read(bits, 3);
    }
    const unsigned aspect_ratio_info = bits_read(bits, 4);
    const unsigned par = aspect_ratio_info == kExtendedPar ? bits_read(bits, 16) : 0;
    m4v_set_pixel_shape(aspect_ratio_info, par >> 8, par & 0xff, &layer->presentation);
    if (bits_read_1(bits)) skip_control_parameters(bits);
    const unsigned video_object_layer_shape = bits_read(bits, 2);
    return video_object_layer_shape == 0 ? M4vRefusal::kNone : M4vRefusal::kShape;
}

// From the quantiser matrices on.
static M4vRefusal parse_tools(BitReader* bits, unsigned verid, M4vLayer* layer) {
    if (parse_quantisation(bits, layer)) return M4vRefusal::kDamagedLayer;
    if (verid != 1) bits_read_1(bits);  // quarter_sample
    if (!bits_read_1(bits) && parse_complexity_estimation(bits, layer))
        return M4vRefusal::kDamagedLayer;
    parse_error_resilience(bits, layer);
    if (verid != 1) {
        if (bits_read_1(bits)) return M4vRefusal::kNewpred;
        layer->has_reduced_resolution = bits_read_1(bits);
    }
    return bits_read_1(bits) ? M4vRefusal::kScalability : M4vRefusal::kNone;
}

static M4vRefusal parse_layer_fields(BitReader* bits, M4vLayer* layer) {
    bits_read_1(bits);  // random_accessible_vol
    M4vRefusal refusal = check_object_type(bits_read(bits, 8));
    if (refusal != M4vRefusal::kNone) return refusal;
    unsigned verid;
    refusal = parse_object(bits, layer, &verid);
    if (refusal != M4vRefusal::kNone) return refusal;
    skip_marker(bits);
    if (parse_timing(bits, layer) || parse_rectangle(bits, layer)) return M4vRefusal::kDamagedLayer;
    layer->is_interlaced = bits_read_1(bits);
    bits_read_1(bits);  // obmc_disable
    refusal = parse_sprite(bits, verid);
    if (refusal != M4vRefusal::kNone) return refusal;
    const bool not_8_bit = bits_read_1(bits);
    if (not_8_bit && bits_read(bits, 8) != 0x58)
        return M4vRefusal::kSampleDepth;  // quantiser 5, 8 bits
    return parse_tools(bits, verid, layer);
}

int m4v_parse_layer(BitReader* bits, M4vLayer* layer) {
    M4vLayer next = {};
    next.visual_object_verid = layer->visual_object_verid;
    next.is_studio = layer->is_studio;
    next.presentation = layer->presentation;
    next.refusal = next.is_studio ? M4vRefusal::kStudioProfile : parse_layer_fields(bits, &next);
    if (bits_overrun(bits)) next.refusal = M4vRefusal::kDamagedLayer;
    *layer = next;
    return next.refusal != M4vRefusal::kNone;
}

static void skip_modulo_time(BitReader* bits, const M4vLayer& layer) {
    while (bits_read_1(bits)) {  // modulo_time_base; zeros follow the data
    }
    skip_marker(bits);
    bits_read(bits, layer.time_increment_bits);
    skip_marker(bits);
}

static M4vRefusal parse_vop_fields(BitReader* bits, const M4vLayer& layer, M4vVop* vop) {
    if (bits_read(bits, 2) != 0) return M4vRefusal::kNotIntra;  // vop_coding_type: I
    skip_modulo_time(bits, layer);
    const bool vop_coded = bits_read_1(bits);
    if (!vop_coded) return M4vRefusal::kNotCoded;
    if (layer.has_reduced_resolution && bits_read_1(bits)) return M4vRefusal::kReducedResolution;
    bits_skip(bits, layer.vop_complexity_bits);
    vop->intra_dc_vlc_thr = static_cast<uint8_t>(bits_read(bits, 3));
    vop->alternate_vertical_scan = false;
    if (layer.is_interlaced) {
        bits_read_1(bits);  // top_field_first
        vop->alternate_vertical_scan = bits_read_1(bits);
    }
    vop->quant = static_cast<uint8_t>(bits_read(bits, 5));
    return vop->quant == 0 ? M4vRefusal::kDamagedHeader : M4vRefusal::kNone;
}

M4vRefusal m4v_parse_vop(BitReader* bits, const M4vLayer& layer, M4vVop* vop) {
    const M4vRefusal refusal = parse_vop_fields(bits, layer, vop);
    return bits_overrun(bits) ? M4vRefusal::kDamagedHeader : refusal;
}

bool m4v_is_at_packet_end(BitReader* bits) {
    bits_refill(bits);
    // A zero and ones up to the byte boundary, then 16 zeros.
    const unsigned stuffing = bits_to_alignment(bits) ? bits_to_alignment(bits) : 8;
    const unsigned window = bits_cached(bits, 24);
    return window >> (8 - stuffing) == ((1u << (stuffing - 1)) - 1) << 16;
}

int m4v_parse_packet(BitReader* bits, const M4vLayer& layer, unsigned number_bits,
                     M4vPacket* packet) {
    bits_read(bits, bits_to_alignment(bits) ? bits_to_alignment(bits) : 8);
    if (bits_read(bits, 17) != 1) return 1;
    packet->macroblock_number = bits_read(bits, number_bits);
    packet->quant = static_cast<uint8_t>(bits_read(bits, 5));
    if (bits_read_1(bits)) {  // header_extension_code
        skip_modulo_time(bits, layer);
        if (bits_read(bits, 2) != 0) return 1;  // vop_coding_type
        if (layer.has_reduced_resolution && bits_read_1(bits)) return 1;
        bits_read(bits, 3);  // intra_dc_vlc_thr, as in the VOP header
    }
    return packet->quant == 0 || bits_overrun(bits);
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
