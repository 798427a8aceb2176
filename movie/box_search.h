// SPDX-License-Identifier: BSD-2-Clause
// Finds boxes where no other box leads to them: by the bytes of their type.
#pragma once

#include <functional>
#include <string_view>

#include "movie/source_reader.h"

// Calls is_it with the offsets in [begin, end) where a box of that type may start, forwards or
// backwards, until it says so. is_it has to read by another reader.
using BoxTest = std::function<bool(uint64_t offset)>;
void search_forwards(SourceReader* scan, std::string_view type, uint64_t begin, uint64_t end,
                     const BoxTest& is_it);
void search_backwards(SourceReader* scan, std::string_view type, uint64_t begin, uint64_t end,
                      const BoxTest& is_it);
