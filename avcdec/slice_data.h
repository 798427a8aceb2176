// SPDX-License-Identifier: BSD-2-Clause
// The loop over the macroblocks of a slice (H.264 7.3.4).
#pragma once

#include "avcdec/avc_refusal.h"
#include "avcdec/picture_in_progress.h"
#include "avcdec/slice_reader.h"

// Decodes the slice whose header was just parsed into the picture. With CABAC the engine has been
// started. picture->next_mb is the address after the last macroblock then and after a refusal.
AvcRefused avc_decode_slice_data(AvcSliceReader* s, AvcPictureInProgress* picture);
