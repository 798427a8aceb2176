// SPDX-License-Identifier: BSD-2-Clause
// Which part of a decoded picture is shown, and how large. Pure arithmetic.
#pragma once

#include <stdint.h>

#include <optional>

#include "avcdec/decoded_picture.h"

struct DisplaySize {
    int32_t width;
    int32_t height;
};

// The samples that are shown, in luma samples of the decoded picture.
struct VisibleArea {
    int32_t left;
    int32_t top;
    int32_t width;
    int32_t height;
};

// How large a picture may become.
struct SizeLimit {
    int32_t width = 0;  // 0: the picture's own size is the limit
    int32_t height = 0;
    bool ignores_shape = false;  // both sides are taken as they are
    bool may_enlarge = false;
};

// The area that the stream's cropping window leaves. A stream without one may be cut on the right
// and at the bottom to the size that the container states (0 where it states none), as cameras do
// whose encoders know whole macroblocks only. Nothing when no sample is left.
std::optional<VisibleArea> visible_area(const DecodedPicture& picture, DisplaySize stated);

// The size with square pixels, when pixels are `aspect` times as wide as high: the height stays,
// the width follows. Beyond 8:1 it is no aspect but damage, and ignored.
DisplaySize square_pixel_size(DisplaySize size, double aspect);

// The largest size of the picture's shape within the limit, to the nearest pixel, at least 1x1.
DisplaySize limited_size(DisplaySize picture, const SizeLimit& limit);
