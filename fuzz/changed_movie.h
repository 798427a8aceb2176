// SPDX-License-Identifier: BSD-2-Clause
// Movie files with changes that leave most of their structure whole.
#pragma once

#include <string>

#include "tests/support/choices.h"

// 100 bytes of changes and a file, up to seven boxes of which are changed, repeated, removed, moved
// or wrapped.
std::string changed_movie(Choices* choices);
// Writes the file where the one before was, and returns its path.
const char* store_file(const std::string& bytes);
