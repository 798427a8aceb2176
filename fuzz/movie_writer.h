// SPDX-License-Identifier: BSD-2-Clause
// Writes small movies from choices, and boxes with sizes and counts that lie.
#pragma once

#include <string>

#include "fuzz/choices.h"

// The rest of the choices as they are, boxes of all types in each other in any order, or a movie of
// H.264, MPEG-4 or H.263 pictures, in sample tables or fragments, some of whose boxes are changed.
std::string make_file(Choices* choices);
// Changes one box of a file, with or without telling the boxes around it.
void change_box(Choices* choices, std::string* file);
