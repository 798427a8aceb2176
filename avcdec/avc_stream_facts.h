// SPDX-License-Identifier: BSD-2-Clause
// What the parameter sets of a stream say about it, for a report to a user. Nothing is decoded.
#pragma once

#include <stdint.h>

#include "avcdec/avc_refusal.h"

struct AvcStreamFacts {
    bool has_sequence_set;  // one was read to its end; the fields below are from the first
    uint8_t profile_idc;
    uint8_t level_idc;
    uint8_t chroma_format_idc;  // 0 to 3
    uint32_t bit_depth_luma;
    uint32_t bit_depth_chroma;
    bool is_interlaced;
    uint32_t width;  // cropped, in luma samples
    uint32_t height;
    AvcRefused refused;  // why one of the sets is, or no picture of it can be decoded
};

// Reads the sets of a run of NAL units, each preceded by a 16-bit length, up to the first that is
// refused or does not fit. The bytes stay as they are. Without memory nothing is found.
AvcStreamFacts avc_look_at_sets(const uint8_t* run, uint32_t length);
