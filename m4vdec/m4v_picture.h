// SPDX-License-Identifier: BSD-2-Clause
// The picture that is decoded into: the caller's planes in whole macroblocks.
#pragma once

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

struct M4vTarget {
    uint8_t* samples;  // of a block's first row
    size_t pitch;
};

struct M4vPicture {
    uint8_t* plane[3];  // Y, Cb, Cr
    size_t pitch;       // of Y; half of it for the others
    uint32_t width_mbs;
    uint32_t height_mbs;

    uint32_t total_mbs() const { return width_mbs * height_mbs; }

    // Where block n (0 to 3 Y, 4 Cb, 5 Cr) of a macroblock goes. With field DCT the upper two
    // luma blocks hold the even rows and the lower two the odd ones.
    M4vTarget block(uint32_t x, uint32_t y, unsigned n, bool is_field_dct) const {
        assert(n < 6 && x < width_mbs && y < height_mbs);
        if (n >= 4) return {plane[n - 3] + size_t{y} * 8 * (pitch / 2) + x * 8, pitch / 2};
        uint8_t* const luma = plane[0] + size_t{y} * 16 * pitch + x * 16 + (n & 1) * 8;
        if (is_field_dct) return {luma + (n >> 1) * pitch, 2 * pitch};
        return {luma + (n >> 1) * 8 * pitch, pitch};
    }
};
