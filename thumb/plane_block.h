// SPDX-License-Identifier: BSD-2-Clause
// A 4:2:0 picture in one heap block. The planes are only offsets into it: what the scaler and the
// padding of odd or cropped pictures do beyond the end of one plane shows in the next one, and
// what they do beyond the last one needs the block to be longer.
#pragma once

#include <stdint.h>

#include "runtime/owned.h"
#include "thumb/fit.h"

// First samples of the planes; the chroma pitch is half of the luma pitch.
struct YuvPlanes {
    uint8_t* y;
    uint8_t* u;
    uint8_t* v;
};

struct PlaneBlock {
    Owned<uint8_t> bytes;
    uint64_t length;    // of the block
    uint64_t y_offset;  // of the first samples
    uint64_t u_offset;
    uint64_t v_offset;
    int32_t pitch;  // luma, a multiple of 16
    int32_t rows;   // luma rows that the block holds from y_offset on
};

// Bytes from the first sample of a plane to past the last one that is touched.
struct PlaneExtent {
    uint64_t luma;
    uint64_t chroma;
};

// Bytes of a picture whose sides are rounded up to whole blocks. The sides are at least 0.
uint64_t plane_block_length(PictureSize size);

// A zero-filled block of that length, Y, U and V one after the other. Returns 1 without memory.
int plane_block_create(PictureSize size, PlaneBlock* block);

// Makes the block so long that all planes can be touched to that extent. What is added repeats the
// last row of V. Returns 1 without memory; the block is as it was then.
int plane_block_reserve(PlaneBlock* block, PlaneExtent extent);

YuvPlanes plane_block_planes(const PlaneBlock& block);
