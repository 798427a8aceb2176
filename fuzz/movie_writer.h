// SPDX-License-Identifier: BSD-2-Clause
// Makes movie files from choices.
#pragma once

#include <string>

#include "fuzz/choices.h"

// After an odd byte, a movie of H.264, MPEG-4 or H.263 pictures, in sample tables or fragments;
// after an even one, 100 bytes of choices and the file itself. Up to seven boxes of it are then
// changed, repeated, removed, moved or wrapped.
std::string make_file(Choices* choices);
// Writes the file where the one before was, and returns its path.
const char* store_file(const std::string& bytes);
