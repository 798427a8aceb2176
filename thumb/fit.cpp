// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/fit.h"

#include <assert.h>

// Below this a ratio does not bind the width.
constexpr double kSmallestRatio = 0.01;

// Kept on purpose: single-precision
// Cuts the fraction; a side that no 32-bit number holds is as hopeless as the largest one.
static int32_t whole_pixels(float side) {
    return side >= 2147483648.0f ? INT32_MAX : static_cast<int32_t>(side);
}

PictureSize fit_size(PictureSize picture, PictureSize requested) {
    assert(picture.width >= 1 && picture.height >= 1);
    assert(requested.width >= 0 && requested.height >= 0);
    if (requested.width == 0 || requested.height == 0) return picture;
    const float width = static_cast<float>(picture.width);
    const float height = static_cast<float>(picture.height);
    const float width_ratio = width / static_cast<float>(requested.width);
    const float height_ratio = height / static_cast<float>(requested.height);
    const bool is_width_binding = width_ratio > height_ratio &&
                                  static_cast<double>(width_ratio) > kSmallestRatio &&
                                  static_cast<double>(height_ratio) > kSmallestRatio;
    if (is_width_binding) return {requested.width, whole_pixels(height / width_ratio)};
    return {whole_pixels(width / height_ratio), requested.height};
}
