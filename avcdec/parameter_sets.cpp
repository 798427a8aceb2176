// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/parameter_sets.h"

#include <assert.h>
#include <string.h>

static constexpr AvcRefused kDamagedSps = {AvcRefusal::kSequenceSet};
static constexpr AvcRefused kDamagedPps = {AvcRefusal::kPictureSet};

int avc_parse_scaling_list(AvcBitReader* r, uint8_t* list, int size) {
    assert(size == 16 || size == 64);
    int last_scale = 8;
    int next_scale = 8;
    for (int i = 0; i < size; ++i) {
        if (next_scale != 0) next_scale = (last_scale + bits_se(r)) & 255;
        if (i == 0 && next_scale == 0) return 1;
        if (next_scale != 0) last_scale = next_scale;
        list[i] = static_cast<uint8_t>(last_scale);
    }
    return 0;
}

// count is 6 to 12: lists after the eighth, which 4:4:4 has, are read over. Returns whether one
// was.
static bool parse_scaling_lists(AvcBitReader* r, ScalingLists* lists, int count) {
    assert(count >= 6 && count <= 12);
    bool has_chroma_8x8 = false;
    uint8_t unused[64];
    for (int i = 0; i < count; ++i) {
        if (!bits_read_1(r)) continue;
        const int use_default =
            i < 6 ? avc_parse_scaling_list(r, lists->list4x4[i], 16)
                  : avc_parse_scaling_list(r, i < 8 ? lists->list8x8[i - 6] : unused, 64);
        if (i >= 8) {
            has_chroma_8x8 = true;
            continue;
        }
        lists->state |=
            static_cast<uint16_t>((use_default ? kListDefault : kListExplicit) << 2 * i);
    }
    return has_chroma_8x8;
}

static bool has_high_profile_syntax(uint32_t profile_idc) {
    static constexpr uint8_t kProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 144};
    return memchr(kProfiles, static_cast<int>(profile_idc), sizeof kProfiles) != nullptr;
}

// chroma_format_idc to the scaling matrix.
static AvcRefused parse_high_profile_fields(AvcBitReader* r, AvcSps* sps) {
    const uint32_t chroma_format_idc = bits_ue(r);
    if (chroma_format_idc > 3) return kDamagedSps;
    sps->chroma_format_idc = static_cast<uint8_t>(chroma_format_idc);
    if (chroma_format_idc == 3) {
        sps->separate_colour_plane_flag = static_cast<uint8_t>(bits_read_1(r));
    }
    sps->bit_depth_luma = 8 + bits_ue(r);
    sps->bit_depth_chroma = 8 + bits_ue(r);
    sps->qpprime_y_zero_transform_bypass_flag = static_cast<uint8_t>(bits_read_1(r));
    sps->seq_scaling_matrix_present_flag = static_cast<uint8_t>(bits_read_1(r));
    if (sps->seq_scaling_matrix_present_flag) {
        sps->has_chroma_8x8_lists =
            parse_scaling_lists(r, &sps->scaling, chroma_format_idc == 3 ? 12 : 8);
    }
    return {};
}

static AvcRefused parse_pic_order_cnt(AvcBitReader* r, AvcSps* sps) {
    const uint32_t type = bits_ue(r);
    if (type > 2) return kDamagedSps;
    sps->pic_order_cnt_type = static_cast<uint8_t>(type);
    if (type == 0) {
        sps->log2_max_pic_order_cnt_lsb = bits_ue(r) + 4;
    } else if (type == 1) {
        sps->delta_pic_order_always_zero_flag = static_cast<uint8_t>(bits_read_1(r));
        sps->offset_for_non_ref_pic = bits_se_long(r);
        sps->offset_for_top_to_bottom_field = bits_se_long(r);
        sps->num_ref_frames_in_pic_order_cnt_cycle = bits_ue(r);
        if (sps->num_ref_frames_in_pic_order_cnt_cycle > 255) return kDamagedSps;
        for (uint32_t i = 0; i < sps->num_ref_frames_in_pic_order_cnt_cycle; ++i) bits_se_long(r);
    }
    return {};
}

// Sizes in samples are kept in 16 bits, and stay 0 for a picture whose samples or macroblocks those
// cannot count: 4096x4096 is 65536 macroblocks.
static void parse_picture_size(AvcBitReader* r, AvcSps* sps) {
    sps->width_mbs = bits_ue(r) + 1;
    sps->height_mbs = bits_ue(r) + 1;
    sps->frame_mbs_only_flag = static_cast<uint8_t>(bits_read_1(r));
    if (!sps->frame_mbs_only_flag) {
        sps->height_mbs *= 2;  // these were pairs
        sps->mb_adaptive_frame_field_flag = static_cast<uint8_t>(bits_read_1(r));
    }
    if (sps->width_mbs > 0xffff / 16 || sps->height_mbs > 0xffff / 16) return;
    if (sps->width_mbs * sps->height_mbs > 0xffff) return;
    sps->width = static_cast<uint16_t>(sps->width_mbs * 16);
    sps->height = static_cast<uint16_t>(sps->height_mbs * 16);
    sps->pic_size_in_mbs = static_cast<uint16_t>(sps->width_mbs * sps->height_mbs);
}

AvcRefused avc_refusal_at_activation(const AvcSps& sps) {
    if (sps.pic_size_in_mbs == 0) return {AvcRefusal::kTooManyMacroblocks};
    // H.264 7.4.2.1.1: the numbers in slice headers have 4 to 16 bits.
    if (sps.log2_max_frame_num > 16 || sps.log2_max_pic_order_cnt_lsb > 16) return kDamagedSps;
    return {};
}

static void parse_cropping(AvcBitReader* r, AvcSps* sps) {
    sps->frame_cropping_flag = static_cast<uint8_t>(bits_read_1(r));
    if (!sps->frame_cropping_flag) return;
    sps->frame_crop_left_offset = static_cast<uint16_t>(bits_ue(r));
    sps->frame_crop_right_offset = static_cast<uint16_t>(bits_ue(r));
    sps->frame_crop_top_offset = static_cast<uint16_t>(bits_ue(r));
    sps->frame_crop_bottom_offset = static_cast<uint16_t>(bits_ue(r));
}

// Passes one ue(v) of up to 32 leading zeros without computing its value.
static void skip_long_ue(AvcBitReader* r) {
    uint32_t zeros = 0;
    while (zeros < 32 && !bits_read_1(r)) ++zeros;
    bits_skip(r, zeros);
}

// H.264 E.1.2.
static void skip_hrd_parameters(AvcBitReader* r) {
    const uint32_t cpb_cnt = bits_ue(r) + 1;
    bits_skip(r, 8);  // bit_rate_scale, cpb_size_scale
    for (uint32_t i = 0; i < cpb_cnt && !bits_overrun(r); ++i) {
        skip_long_ue(r);
        skip_long_ue(r);
        bits_skip(r, 1);
    }
    bits_skip(r, 10);
    bits_skip(r, 10);
}

// H.264 table E-1.
static void parse_aspect_ratio(AvcBitReader* r, StreamPresentation* presentation) {
    static constexpr uint8_t kPixelShapes[][2] = {
        {0, 0},   {1, 1},   {12, 11}, {10, 11}, {16, 11},  {40, 33}, {24, 11}, {20, 11}, {32, 11},
        {80, 33}, {18, 11}, {15, 11}, {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1}};
    constexpr uint32_t kExtendedSar = 255;
    const uint32_t aspect_ratio_idc = bits_read(r, 8);
    if (aspect_ratio_idc == kExtendedSar) {
        presentation->pixel_width = static_cast<uint16_t>(bits_read(r, 16));
        presentation->pixel_height = static_cast<uint16_t>(bits_read(r, 16));
    } else if (aspect_ratio_idc < sizeof kPixelShapes / sizeof kPixelShapes[0]) {
        presentation->pixel_width = kPixelShapes[aspect_ratio_idc][0];
        presentation->pixel_height = kPixelShapes[aspect_ratio_idc][1];
    }
}

static void parse_video_signal_type(AvcBitReader* r, StreamPresentation* presentation) {
    bits_skip(r, 3);  // video_format
    presentation->full_range = static_cast<uint8_t>(bits_read_1(r));
    if (!bits_read_1(r)) return;
    bits_skip(r, 16);  // primaries, transfer characteristics
    presentation->matrix_coefficients = static_cast<uint8_t>(bits_read(r, 8));
}

// H.264 E.1.1: nothing in it changes the decoding of one picture.
static void parse_vui(AvcBitReader* r, StreamPresentation* presentation) {
    if (bits_read_1(r)) parse_aspect_ratio(r, presentation);
    if (bits_read_1(r)) bits_skip(r, 1);  // overscan
    if (bits_read_1(r)) parse_video_signal_type(r, presentation);
    if (bits_read_1(r)) {  // chroma sample location
        bits_ue(r);
        bits_ue(r);
    }
    if (bits_read_1(r)) bits_skip(r, 65);  // timing
    const uint32_t nal_hrd = bits_read_1(r);
    if (nal_hrd) skip_hrd_parameters(r);
    const uint32_t vcl_hrd = bits_read_1(r);
    if (vcl_hrd) skip_hrd_parameters(r);
    if (nal_hrd || vcl_hrd) bits_skip(r, 1);  // low_delay_hrd_flag
    if (bits_read(r, 2) & 1) {                // pic_struct_present_flag, bitstream restriction
        bits_skip(r, 1);
        for (int i = 0; i < 6; ++i) bits_ue(r);
    }
}

// What cannot be decoded, of a set that was read to its end.
static AvcRefused format_refusal(const AvcSps& sps, bool allows_more_formats) {
    const bool has_three_lumas = sps.chroma_format_idc == 3 && sps.frame_mbs_only_flag &&
                                 !sps.separate_colour_plane_flag && !sps.has_chroma_8x8_lists;
    if (sps.chroma_format_idc > 1 && !(allows_more_formats && has_three_lumas)) {
        return {AvcRefusal::kChromaFormat, sps.chroma_format_idc};
    }
    if (sps.bit_depth_luma != 8) return {AvcRefusal::kBitDepth, sps.bit_depth_luma};
    if (sps.bit_depth_chroma != 8) return {AvcRefusal::kBitDepth, sps.bit_depth_chroma};
    if (sps.qpprime_y_zero_transform_bypass_flag) return {AvcRefusal::kLossless};
    if (!sps.frame_mbs_only_flag && !allows_more_formats) return {AvcRefusal::kInterlaced};
    return {};
}

AvcRefused avc_read_sps(AvcBitReader* r, AvcSps* sps, bool allows_more_formats) {
    *sps = {};
    sps->profile_idc = static_cast<uint8_t>(bits_read(r, 8));
    sps->constraint_set_flags = static_cast<uint8_t>(bits_read(r, 4));
    bits_skip(r, 4);
    sps->level_idc = static_cast<uint8_t>(bits_read(r, 8));
    const uint32_t id = bits_ue(r);
    if (id >= kMaxSps) return kDamagedSps;
    sps->seq_parameter_set_id = static_cast<uint16_t>(id);
    sps->chroma_format_idc = 1;
    sps->bit_depth_luma = 8;
    sps->bit_depth_chroma = 8;
    if (has_high_profile_syntax(sps->profile_idc)) {
        sps->high_profile_syntax = 1;
        if (const AvcRefused refused = parse_high_profile_fields(r, sps)) return refused;
    }
    sps->log2_max_frame_num = bits_ue(r) + 4;
    if (const AvcRefused refused = parse_pic_order_cnt(r, sps)) return refused;
    sps->max_num_ref_frames = bits_ue(r);
    sps->gaps_in_frame_num_value_allowed_flag = static_cast<uint8_t>(bits_read_1(r));
    parse_picture_size(r, sps);
    sps->direct_8x8_inference_flag = static_cast<uint8_t>(bits_read_1(r));
    parse_cropping(r, sps);
    sps->vui_parameters_present_flag = static_cast<uint8_t>(bits_read_1(r));
    if (sps->vui_parameters_present_flag) parse_vui(r, &sps->presentation);
    bits_skip_trailing(r);
    return format_refusal(*sps, allows_more_formats);
}

static AvcRefused parse_pps_extension(AvcBitReader* r, bool is_444, AvcPps* pps) {
    int overrun = 0;
    const int more = bits_more_rbsp_data(r, &overrun);
    if (overrun) return kDamagedPps;
    AvcBitReader ahead = *r;
    if (!more || bits_trailing_check(&ahead)) return {};

    pps->transform_8x8_mode_flag = static_cast<uint8_t>(bits_read_1(r));
    pps->pic_scaling_matrix_present_flag = static_cast<uint8_t>(bits_read_1(r));
    if (pps->pic_scaling_matrix_present_flag) {
        const int count_8x8 = pps->transform_8x8_mode_flag ? is_444 ? 6 : 2 : 0;
        pps->has_chroma_8x8_lists = parse_scaling_lists(r, &pps->scaling, 6 + count_8x8);
    }
    const int32_t second_chroma_qp_index_offset = bits_se(r);
    if (second_chroma_qp_index_offset < -12 || second_chroma_qp_index_offset > 12) {
        return kDamagedPps;
    }
    pps->second_chroma_qp_index_offset = static_cast<int8_t>(second_chroma_qp_index_offset);
    return {};
}

AvcRefused avc_read_pps(AvcBitReader* r, const AvcSps* const* sps_table, AvcPps* pps) {
    *pps = {};
    const uint32_t id = bits_ue(r);
    const uint32_t sps_id = bits_ue(r);
    if (id >= kMaxPps || sps_id >= kMaxSps) return kDamagedPps;
    pps->pic_parameter_set_id = static_cast<uint16_t>(id);
    pps->seq_parameter_set_id = static_cast<uint16_t>(sps_id);
    pps->entropy_coding_mode_flag = static_cast<uint8_t>(bits_read_1(r));
    pps->bottom_field_pic_order_in_frame_present_flag = static_cast<uint8_t>(bits_read_1(r));
    const uint32_t num_slice_groups_minus1 = bits_ue(r);
    if (num_slice_groups_minus1 > 0) return {AvcRefusal::kSliceGroups};
    const uint32_t refs_l0 = bits_ue(r);
    const uint32_t refs_l1 = bits_ue(r);
    if (refs_l0 > 15 || refs_l1 > 15) return kDamagedPps;
    pps->num_ref_idx_l0_default_active_minus1 = static_cast<uint8_t>(refs_l0);
    pps->num_ref_idx_l1_default_active_minus1 = static_cast<uint8_t>(refs_l1);
    pps->weighted_pred_flag = static_cast<uint8_t>(bits_read_1(r));
    pps->weighted_bipred_idc = static_cast<uint8_t>(bits_read(r, 2));
    if (pps->weighted_bipred_idc > 2) return kDamagedPps;
    const int32_t pic_init_qp = bits_se(r) + 26;
    if (pic_init_qp < 0 || pic_init_qp > 51) return kDamagedPps;
    pps->pic_init_qp = static_cast<uint8_t>(pic_init_qp);
    bits_se(r);  // pic_init_qs_minus26
    const int32_t chroma_qp_index_offset = bits_se(r);
    if (chroma_qp_index_offset < -12 || chroma_qp_index_offset > 12) return kDamagedPps;
    pps->chroma_qp_index_offset = static_cast<int8_t>(chroma_qp_index_offset);
    pps->second_chroma_qp_index_offset = pps->chroma_qp_index_offset;
    pps->deblocking_filter_control_present_flag = static_cast<uint8_t>(bits_read_1(r));
    pps->constrained_intra_pred_flag = static_cast<uint8_t>(bits_read_1(r));
    pps->redundant_pic_cnt_present_flag = static_cast<uint8_t>(bits_read_1(r));

    const AvcSps* const sps = sps_table[sps_id];
    if (!sps || sps->high_profile_syntax) {
        const bool is_444 = sps && sps->chroma_format_idc == 3;
        if (const AvcRefused refused = parse_pps_extension(r, is_444, pps)) return refused;
    }
    bits_skip_trailing(r);
    return {};
}
