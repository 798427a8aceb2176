// SPDX-License-Identifier: BSD-2-Clause
// Writes H.264 parameter sets and intra slices from choices.
#pragma once

#include <string>

#include "tests/support/avc_builder.h"
#include "tests/support/choices.h"

// The sets in force and the place in the picture.
struct AvcSyntax {
    SpsSpec sps;
    PpsSpec pps;
    uint32_t next_mb = 0;
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
