// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/avc_builder.h"

std::string sps_nal(const SpsSpec& s) {
    BitPacker p;
    p.u(8, s.profile_idc).u(8, 0).u(8, 30).ue(s.id);
    if (s.profile_idc >= 100) {
        p.ue(s.chroma_format_idc);
        if (s.chroma_format_idc == 3) p.u(1, 0);
        p.ue(s.bit_depth_luma_minus8).ue(s.bit_depth_chroma_minus8).u(1, s.lossless);
        p.u(1, !s.scaling.empty()).text(s.scaling);
    }
    p.ue(s.log2_max_frame_num_minus4).ue(s.pic_order_cnt_type).text(s.pic_order_cnt);
    p.ue(1).u(1, 0);  // max_num_ref_frames, gaps_in_frame_num_value_allowed_flag
    p.ue(s.width_mbs - 1).ue(s.height_mbs - 1).u(1, s.frame_mbs_only_flag);
    if (!s.frame_mbs_only_flag) p.u(1, s.mb_adaptive);
    p.u(1, 1).u(1, !s.crop.empty());  // direct_8x8_inference_flag, frame_cropping_flag
    for (const uint32_t offset : s.crop) p.ue(offset);
    p.u(1, !s.vui.empty()).text(s.vui).trailing();
    return nal_unit(3, 7, p);
}

std::string pps_nal(const PpsSpec& s) {
    BitPacker p;
    p.ue(s.id).ue(s.sps_id).u(1, s.cabac).u(1, s.pic_order_present).ue(s.num_slice_groups_minus1);
    p.ue(s.refs_l0).ue(s.refs_l1).u(1, 0).u(2, s.weighted_bipred_idc);
    p.se(s.pic_init_qp_minus26).se(0).se(s.chroma_qp_index_offset);
    p.u(1, s.deblocking_control).u(1, 0).u(1, s.redundant_pic_cnt_present);
    p.text(s.extension).trailing().bytes(s.behind);
    return nal_unit(3, 8, p);
}

BitPacker slice_header(const SliceSpec& s) {
    BitPacker p;
    p.ue(s.first_mb).ue(s.slice_type).ue(s.pps_id).u(s.frame_num_bits, 0).text(s.field);
    if (s.is_idr) p.ue(0);
    p.text(s.pic_order_cnt).text(s.redundant);
    if (s.nal_ref_idc != 0) p.text(!s.marking.empty() ? s.marking : s.is_idr ? "00" : "0");
    return p.se(s.slice_qp_delta).text(s.deblocking);
}

std::string slice_nal(const SliceSpec& s, const BitPacker& header_and_data) {
    return nal_unit(s.nal_ref_idc, s.is_idr ? 5 : 1, header_and_data);
}

std::string pcm_slice_nal(const SliceSpec& spec, const std::vector<std::string>& macroblocks) {
    BitPacker data = slice_header(spec);
    for (const std::string& samples : macroblocks) data.ue(25).align().bytes(samples);
    return slice_nal(spec, data.trailing());
}
