// SPDX-License-Identifier: BSD-2-Clause
// The syntax of sequence and picture parameter sets (H.264 7.3.2.1, 7.3.2.2).
//
// Accepted are frames of progressive, 8-bit, 4:2:0 or monochrome streams without slice groups;
// everything else is refused here, before any memory for pictures is taken. Sizes and field widths
// that cannot be decoded are refused when a slice needs them: a set that is not used does no harm.
#pragma once

#include <stdint.h>

#include "avcdec/avc_refusal.h"
#include "avcdec/bit_reader.h"
#include "avcdec/decoded_picture.h"

constexpr int kMaxSps = 32;
constexpr int kMaxPps = 256;

enum ScalingListState : uint16_t { kListNotSent = 0, kListExplicit = 1, kListDefault = 2 };

// The lists that one parameter set sends, in coded (zig-zag) order: 4x4 intra Y, Cb, Cr, inter Y,
// Cb, Cr, then 8x8 intra Y, inter Y.
struct ScalingLists {
    uint16_t state;  // a ScalingListState per list i in bits 2i + 1 to 2i
    uint8_t list4x4[6][16];
    uint8_t list8x8[2][64];
};

struct AvcSps {
    uint8_t profile_idc;
    uint8_t constraint_set_flags;  // set0 to set3 from bit 3 down
    uint8_t level_idc;
    uint16_t seq_parameter_set_id;
    uint8_t chroma_format_idc;  // 0 or 1 in a set that is accepted, 3 where that is allowed
    uint8_t separate_colour_plane_flag;
    uint32_t bit_depth_luma;  // 8 in a set that is accepted
    uint32_t bit_depth_chroma;
    uint8_t qpprime_y_zero_transform_bypass_flag;  // 0 in a set that is accepted
    uint8_t seq_scaling_matrix_present_flag;
    uint8_t has_chroma_8x8_lists;  // which only 4:4:4 has: they are read over
    ScalingLists scaling;
    uint32_t log2_max_frame_num;
    uint8_t pic_order_cnt_type;
    uint32_t log2_max_pic_order_cnt_lsb;       // type 0
    uint8_t delta_pic_order_always_zero_flag;  // type 1
    int32_t offset_for_non_ref_pic;
    int32_t offset_for_top_to_bottom_field;
    uint32_t num_ref_frames_in_pic_order_cnt_cycle;
    uint32_t max_num_ref_frames;
    uint8_t gaps_in_frame_num_value_allowed_flag;
    uint8_t frame_mbs_only_flag;  // 1 in a set that is accepted, unless others are allowed
    uint8_t mb_adaptive_frame_field_flag;
    uint8_t direct_8x8_inference_flag;
    uint8_t frame_cropping_flag;
    uint16_t frame_crop_left_offset;  // as coded
    uint16_t frame_crop_right_offset;
    uint16_t frame_crop_top_offset;
    uint16_t frame_crop_bottom_offset;
    uint8_t vui_parameters_present_flag;
    StreamPresentation presentation;  // of the VUI
    uint32_t width_mbs;
    uint32_t height_mbs;
    // Of the macroblock grid; all 0 when one of the sizes is too large.
    uint16_t width;  // luma samples
    uint16_t height;
    uint16_t pic_size_in_mbs;
    uint8_t high_profile_syntax;  // 1 when the chroma format to scaling matrix fields were coded
};

struct AvcPps {
    uint16_t pic_parameter_set_id;
    uint16_t seq_parameter_set_id;
    uint8_t entropy_coding_mode_flag;  // 0 CAVLC, 1 CABAC
    uint8_t bottom_field_pic_order_in_frame_present_flag;
    uint8_t num_ref_idx_l0_default_active_minus1;
    uint8_t num_ref_idx_l1_default_active_minus1;
    uint8_t weighted_pred_flag;
    uint8_t weighted_bipred_idc;
    uint8_t pic_init_qp;  // 0 to 51
    int8_t chroma_qp_index_offset;
    uint8_t deblocking_filter_control_present_flag;
    uint8_t constrained_intra_pred_flag;
    uint8_t redundant_pic_cnt_present_flag;
    uint8_t transform_8x8_mode_flag;
    uint8_t pic_scaling_matrix_present_flag;
    uint8_t has_chroma_8x8_lists;
    ScalingLists scaling;
    int8_t second_chroma_qp_index_offset;
    uint8_t changed;  // 1 when the tables derived from this record must be rebuilt
};

// Read the parameter set after the NAL header that the reader stands on. Return why it is refused,
// if it is. A sequence parameter set of a format that is not decoded is filled all the same. More
// formats may be allowed: interlaced streams, for their fields and frames that are not coded in
// pairs, and 4:4:4. sps_table has kMaxSps entries, null where no set is stored.
AvcRefused avc_read_sps(AvcBitReader* r, AvcSps* sps, bool allows_more_formats = false);
AvcRefused avc_read_pps(AvcBitReader* r, const AvcSps* const* sps_table, AvcPps* pps);

// Why no picture of an accepted set can be decoded: its size, or the fields of its slice headers.
AvcRefused avc_refusal_at_activation(const AvcSps& sps);

// H.264 7.3.2.1.1.1. Reads a list of 16 or 64 entries in coded order. Returns 1 when the list
// signals use-default, and leaves the list alone then, else 0.
int avc_parse_scaling_list(AvcBitReader* r, uint8_t* list, int size);
