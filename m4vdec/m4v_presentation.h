// SPDX-License-Identifier: BSD-2-Clause
// What MPEG-4 and H.263 headers say about showing the pictures. Decoding does not depend on it.
#pragma once

#include <stdint.h>

// 0 where nothing is said.
struct M4vPresentation {
    uint8_t pixel_width;  // shape of a pixel
    uint8_t pixel_height;
    uint8_t matrix_coefficients;  // ISO/IEC 23091-2 8.3
    bool is_full_range;           // samples use 0 to 255
};

// Sets the shape by its code, which both standards share (ISO/IEC 14496-2 table 6-12, H.263 5.1.5);
// width and height are what follows the code 15.
inline void m4v_set_pixel_shape(unsigned code, unsigned width, unsigned height,
                                M4vPresentation* presentation) {
    static constexpr uint8_t kShapes[6][2] = {{0, 0},   {1, 1},   {12, 11},
                                              {10, 11}, {16, 11}, {40, 33}};
    const bool is_known = code < 6;
    presentation->pixel_width = is_known ? kShapes[code][0] : static_cast<uint8_t>(width);
    presentation->pixel_height = is_known ? kShapes[code][1] : static_cast<uint8_t>(height);
}
