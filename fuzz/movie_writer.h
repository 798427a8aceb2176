// SPDX-License-Identifier: BSD-2-Clause
// Writes small movies from choices, and boxes with sizes and counts that lie.
#pragma once

#include <string>

#include "fuzz/choices.h"

// A movie of H.264, MPEG-4 or H.263 pictures, in sample tables or fragments, some bytes of which
// are changed.
std::string write_movie(Choices* choices);
// Lists of boxes of all types in each other, in any order.
std::string write_boxes(Choices* choices, int depth = 0);
