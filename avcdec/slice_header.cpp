// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/slice_header.h"

enum SliceType : uint32_t { kSliceP = 0, kSliceB = 1, kSliceI = 2 };

static constexpr AvcRefused kDamaged = {AvcRefusal::kSliceHeader};

static AvcRefused slice_type_refusal(uint32_t slice_type) {
    if (slice_type > 4) return kDamaged;
    const bool is_predicted = slice_type == kSliceP || slice_type == kSliceB;
    return {is_predicted ? AvcRefusal::kPredictedSlice : AvcRefusal::kSwitchingSlice, slice_type};
}

AvcRefused avc_read_slice_identity(AvcBitReader* r, const NalHeader& nal, AvcSliceHeader* h) {
    h->first_mb_in_slice = bits_ue(r);
    uint32_t slice_type = bits_ue(r);
    if (slice_type > 4) {
        slice_type -= 5;
        h->all_slices_same_type = 1;
    }
    if (slice_type != kSliceI) return slice_type_refusal(slice_type);
    h->slice_type = static_cast<uint8_t>(slice_type);
    if (nal.type == kNalIdrSlice && nal.ref_idc == 0) return {AvcRefusal::kIdrWithoutReference};
    const uint32_t pps_id = bits_ue(r);
    if (pps_id >= kMaxPps) return kDamaged;
    h->pic_parameter_set_id = static_cast<uint16_t>(pps_id);
    return {};
}

static void parse_pic_order_cnt(AvcBitReader* r, const AvcSps& sps, const AvcPps& pps,
                                AvcSliceHeader* h) {
    const bool is_pair = pps.bottom_field_pic_order_in_frame_present_flag && !h->field_pic_flag;
    if (sps.pic_order_cnt_type == 0) {
        h->pic_order_cnt_lsb = bits_read(r, static_cast<int>(sps.log2_max_pic_order_cnt_lsb));
        if (is_pair) h->delta_pic_order_cnt_bottom = bits_se_long(r);
    } else if (sps.pic_order_cnt_type == 1 && !sps.delta_pic_order_always_zero_flag) {
        h->delta_pic_order_cnt[0] = bits_se_long(r);
        if (is_pair) h->delta_pic_order_cnt[1] = bits_se_long(r);
    }
}

// H.264 7.3.3.3, the operations of adaptive marking.
static int parse_marking_operations(AvcBitReader* r, AvcSliceHeader* h) {
    static constexpr uint8_t kOperands[] = {0, 1, 1, 2, 1, 0, 1};
    for (;;) {
        const uint32_t operation = bits_ue(r);
        if (operation > 6) return 1;
        if (operation == 0) return 0;
        if (h->marking_count == kMaxMarkingOperations) return 1;
        AvcMarkingOperation* const entry = &h->marking[h->marking_count++];
        entry->operation = static_cast<uint8_t>(operation);
        for (int i = 0; i < kOperands[operation]; ++i) entry->operands[i] = bits_ue(r);
    }
}

static int parse_marking(AvcBitReader* r, bool is_idr, AvcSliceHeader* h) {
    if (is_idr) {
        h->no_output_of_prior_pics_flag = static_cast<uint8_t>(bits_read_1(r));
        h->long_term_reference_flag = static_cast<uint8_t>(bits_read_1(r));
        return 0;
    }
    h->adaptive_ref_pic_marking_mode_flag = static_cast<uint8_t>(bits_read_1(r));
    return h->adaptive_ref_pic_marking_mode_flag ? parse_marking_operations(r, h) : 0;
}

static int parse_deblocking(AvcBitReader* r, AvcSliceHeader* h) {
    const uint32_t disable_deblocking_filter_idc = bits_ue(r);
    if (disable_deblocking_filter_idc > 2) return 1;
    h->disable_deblocking_filter_idc = static_cast<uint8_t>(disable_deblocking_filter_idc);
    if (disable_deblocking_filter_idc == 1) return 0;
    const int32_t alpha = bits_se(r);
    const int32_t beta = bits_se(r);
    if (alpha < -6 || alpha > 6 || beta < -6 || beta > 6) return 1;
    h->slice_alpha_c0_offset_div2 = static_cast<int8_t>(alpha);
    h->slice_beta_offset_div2 = static_cast<int8_t>(beta);
    return 0;
}

// field_pic_flag and bottom_field_flag. Frames of macroblock pairs are not decoded.
static AvcRefused read_structure(AvcBitReader* r, const AvcSps& sps, AvcSliceHeader* h) {
    if (sps.frame_mbs_only_flag) return {};
    h->field_pic_flag = static_cast<uint8_t>(bits_read_1(r));
    if (!h->field_pic_flag) {
        return {sps.mb_adaptive_frame_field_flag ? AvcRefusal::kInterlaced : AvcRefusal::kNone};
    }
    h->bottom_field_flag = static_cast<uint8_t>(bits_read_1(r));
    return h->first_mb_in_slice < sps.pic_size_in_mbs / 2U ? AvcRefused{} : kDamaged;
}

AvcRefused avc_read_slice_fields(AvcBitReader* r, const NalHeader& nal, const AvcSps& sps,
                                 const AvcPps& pps, AvcSliceHeader* h) {
    const bool is_idr = nal.type == kNalIdrSlice;
    if (h->first_mb_in_slice >= sps.pic_size_in_mbs) return kDamaged;
    h->frame_num = bits_read(r, static_cast<int>(sps.log2_max_frame_num));
    if (const AvcRefused refused = read_structure(r, sps, h)) return refused;
    if (is_idr) h->idr_pic_id = bits_ue(r);
    parse_pic_order_cnt(r, sps, pps, h);
    if (pps.redundant_pic_cnt_present_flag) h->redundant_pic_cnt = bits_ue(r);
    if (h->redundant_pic_cnt > 0) return {AvcRefusal::kRedundantSlice};
    h->num_ref_idx_l0_active_minus1 = pps.num_ref_idx_l0_default_active_minus1;
    h->num_ref_idx_l1_active_minus1 = pps.num_ref_idx_l1_default_active_minus1;
    if (nal.ref_idc != 0 && parse_marking(r, is_idr, h)) return kDamaged;
    h->cabac_table_index = pps.entropy_coding_mode_flag ? 3 : 0;
    h->slice_qp_delta = bits_se(r);
    if (pps.deblocking_filter_control_present_flag && parse_deblocking(r, h)) return kDamaged;
    return {};
}
