// SPDX-License-Identifier: BSD-2-Clause
// Writes H.264 parameter sets and intra slices from choices.
#pragma once

#include <string>

#include "fuzz/choices.h"

// What the units written so far say about the syntax behind them.
struct AvcSyntax {
    bool is_high_profile = true, is_cabac = false, has_8x8 = false;
    bool has_deblocking = true;
    uint32_t frame_num_bits = 4, order_bits = 4;
    uint32_t next_mb = 0;  // of the picture in progress
};
// NAL units without their lengths.
std::string write_sps(Choices* choices, AvcSyntax* syntax);
std::string write_pps(Choices* choices, AvcSyntax* syntax);
std::string write_slice(Choices* choices, AvcSyntax* syntax);

struct AvcStream {
    std::string sps, pps;  // the last ones
    std::string sets;      // all, each behind its 16-bit length
    std::string sample;    // NAL units behind lengths of length_size bytes
};
AvcStream write_avc_stream(Choices* choices, int length_size);
