// SPDX-License-Identifier: BSD-2-Clause
// Looks into H.264 parameter sets and slice headers for what the decoder refuses. It reads only as
// far as that takes, and accepts what the decoder does not.
#pragma once

#include <stdint.h>

#include "avcdec/avc_decoder.h"
#include "avcdec/avc_instance.h"

struct AvcFacts {
    bool has_sequence_set;  // the first one could be read; the fields below are from it
    uint32_t profile_idc;
    uint32_t level_idc;
    uint32_t chroma_format_idc;
    uint32_t bit_depth_luma;
    uint32_t bit_depth_chroma;
    bool is_lossless;
    bool is_interlaced;
    uint32_t width;  // cropped, in luma samples
    uint32_t height;
    uint64_t width_mbs;  // of the whole grid of macroblocks
    uint64_t height_mbs;
    bool has_picture_set;  // the first one; the fields below are from it
    bool has_slice_groups;
};

// A NAL unit as it stands in the file, header byte included.
struct AvcUnit {
    const uint8_t* bytes;
    uint32_t length;
};

// The first unit of a run of units behind 16-bit lengths; empty when there is none.
AvcUnit avc_first_unit(const uint8_t* run, uint32_t length);

void avc_look_at_sequence_set(AvcUnit unit, AvcFacts* facts);
void avc_look_at_picture_set(AvcUnit unit, AvcFacts* facts);

// What makes a slice header one that is refused. The sets are those that the decoder knows.
struct AvcSliceFacts {
    uint32_t slice_type;  // 0 to 4: P, B, I, SP, SI
    uint32_t pic_parameter_set_id;
    bool has_sets;  // the named sets are known
    uint32_t seq_parameter_set_id;
    bool is_redundant;
    bool is_idr_without_reference;
};
AvcSliceFacts avc_look_at_slice(AvcUnit unit, const AvcDecoder& decoder);

const char* avc_profile_name(uint32_t profile_idc);  // "" for an unknown one
