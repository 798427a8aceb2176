// SPDX-License-Identifier: BSD-2-Clause
// Writes MPEG-4 Part 2 and H.263 pictures, down to coefficients, from choices.
#pragma once

#include <string>

#include "fuzz/choices.h"

// What headers say about the syntax behind them.
struct M4vSyntax {
    bool is_h263 = false;
    bool is_interlaced = false, has_markers = false, is_partitioned = false, is_reversible = false;
    bool has_reduced_resolution = false;
    bool has_advanced_intra = false, has_modified_quant = false;  // H.263 alone
    bool has_slices = false, has_rectangular_slices = false;      // likewise
    uint32_t width_mbs = 1, height_mbs = 1;
    uint32_t macroblocks() const { return width_mbs * height_mbs; }
};
// From the visual object sequence to the video object layer.
std::string write_m4v_config(Choices* choices, M4vSyntax* syntax);
std::string write_m4v_picture(Choices* choices, const M4vSyntax& syntax);
std::string write_h263_picture(Choices* choices);
