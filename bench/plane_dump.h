// SPDX-License-Identifier: BSD-2-Clause
// Writes the planes Y, U, V of a picture to standard output without padding: the whole macroblock
// grid for H.264, the picture itself with chroma rounded up for MPEG-4 and H.263. Standard error
// gets
//   size WIDTH HEIGHT crop LEFT RIGHT TOP BOTTOM
#pragma once

#include "avcdec/decoded_picture.h"

// Returns 0, or 1 when writing fails.
int dump_picture(const DecodedPicture& picture);
