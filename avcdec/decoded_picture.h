// SPDX-License-Identifier: BSD-2-Clause
// The decoded picture, as every decoder hands it to the thumbnail writer.
#pragma once

#include <stdint.h>

// One block holds Y, then U, then V (4:2:0, 8 bits a sample). Chroma planes are width/2 x height/2
// with pitch stride/2, grey (128) for a monochrome stream.
struct DecodedPicture {
    uint8_t* planes;     // released by the caller with upnp_free
    uint32_t width;      // luma samples; whole macroblocks from the H.264 decoder
    uint32_t height;     // luma samples; whole macroblocks from the H.264 decoder
    uint32_t stride;     // luma row pitch in bytes
    uint32_t u_offset;   // byte offset of U in planes
    uint32_t v_offset;   // byte offset of V in planes
    uint32_t cropped;    // 1 when the stream carries a cropping window; not applied here
    uint32_t crop_left;  // cropped-off luma samples at each side, 0 when not cropped
    uint32_t crop_right;
    uint32_t crop_top;
    uint32_t crop_bottom;
};
