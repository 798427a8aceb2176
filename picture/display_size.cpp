// SPDX-License-Identifier: BSD-2-Clause
#include "picture/display_size.h"

#include <algorithm>

constexpr double kUtmostAspect = 8;
constexpr int64_t kMaxSide = 65500;  // what a JPEG file can have

static int64_t align16(int64_t size) { return (size + 15) & ~int64_t{15}; }

// Whether the stated side is the coded one without the filling of its last macroblock.
static bool is_same_in_blocks(int64_t stated, int64_t coded) {
    return stated > 0 && stated <= coded && align16(stated) == align16(coded);
}

std::optional<VisibleArea> visible_area(const DecodedPicture& picture, DisplaySize stated) {
    const int64_t width = picture.width;
    const int64_t height = picture.height;
    if (!picture.cropped) {
        if (!is_same_in_blocks(stated.width, width) || !is_same_in_blocks(stated.height, height)) {
            stated = {static_cast<int32_t>(width), static_cast<int32_t>(height)};
        }
        return VisibleArea{0, 0, stated.width, stated.height};
    }
    const int64_t left = picture.crop_left;
    const int64_t top = picture.crop_top;
    const int64_t shown_width = width - left - picture.crop_right;
    const int64_t shown_height = height - top - picture.crop_bottom;
    if (shown_width < 1 || shown_height < 1) return std::nullopt;
    return VisibleArea{static_cast<int32_t>(left), static_cast<int32_t>(top),
                       static_cast<int32_t>(shown_width), static_cast<int32_t>(shown_height)};
}

// value * numerator / denominator to the nearest, between 1 and the longest side.
static int32_t scaled(int64_t value, int64_t numerator, int64_t denominator) {
    const int64_t result = (value * numerator + denominator / 2) / denominator;
    return static_cast<int32_t>(std::clamp<int64_t>(result, 1, kMaxSide));
}

DisplaySize square_pixel_size(DisplaySize size, double aspect) {
    if (!(aspect >= 1 / kUtmostAspect && aspect <= kUtmostAspect)) return size;
    return {scaled(static_cast<int64_t>(2 * size.width * aspect + 1) / 2, 1, 1), size.height};
}

DisplaySize limited_size(DisplaySize picture, const SizeLimit& limit) {
    const int64_t max_width = limit.width > 0 ? limit.width : picture.width;
    const int64_t max_height = limit.height > 0 ? limit.height : picture.height;
    if (limit.ignores_shape) return {scaled(max_width, 1, 1), scaled(max_height, 1, 1)};
    const bool fits = picture.width <= max_width && picture.height <= max_height;
    if (fits && !(limit.may_enlarge && limit.width > 0 && limit.height > 0)) return picture;
    // width / max_width against height / max_height, multiplied out.
    if (picture.width * max_height >= picture.height * max_width) {
        return {scaled(max_width, 1, 1), scaled(picture.height, max_width, picture.width)};
    }
    return {scaled(picture.width, max_height, picture.height), scaled(max_height, 1, 1)};
}
