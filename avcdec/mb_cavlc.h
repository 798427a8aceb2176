// SPDX-License-Identifier: BSD-2-Clause
// Macroblock syntax in CAVLC (H.264 7.3.5, 9.1.2, 9.2).
#pragma once

#include "avcdec/slice_reader.h"

// Returns mb_type, 0 to kMbTypePcm, and but for I_PCM fills kind, modes and coded block pattern.
uint32_t cavlc_read_prediction(AvcSliceReader* s);
