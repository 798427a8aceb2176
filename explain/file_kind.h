// SPDX-License-Identifier: BSD-2-Clause
// Files of other kinds by how they start, whatever they are called.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <span>

constexpr size_t kFileKindBytes = 400;  // that are enough

// "Matroska or WebM", for example; null for what is not known, such as a movie.
const char* file_kind(std::span<const uint8_t> start);
