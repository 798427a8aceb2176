// SPDX-License-Identifier: BSD-2-Clause
// Macroblock syntax in CABAC (H.264 7.3.5 with the binarisations and context choices of 9.3).
#pragma once

#include "avcdec/slice_reader.h"

// Returns mb_type, 0 to kMbTypePcm, and but for I_PCM fills kind, modes and coded block pattern.
uint32_t cabac_read_prediction(AvcSliceReader* s);
