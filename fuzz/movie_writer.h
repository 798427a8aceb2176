// SPDX-License-Identifier: BSD-2-Clause
// Makes movie files from choices.
#pragma once

#include <string>

#include "tests/support/choices.h"

// A byte and 100 bytes of changes. Then, if the byte is odd, choices for a movie of H.264, MPEG-4
// or H.263 pictures, in sample tables or fragments, and otherwise the file itself. Up to seven of
// its boxes are changed, repeated, removed, moved or wrapped.
std::string make_file(Choices* choices);
// The same with up to seven boxes of a file.
void change_boxes(Choices* changes, std::string* file);
// Writes the file where the one before was, and returns its path.
const char* store_file(const std::string& bytes);
