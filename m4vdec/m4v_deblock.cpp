// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_deblock.h"

#include <stdlib.h>

#include "runtime/byte_order.h"

// H.263 table J.2, by quantiser.
static const uint8_t kStrength[32] = {0, 1, 1, 2, 2, 3, 3, 4,  4,  4,  5,  5,  6,  6,  7,  7,
                                      7, 8, 8, 8, 9, 9, 9, 10, 10, 10, 11, 11, 11, 12, 12, 12};

uint8_t h263_chroma_quant(uint8_t quant) {
    static const uint8_t kQuants[32] = {0,  1,  2,  3,  4,  5,  6,  6,  7,  8,  9,
                                        9,  10, 10, 11, 11, 12, 12, 12, 13, 13, 13,
                                        14, 14, 14, 14, 14, 15, 15, 15, 15, 15};
    return kQuants[quant & 31];
}

// J.3: eight samples along an edge. p is the first sample after it, `across` leads away from it.
static void filter_edge(uint8_t* p, ptrdiff_t across, ptrdiff_t along, int strength) {
    for (int i = 0; i < 8; ++i, p += along) {
        const int a = p[-2 * across];
        const int b = p[-across];
        const int c = p[0];
        const int d = p[across];
        const int difference = (a - 4 * b + 4 * c - d) / 8;
        // Up to the strength as it is, then back down to zero.
        const int magnitude = abs(difference);
        const int over = magnitude > strength ? 2 * (magnitude - strength) : 0;
        const int ramp = magnitude > over ? magnitude - over : 0;
        if (ramp == 0) continue;
        const int d1 = difference < 0 ? -ramp : ramp;
        const int limit = ramp / 2;
        const int d2 = clip3(-limit, limit, (a - d) / 4);
        p[-2 * across] = static_cast<uint8_t>(a - d2);
        p[-across] = clip_u8(b + d1);
        p[0] = clip_u8(c - d1);
        p[across] = static_cast<uint8_t>(d + d2);
    }
}

namespace {

struct Plane {
    uint8_t* samples;
    ptrdiff_t pitch;
    uint32_t mb_blocks;  // blocks across a macroblock: 2 for luma, 1 for chroma
};

}  // namespace

// Filters the upper (or left) edges of all blocks.
static void filter_plane(const M4vPicture& picture, const M4vDeblockMap& map, const Plane& plane,
                         bool is_horizontal_edge) {
    const uint32_t columns = picture.width_mbs * plane.mb_blocks;
    const uint32_t rows = picture.height_mbs * plane.mb_blocks;
    const ptrdiff_t across = is_horizontal_edge ? plane.pitch : 1;
    const ptrdiff_t along = is_horizontal_edge ? 1 : plane.pitch;
    const uint32_t mb_before = is_horizontal_edge ? picture.width_mbs : 1;
    for (uint32_t row = is_horizontal_edge ? 1 : 0; row < rows; ++row) {
        for (uint32_t column = is_horizontal_edge ? 0 : 1; column < columns; ++column) {
            const uint32_t mb =
                row / plane.mb_blocks * picture.width_mbs + column / plane.mb_blocks;
            const uint32_t step = is_horizontal_edge ? row : column;
            if (map.segment && step % plane.mb_blocks == 0 &&
                map.segment[mb] != map.segment[mb - mb_before]) {
                continue;
            }
            uint8_t quant = map.quant[mb];
            if (plane.mb_blocks == 1 && map.has_modified_quant) quant = h263_chroma_quant(quant);
            filter_edge(plane.samples + row * 8 * plane.pitch + column * 8, across, along,
                        kStrength[quant & 31]);
        }
    }
}

void m4v_deblock(const M4vPicture& picture, const M4vDeblockMap& map) {
    for (int i = 0; i < 3; ++i) {
        const ptrdiff_t pitch = static_cast<ptrdiff_t>(picture.pitch);
        const Plane plane = {picture.plane[i], i == 0 ? pitch : pitch / 2, i == 0 ? 2u : 1u};
        filter_plane(picture, map, plane, true);
        filter_plane(picture, map, plane, false);
    }
}
