// SPDX-License-Identifier: BSD-2-Clause
// The syntax of the slice header (H.264 7.3.3).
#pragma once

#include <stdint.h>

#include "avcdec/avc_refusal.h"
#include "avcdec/bit_reader.h"
#include "avcdec/nal_unit.h"
#include "avcdec/parameter_sets.h"

// One memory_management_control_operation and its operands. Kept, without effect: no picture is
// decoded after this one.
struct AvcMarkingOperation {
    uint8_t operation;
    uint32_t operands[2];
};

constexpr int kMaxMarkingOperations = 33;

struct AvcSliceHeader {
    uint32_t first_mb_in_slice;
    uint8_t slice_type;
    uint8_t all_slices_same_type;
    uint16_t pic_parameter_set_id;
    uint32_t frame_num;
    uint8_t field_pic_flag;  // 0 unless fields are allowed
    uint8_t bottom_field_flag;
    uint32_t idr_pic_id;
    uint32_t pic_order_cnt_lsb;
    int32_t delta_pic_order_cnt_bottom;
    int32_t delta_pic_order_cnt[2];
    uint32_t redundant_pic_cnt;
    uint8_t num_ref_idx_l0_active_minus1;
    uint8_t num_ref_idx_l1_active_minus1;
    uint8_t no_output_of_prior_pics_flag;
    uint8_t long_term_reference_flag;
    uint8_t adaptive_ref_pic_marking_mode_flag;
    uint8_t marking_count;
    AvcMarkingOperation marking[kMaxMarkingOperations];
    int32_t slice_qp_delta;
    uint8_t cabac_table_index;  // 3, the I slice column, when CABAC is on
    uint8_t disable_deblocking_filter_idc;
    int8_t slice_alpha_c0_offset_div2;
    int8_t slice_beta_offset_div2;
};

// Reads first_mb_in_slice to pic_parameter_set_id into *h, of which all_slices_same_type is that of
// the slice before in the picture.
AvcRefused avc_read_slice_identity(AvcBitReader* r, const NalHeader& nal, AvcSliceHeader* h);

// Reads the rest, by the parameter sets that the slice has named.
AvcRefused avc_read_slice_fields(AvcBitReader* r, const NalHeader& nal, const AvcSps& sps,
                                 const AvcPps& pps, AvcSliceHeader* h);
