// SPDX-License-Identifier: BSD-2-Clause
// H.264's byte stream format (Annex B), which some recorders store where NAL units after their
// lengths belong.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <span>
#include <vector>

// Whether bytes that should be NAL units after lengths of prefix_size bytes are a byte stream:
// they begin with a start code, and read as lengths they do not come out even.
bool is_byte_stream(std::span<const uint8_t> bytes, uint32_t prefix_size);

// Takes the first unit, without its start code, from the front of a byte stream. Empty at the end.
std::span<const uint8_t> take_unit(std::span<const uint8_t>* stream);

// The stream's units, each preceded by its length in four bytes.
std::vector<uint8_t> with_lengths(std::span<const uint8_t> stream);
