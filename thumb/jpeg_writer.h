// SPDX-License-Identifier: BSD-2-Clause
// Compresses a padded 4:2:0 picture into a baseline JFIF file, without colour conversion or
// resampling on the way.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include "thumb/plane_block.h"

// The longest side that a file can have.
constexpr int32_t kJpegMaxSide = 65500;

// Writes from the file's position on; the caller closes it. The planes hold rows luma rows of
// pitch bytes, half of both for chroma, and are read to whole 16x16 blocks: less is refused before
// anything is written. Returns 0, or 1 on failure; what was written until then stays.
int WriteJpegYuv420(const YuvPlanes* planes, FILE* file, int32_t height, int32_t width,
                    int32_t pitch, int32_t rows, int32_t quality);
