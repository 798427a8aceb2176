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

    // Where the blocks of a macroblock go: four of Y, Cb, Cr. With field DCT the upper two luma
    // blocks hold the even rows and the lower two the odd ones.
    void locate_blocks(uint32_t x, uint32_t y, bool is_field_dct, M4vTarget targets[6]) const {
        assert(x < width_mbs && y < height_mbs);
        uint8_t* const luma = plane[0] + size_t{y} * 16 * pitch + x * 16;
        uint8_t* const lower = luma + (is_field_dct ? pitch : 8 * pitch);
        const size_t luma_pitch = is_field_dct ? 2 * pitch : pitch;
        const size_t chroma = size_t{y} * 8 * (pitch / 2) + x * 8;
        targets[0] = {luma, luma_pitch};
        targets[1] = {luma + 8, luma_pitch};
        targets[2] = {lower, luma_pitch};
        targets[3] = {lower + 8, luma_pitch};
        targets[4] = {plane[1] + chroma, pitch / 2};
        targets[5] = {plane[2] + chroma, pitch / 2};
    }
};
