// SPDX-License-Identifier: BSD-2-Clause
// Writes H.264 parameter sets, slice headers and I_PCM macroblocks with fields of choice.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "tests/support/bit_packer.h"

// Strings are bits.
struct SpsSpec {
    uint32_t profile_idc = 66, id = 0;
    // For high profiles only; scaling has the eight lists with their flags, if any.
    uint32_t chroma_format_idc = 1, bit_depth_luma_minus8 = 0, bit_depth_chroma_minus8 = 0;
    uint32_t lossless = 0;
    std::string scaling = "";
    uint32_t log2_max_frame_num_minus4 = 0, pic_order_cnt_type = 2;
    std::string pic_order_cnt = "";  // the type's fields
    uint32_t width_mbs = 1, height_mbs = 1, frame_mbs_only_flag = 1, mb_adaptive = 0;
    std::vector<uint32_t> crop = {};  // left, right, top, bottom
    std::string vui = "";
};

struct PpsSpec {
    uint32_t id = 0, sps_id = 0, cabac = 0, pic_order_present = 0, num_slice_groups_minus1 = 0;
    uint32_t refs_l0 = 0, refs_l1 = 0, weighted_bipred_idc = 0;
    int32_t pic_init_qp_minus26 = 0, chroma_qp_index_offset = 0;
    uint32_t deblocking_control = 0, redundant_pic_cnt_present = 0;
    std::string extension = "";
    std::string behind = "";  // bytes after the trailing bits
};

struct SliceSpec {
    uint32_t first_mb = 0, slice_type = 7, pps_id = 0;
    bool is_idr = true;
    int nal_ref_idc = 3, frame_num_bits = 4;
    std::string field = "";  // field_pic_flag, where it is coded
    std::string pic_order_cnt = "", redundant = "";
    std::string marking = "";  // none: two flags of 0 (IDR) or one
    int32_t slice_qp_delta = 0;
    std::string deblocking = "";
};

std::string sps_nal(const SpsSpec& spec);
std::string pps_nal(const PpsSpec& spec);

// The header alone, to which slice data is added, and the unit with it.
BitPacker slice_header(const SliceSpec& spec);
std::string slice_nal(const SliceSpec& spec, const BitPacker& header_and_data);

// A CAVLC slice of I_PCM macroblocks.
std::string pcm_slice_nal(const SliceSpec& spec, const std::vector<std::string>& macroblocks);
