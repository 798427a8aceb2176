// SPDX-License-Identifier: BSD-2-Clause
// Writes MPEG-4 Part 2 and H.263 headers, with noise for macroblocks, from choices.
#pragma once

#include <string>

#include "fuzz/choices.h"

// From the visual object sequence to the video object layer.
std::string write_m4v_config(Choices* choices);
std::string write_m4v_picture(Choices* choices);
std::string write_h263_picture(Choices* choices);
