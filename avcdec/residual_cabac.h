// SPDX-License-Identifier: BSD-2-Clause
// The residual of a macroblock in CABAC (H.264 7.3.5.3, 9.3).
#pragma once

#include "avcdec/slice_reader.h"

// Fills masks and coefficients.
void cabac_read_residual(AvcSliceReader* s);

// The same for a further plane of 4:4:4, which has no mb_qp_delta.
void cabac_read_plane(AvcSliceReader* s);
