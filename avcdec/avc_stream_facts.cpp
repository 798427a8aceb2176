// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/avc_stream_facts.h"

#include <string.h>

#include <algorithm>

#include "avcdec/nal_unit.h"
#include "avcdec/parameter_sets.h"
#include "runtime/owned.h"

// What cropping leaves of a side of so many macroblocks.
static uint32_t cropped(uint64_t mbs, uint32_t unit, uint32_t from, uint32_t to) {
    const uint64_t cut = uint64_t{unit} * (uint64_t{from} + to);
    return static_cast<uint32_t>(mbs * 16 - std::min(cut, mbs * 16));
}

static void take_sequence_set(const AvcSps& sps, AvcStreamFacts* facts) {
    facts->has_sequence_set = true;
    facts->profile_idc = sps.profile_idc;
    facts->level_idc = sps.level_idc;
    facts->chroma_format_idc = sps.chroma_format_idc;
    facts->bit_depth_luma = sps.bit_depth_luma;
    facts->bit_depth_chroma = sps.bit_depth_chroma;
    facts->is_interlaced = !sps.frame_mbs_only_flag;
    // H.264 Table 6-1 and (7-19) to (7-22).
    const uint32_t unit_x = sps.chroma_format_idc == 1 || sps.chroma_format_idc == 2 ? 2 : 1;
    const uint32_t unit_y = (sps.chroma_format_idc == 1 ? 2 : 1) * (facts->is_interlaced ? 2 : 1);
    facts->width =
        cropped(sps.width_mbs, unit_x, sps.frame_crop_left_offset, sps.frame_crop_right_offset);
    facts->height =
        cropped(sps.height_mbs, unit_y, sps.frame_crop_top_offset, sps.frame_crop_bottom_offset);
}

static AvcRefused look_at_sequence_set(AvcBitReader* r, AvcStreamFacts* facts) {
    AvcSps sps;
    const AvcRefused refused = avc_read_sps(r, &sps);
    const bool is_whole = !bits_overrun(r) && refused.reason != AvcRefusal::kSequenceSet;
    if (is_whole && !facts->has_sequence_set) take_sequence_set(sps, facts);
    return refused ? refused : avc_refusal_at_activation(sps);
}

// Whether the rest makes sense depends on the sequence set that the slices will know.
static AvcRefused look_at_picture_set(AvcBitReader* r) {
    static constexpr const AvcSps* kNoSets[kMaxSps] = {};
    AvcPps pps;
    const AvcRefused refused = avc_read_pps(r, kNoSets, &pps);
    return refused.reason == AvcRefusal::kSliceGroups ? refused : AvcRefused{};
}

// unit may be written to.
static AvcRefused look_at_unit(uint8_t* unit, uint32_t length, AvcStreamFacts* facts) {
    AvcBitReader r;
    bits_init(&r, unit, length);
    uint8_t nal_ref_idc;
    switch (nal_read_header(&r, length, &nal_ref_idc, false)) {
        case kNalSps:
            return look_at_sequence_set(&r, facts);
        case kNalPps:
            return look_at_picture_set(&r);
        default:
            return {};
    }
}

AvcStreamFacts avc_look_at_sets(const uint8_t* run, uint32_t length) {
    AvcStreamFacts facts = {};
    const Owned<uint8_t> copy = owned_malloc<uint8_t>(length);
    if (!copy || length < 2) return facts;
    memcpy(copy.get(), run, length);
    uint8_t* next = copy.get();
    for (uint32_t left = length; left >= 2 && !facts.refused;) {
        const uint32_t unit_length = load_be16(next);
        left -= 2;
        if (unit_length > left) break;
        facts.refused = look_at_unit(next + 2, unit_length, &facts);
        next += 2 + unit_length;
        left -= unit_length;
    }
    return facts;
}
