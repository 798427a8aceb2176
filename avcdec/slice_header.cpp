// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/slice_header.h"

#include "avcdec/avc_decoder.h"
#include "avcdec/quantiser.h"
#include "avcdec/reconstruct.h"

enum SliceType : uint32_t { kSliceP = 0, kSliceB = 1, kSliceI = 2 };

static constexpr AvcRefused kDamaged = {AvcRefusal::kSliceHeader};

static int refuse(AvcDecoder* d, AvcRefused refused) {
    d->refused = refused;
    return 1;
}

static int activate_sps(AvcDecoder* d, AvcSps* sps) {
    avc_release_work(d);
    d->sets.active_sps = nullptr;
    picture_begin(d);
    if (avc_allocate_work(d, sps)) return refuse(d, {AvcRefusal::kNoMemory});
    d->sets.active_sps = sps;
    return 0;
}

static void apply_pps(AvcDecoder* d) {
    const AvcPps* const pps = d->sets.active_pps;
    d->is_cabac = pps->entropy_coding_mode_flag;
    d->transform_8x8_mode = pps->transform_8x8_mode_flag;
    if (pps->changed) quantiser_apply_parameter_sets(&d->quantiser, d->sets.active_sps, pps);
}

int avc_activate_pps(AvcDecoder* d, uint32_t pic_parameter_set_id) {
    const AvcRefused refused = avc_refusal_of_pps(d->sets, pic_parameter_set_id);
    if (refused) return refuse(d, refused);
    AvcPps* const pps = d->sets.pps[pic_parameter_set_id];
    AvcSps* const sps = d->sets.sps[pps->seq_parameter_set_id];
    if (pps != d->sets.active_pps || sps != d->sets.active_sps) pps->changed = 1;
    d->sets.active_pps = pps;
    if (sps != d->sets.active_sps && activate_sps(d, sps)) return 1;
    apply_pps(d);
    return 0;
}

static void parse_pic_order_cnt(AvcBitReader* r, const AvcDecoder* d, AvcSliceHeader* h) {
    const AvcSps* const sps = d->sets.active_sps;
    const bool is_pair = d->sets.active_pps->bottom_field_pic_order_in_frame_present_flag;
    if (sps->pic_order_cnt_type == 0) {
        h->pic_order_cnt_lsb = bits_read(r, static_cast<int>(sps->log2_max_pic_order_cnt_lsb));
        if (is_pair) h->delta_pic_order_cnt_bottom = bits_se_long(r);
    } else if (sps->pic_order_cnt_type == 1 && !sps->delta_pic_order_always_zero_flag) {
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

static AvcRefused slice_type_refusal(uint32_t slice_type) {
    if (slice_type > 4) return kDamaged;
    const bool is_predicted = slice_type == kSliceP || slice_type == kSliceB;
    return {is_predicted ? AvcRefusal::kPredictedSlice : AvcRefusal::kSwitchingSlice, slice_type};
}

// first_mb_in_slice to the activation of the parameter sets.
static int parse_identity(AvcBitReader* r, AvcDecoder* d, AvcSliceHeader* h) {
    h->first_mb_in_slice = bits_ue(r);
    uint32_t slice_type = bits_ue(r);
    h->all_slices_same_type = d->next_mb != 0 && d->slice.all_slices_same_type;
    if (slice_type > 4) {
        slice_type -= 5;
        h->all_slices_same_type = 1;
    }
    if (slice_type != kSliceI) return refuse(d, slice_type_refusal(slice_type));
    h->slice_type = static_cast<uint8_t>(slice_type);
    if (d->nal_unit_type == kNalIdrSlice && d->nal_ref_idc == 0) {
        return refuse(d, {AvcRefusal::kIdrWithoutReference});
    }
    const uint32_t pps_id = bits_ue(r);
    if (pps_id >= kMaxPps) return refuse(d, kDamaged);
    h->pic_parameter_set_id = static_cast<uint16_t>(pps_id);
    if (avc_activate_pps(d, pps_id)) return 1;
    const uint32_t size = d->sets.active_sps->pic_size_in_mbs;
    return h->first_mb_in_slice >= size ? refuse(d, kDamaged) : 0;
}

int avc_parse_slice_header(AvcBitReader* r, AvcDecoder* d) {
    const bool is_idr = d->nal_unit_type == kNalIdrSlice;
    AvcSliceHeader h = {};
    if (parse_identity(r, d, &h)) return 1;
    AvcPps* const pps = d->sets.active_pps;
    h.frame_num = bits_read(r, static_cast<int>(d->sets.active_sps->log2_max_frame_num));
    if (is_idr) h.idr_pic_id = bits_ue(r);
    parse_pic_order_cnt(r, d, &h);
    if (pps->redundant_pic_cnt_present_flag) h.redundant_pic_cnt = bits_ue(r);
    if (h.redundant_pic_cnt > 0) return refuse(d, {AvcRefusal::kRedundantSlice});
    h.num_ref_idx_l0_active_minus1 = pps->num_ref_idx_l0_default_active_minus1;
    h.num_ref_idx_l1_active_minus1 = pps->num_ref_idx_l1_default_active_minus1;
    if (d->nal_ref_idc != 0 && parse_marking(r, is_idr, &h)) return refuse(d, kDamaged);
    h.cabac_table_index = d->is_cabac ? 3 : 0;
    const int32_t slice_qp = pps->pic_init_qp + bits_se(r);
    if (pps->deblocking_filter_control_present_flag && parse_deblocking(r, &h)) {
        return refuse(d, kDamaged);
    }
    d->slice = h;
    d->slice_qp = slice_qp;
    quantiser_set_qp(&d->quantiser, slice_qp);
    pps->changed = 0;
    return 0;
}
