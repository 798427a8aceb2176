// SPDX-License-Identifier: BSD-2-Clause
// The decoded picture, as every decoder hands it to the thumbnail writer.
#pragma once

#include <stdint.h>

// What a stream says about showing its pictures; 0 where it says nothing. Decoding does not depend
// on any of it.
struct StreamPresentation {
    uint16_t pixel_width;  // shape of a pixel
    uint16_t pixel_height;
    uint8_t matrix_coefficients;  // ISO/IEC 23091-2 8.3
    uint8_t full_range;           // 1 when samples use 0 to 255
};

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
    StreamPresentation presentation = {};
};
