// SPDX-License-Identifier: BSD-2-Clause
// Writes H.264 parameter sets and intra slices from choices.
#pragma once

#include <string>

#include "fuzz/choices.h"

struct AvcStream {
    std::string sets;    // each behind its 16-bit length
    std::string sample;  // NAL units behind lengths of length_size bytes
};
AvcStream write_avc_stream(Choices* choices, int length_size);
// NAL units without their lengths.
std::string write_sps(Choices* choices, bool* is_high_profile);
std::string write_pps(Choices* choices, bool is_high_profile, bool* is_cabac);
