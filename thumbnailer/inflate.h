// SPDX-License-Identifier: BSD-2-Clause
// Takes compressed movie headers apart, by zlib. Few movies have them: it is loaded for those.
#pragma once

#include <stdint.h>

#include <span>

// Loads it. To be called before files are out of reach; otherwise it happens when it is needed.
void prepare_to_inflate();

// Fills `into` with what the zlib stream inflates to. Returns false unless that is its size.
bool inflate_zlib(std::span<const uint8_t> stream, std::span<uint8_t> into);
