// SPDX-License-Identifier: BSD-2-Clause
// Fills a picture up to whole 16x16 blocks by repeating its last column and its last row.
#pragma once

#include <stdint.h>

#include "thumb/plane_block.h"

// Pads the planes of a picture of that size, whose sides are at least 1. First all columns (Y, U,
// V), then all rows: where planes overlap, the later one wins. Touches the extent below.
void pad_to_blocks(const YuvPlanes& planes, PictureSize size, int32_t pitch);

// How far the planes of a padded picture reach.
PlaneExtent pad_extent(PictureSize size, int32_t pitch);
