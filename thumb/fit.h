// SPDX-License-Identifier: BSD-2-Clause
// The arithmetic of fitting a picture into the size asked for. Pure functions, the same results on
// every platform.
#pragma once

#include <stdint.h>

struct PictureSize {
    int32_t width;
    int32_t height;
};

// Rounded up to whole blocks of 16, in 64 bits since a requested size may be any.
constexpr int64_t align16(int64_t size) { return (size + 15) & ~INT64_C(15); }

// The largest size of the picture's shape within the requested one: one side is kept and the other
// one follows, cut to whole pixels, possibly to 0. A requested side of 0 gives the picture's own
// size. The picture's sides are at least 1, the requested ones at least 0.
PictureSize fit_size(PictureSize picture, PictureSize requested);
