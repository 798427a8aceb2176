// SPDX-License-Identifier: BSD-2-Clause
#include "explain/avc_set_look.h"

#include <string.h>

#include <algorithm>
#include <iterator>

// The payload of a NAL unit, read bit by bit over the emulation prevention bytes. What lies behind
// its end is 0 and sets overrun.
struct NalBits {
    const uint8_t* next;
    const uint8_t* end;
    uint32_t bits_left;  // in byte
    uint32_t byte;
    uint32_t zeros;  // bytes of 0 in front of next
    bool overrun;
};

static uint32_t read_bit(NalBits* bits) {
    if (bits->bits_left == 0) {
        if (bits->zeros >= 2 && bits->next < bits->end && *bits->next == 3) {
            ++bits->next;
            bits->zeros = 0;
        }
        bits->overrun = bits->overrun || bits->next == bits->end;
        bits->byte = bits->overrun ? 0 : *bits->next++;
        bits->zeros = bits->byte == 0 ? bits->zeros + 1 : 0;
        bits->bits_left = 8;
    }
    return bits->byte >> --bits->bits_left & 1;
}

static uint32_t read_bits(NalBits* bits, int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i) value = value << 1 | read_bit(bits);
    return value;
}

static uint32_t read_ue(NalBits* bits) {
    int zeros = 0;
    while (read_bit(bits) == 0) {
        if (bits->overrun || ++zeros == 32) return UINT32_MAX;
    }
    return (1u << zeros) - 1 + read_bits(bits, zeros);
}

static int32_t read_se(NalBits* bits) {
    const uint32_t code = read_ue(bits);
    const int32_t magnitude = static_cast<int32_t>((code >> 1) + (code & 1));
    return code & 1 ? magnitude : -magnitude;
}

// What lies behind the header byte.
static NalBits payload_of(AvcUnit unit) {
    NalBits bits = {};
    bits.overrun = unit.length < 2;
    if (bits.overrun) return bits;
    bits.next = unit.bytes + 1;
    bits.end = unit.bytes + unit.length;
    return bits;
}

AvcUnit avc_first_unit(const uint8_t* run, uint32_t length) {
    if (!run || length < 2) return {};
    const uint32_t stated = static_cast<uint32_t>(run[0] << 8 | run[1]);
    return {run + 2, std::min(stated, length - 2)};
}

static bool has_chroma_format(uint32_t profile_idc) {
    static const uint8_t kProfiles[] = {100, 110, 122, 244, 44,  83,  86,
                                        118, 128, 138, 139, 134, 135, 144};
    return std::find(std::begin(kProfiles), std::end(kProfiles), profile_idc) !=
           std::end(kProfiles);
}

// H.264 7.3.2.1.1.1
static void skip_scaling_list(NalBits* bits, int size) {
    uint32_t last = 8, next = 8;
    for (int i = 0; i < size && next != 0; ++i) {
        next = (last + static_cast<uint32_t>(read_se(bits))) & 255;
        if (next != 0) last = next;
    }
}

static void read_chroma_format(NalBits* bits, AvcFacts* facts) {
    facts->chroma_format_idc = read_ue(bits);
    if (facts->chroma_format_idc == 3) read_bit(bits);
    facts->bit_depth_luma = read_ue(bits) + 8;
    facts->bit_depth_chroma = read_ue(bits) + 8;
    facts->is_lossless = read_bit(bits) != 0;
    const int lists = facts->chroma_format_idc == 3 ? 12 : 8;
    const bool has_lists = read_bit(bits) != 0;
    for (int i = 0; has_lists && i < lists; ++i) {
        if (read_bit(bits)) skip_scaling_list(bits, i < 6 ? 16 : 64);
    }
}

static void skip_pic_order_cnt(NalBits* bits) {
    const uint32_t pic_order_cnt_type = read_ue(bits);
    if (pic_order_cnt_type == 0) read_ue(bits);
    if (pic_order_cnt_type != 1) return;
    read_bit(bits);
    read_se(bits);
    read_se(bits);
    const uint32_t cycle = read_ue(bits);
    for (uint32_t i = 0; i < cycle && !bits->overrun; ++i) read_se(bits);
}

static void read_picture_size(NalBits* bits, AvcFacts* facts) {
    const uint64_t width_mbs = uint64_t{read_ue(bits)} + 1;
    const uint64_t map_units = uint64_t{read_ue(bits)} + 1;
    facts->is_interlaced = read_bit(bits) == 0;
    if (facts->is_interlaced) read_bit(bits);
    read_bit(bits);  // direct_8x8_inference_flag
    const uint64_t height_mbs = map_units * (facts->is_interlaced ? 2 : 1);
    uint32_t crop[4] = {};  // left, right, top, bottom
    const bool is_cropped = read_bit(bits) != 0;
    for (uint32_t& side : crop) side = is_cropped ? read_ue(bits) : 0;
    const bool halves_width = facts->chroma_format_idc == 1 || facts->chroma_format_idc == 2;
    const uint64_t unit_x = halves_width ? 2 : 1;
    const uint64_t unit_y =
        (facts->chroma_format_idc == 1 ? 2 : 1) * (facts->is_interlaced ? 2 : 1);
    const uint64_t cut_x = unit_x * (uint64_t{crop[0]} + crop[1]);
    const uint64_t cut_y = unit_y * (uint64_t{crop[2]} + crop[3]);
    facts->width = static_cast<uint32_t>(width_mbs * 16 - std::min(cut_x, width_mbs * 16));
    facts->height = static_cast<uint32_t>(height_mbs * 16 - std::min(cut_y, height_mbs * 16));
    facts->width_mbs = width_mbs;
    facts->height_mbs = height_mbs;
}

void avc_look_at_sequence_set(AvcUnit unit, AvcFacts* facts) {
    NalBits bits = payload_of(unit);
    facts->chroma_format_idc = 1;
    facts->bit_depth_luma = 8;
    facts->bit_depth_chroma = 8;
    facts->profile_idc = read_bits(&bits, 8);
    read_bits(&bits, 8);
    facts->level_idc = read_bits(&bits, 8);
    read_ue(&bits);  // seq_parameter_set_id
    if (has_chroma_format(facts->profile_idc)) read_chroma_format(&bits, facts);
    read_ue(&bits);  // log2_max_frame_num_minus4
    skip_pic_order_cnt(&bits);
    read_ue(&bits);  // max_num_ref_frames
    read_bit(&bits);
    read_picture_size(&bits, facts);
    facts->has_sequence_set = !bits.overrun;
}

void avc_look_at_picture_set(AvcUnit unit, AvcFacts* facts) {
    NalBits bits = payload_of(unit);
    read_ue(&bits);
    read_ue(&bits);
    read_bits(&bits, 2);
    facts->has_slice_groups = read_ue(&bits) != 0 && !bits.overrun;
    facts->has_picture_set = !bits.overrun;
}

// From frame_num to redundant_pic_cnt (H.264 7.3.3), of a frame. Returns the latter.
static uint32_t read_redundant_pic_cnt(NalBits* bits, bool is_idr, const AvcSps& sps,
                                       const AvcPps& pps) {
    const bool has_bottom = pps.bottom_field_pic_order_in_frame_present_flag != 0;
    read_bits(bits, static_cast<int>(sps.log2_max_frame_num));
    if (is_idr) read_ue(bits);  // idr_pic_id
    if (sps.pic_order_cnt_type == 0) {
        read_bits(bits, sps.log2_max_pic_order_cnt_lsb);
        if (has_bottom) read_se(bits);
    }
    if (sps.pic_order_cnt_type == 1 && !sps.delta_pic_order_always_zero_flag) {
        read_se(bits);
        if (has_bottom) read_se(bits);
    }
    return pps.redundant_pic_cnt_present_flag ? read_ue(bits) : 0;
}

AvcSliceFacts avc_look_at_slice(AvcUnit unit, const AvcDecoder& decoder) {
    NalBits bits = payload_of(unit);
    const bool is_idr = (unit.bytes[0] & 31) == 5;
    AvcSliceFacts facts = {};
    facts.is_idr_without_reference = is_idr && (unit.bytes[0] >> 5 & 3) == 0;
    read_ue(&bits);  // first_mb_in_slice
    facts.slice_type = read_ue(&bits) % 5;
    facts.pic_parameter_set_id = read_ue(&bits);
    const uint32_t id = facts.pic_parameter_set_id;
    const AvcPps* const pps = id < kMaxPps ? decoder.sets.pps[id] : nullptr;
    const AvcSps* const sps = pps ? decoder.sets.sps[pps->seq_parameter_set_id] : nullptr;
    if (!sps) return facts;
    facts.has_sets = true;
    facts.seq_parameter_set_id = sps->seq_parameter_set_id;
    facts.is_redundant = read_redundant_pic_cnt(&bits, is_idr, *sps, *pps) != 0 && !bits.overrun;
    return facts;
}

const char* avc_profile_name(uint32_t profile_idc) {
    switch (profile_idc) {
        case 44:
            return "CAVLC 4:4:4 Intra";
        case 66:
            return "Baseline";
        case 77:
            return "Main";
        case 88:
            return "Extended";
        case 100:
            return "High";
        case 110:
            return "High 10";
        case 122:
            return "High 4:2:2";
        case 244:
            return "High 4:4:4 Predictive";
        default:
            return "";
    }
}
