// SPDX-License-Identifier: BSD-2-Clause
// Looks into H.264 parameter sets and slice headers for what the decoder refuses. It reads only as
// far as that takes, and accepts what the decoder does not.
#pragma once

#include <stdint.h>

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
    uint64_t macroblocks;
    bool has_picture_set;  // the first one; the fields below are from it
    bool has_slice_groups;
};

// Reads the first set of a run of NAL units behind 16-bit lengths.
void avc_look_at_sequence_set(const uint8_t* run, uint32_t length, AvcFacts* facts);
void avc_look_at_picture_set(const uint8_t* run, uint32_t length, AvcFacts* facts);

enum class AvcSlice { kNone, kIntra, kOther };

// What the first slice of a sample is, whose NAL units stand behind lengths of that size.
AvcSlice avc_look_at_sample(const uint8_t* sample, uint32_t length, uint32_t prefix_size);

const char* avc_profile_name(uint32_t profile_idc);  // "" for an unknown one
