// SPDX-License-Identifier: BSD-2-Clause
// The residual of a macroblock in CAVLC (H.264 7.3.5.3, 9.2).
#pragma once

#include "avcdec/slice_reader.h"

// Fills masks and coefficients.
void cavlc_read_residual(AvcSliceReader* s);

// The same for a further plane of 4:4:4, which has no mb_qp_delta.
void cavlc_read_plane(AvcSliceReader* s);
