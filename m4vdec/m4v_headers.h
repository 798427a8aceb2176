// SPDX-License-Identifier: BSD-2-Clause
// Headers of an MPEG-4 visual stream down to the VOP and the video packet (ISO/IEC 14496-2 6.2).
// What an I-VOP's decoding does not depend on is read over.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "m4vdec/m4v_presentation.h"
#include "m4vdec/m4v_refusal.h"
#include "runtime/bits.h"

// Start code values, after 00 00 01.
constexpr unsigned kStartVideoObjectLast = 0x1f;
constexpr unsigned kStartLayerFirst = 0x20;
constexpr unsigned kStartLayerLast = 0x2f;
constexpr unsigned kStartSequence = 0xb0;
constexpr unsigned kStartVisualObject = 0xb5;
constexpr unsigned kStartVop = 0xb6;

// What is known of a visual object sequence. Owns nothing.
struct M4vLayer {
    M4vRefusal refusal;           // of the video object layer; kNoLayer before there was one
    bool is_studio;               // the sequence has a studio profile: another syntax
    uint8_t visual_object_verid;  // 1 when not given
    uint16_t width;               // luma samples, 1 to 8191
    uint16_t height;
    uint8_t time_increment_bits;  // 1 to 16
    uint8_t vop_complexity_bits;  // complexity fields in the header of an I-VOP
    bool is_interlaced;
    bool has_matrix;  // MPEG quantisation with intra_matrix
    bool has_resync_markers;
    bool is_data_partitioned;
    bool has_reversible_vlc;
    bool has_reduced_resolution;  // a VOP may be coded with it
    uint8_t intra_matrix[64];     // by m4v_position
    M4vPresentation presentation;
};

struct M4vVop {
    uint8_t intra_dc_vlc_thr;  // 0 to 7
    bool alternate_vertical_scan;
    uint8_t quant;  // 1 to 31
};

struct M4vPacket {
    uint32_t macroblock_number;
    uint8_t quant;  // 1 to 31
};

void m4v_layer_init(M4vLayer* layer);

// These take the bits after the start code, as do those below.
void m4v_parse_sequence(BitReader* bits, M4vLayer* layer);
void m4v_parse_visual_object(BitReader* bits, M4vLayer* layer);
// Returns 1, with the reason in layer->refusal, when a tool is not supported or the data ends.
int m4v_parse_layer(BitReader* bits, M4vLayer* layer);

// Refuses what is not a coded I-VOP.
M4vRefusal m4v_parse_vop(BitReader* bits, const M4vLayer& layer, M4vVop* vop);

// Whether stuffing and a resync marker or a start code come next (or the data ends here).
bool m4v_is_at_packet_end(BitReader* bits);
// Reads the stuffing, the marker and the header. number_bits is the length of macroblock_number.
// Returns 1 when there is no marker or the header is not that of an I-VOP.
int m4v_parse_packet(BitReader* bits, const M4vLayer& layer, unsigned number_bits,
                     M4vPacket* packet);

// Finds the next start code (00 00 01 and one more byte) in [p, end). Returns the byte after it
// and stores its value, or returns null.
const uint8_t* m4v_find_start_code(const uint8_t* p, const uint8_t* end, unsigned* value);
