// SPDX-License-Identifier: BSD-2-Clause
// Takes compressed movie headers apart, by zlib.
#pragma once

#include <stdint.h>

#include <span>

// Fills `into` with what the zlib stream inflates to. Returns false unless that is its size.
bool inflate_zlib(std::span<const uint8_t> stream, std::span<uint8_t> into);
