// SPDX-License-Identifier: BSD-2-Clause
// The in-loop deblocking filter (H.264 8.7) over one macroblock row. All macroblocks are intra, so
// the boundary strength is 4 on macroblock edges, but for the horizontal ones of fields, and 3
// there and inside.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "avcdec/recon_kernels.h"

// The picture that is decoded into: planes of whole macroblocks, chroma pitch stride / 2 (4:2:0).
struct AvcPicture {
    uint8_t* plane[3];
    uint32_t stride;  // luma pitch in bytes
    uint16_t width_mbs;
    uint16_t height_mbs;
    uint8_t is_field;  // every other line of a frame, of which stride leaves out one
    uint8_t is_444;    // chroma is as luma, of its pitch
};

enum DeblockFlags : uint8_t {
    kDeblockDecoded = 1,  // a slice has the macroblock
    kDeblockInner = 2,    // the slice filters
    kDeblockLeft = 4,     // so too the edge to the left and to the top neighbour, if there is one
    kDeblockTop = 8,
    kDeblockTransform8x8 = 16,
    kDeblockMonochrome = 32,
};

// What filtering needs to know of a macroblock.
struct DeblockRecord {
    uint8_t qp[3];    // by plane: 0 or QPc of 0 for I_PCM
    uint8_t flags;    // DeblockFlags
    int8_t offset_a;  // FilterOffsetA, FilterOffsetB: -12 to 12
    int8_t offset_b;
};

// Rows of records that the decoder keeps: the one being decoded, and three for filtering two rows
// after it.
constexpr uint32_t kDeblockRows = 4;

// Filters the macroblocks of one row in order, with their edges to the left and to the row above.
// above is null for the first row; both hold one record per column. Changes up to 3 luma rows (1
// chroma row) of the row above.
void deblock_row(const ReconKernels& kernels, const AvcPicture& picture, uint32_t row,
                 const DeblockRecord* above, const DeblockRecord* records);

// The same for a row and the one below with the kernels for two macroblocks. records are of the row
// above, which there has to be, and of both.
void deblock_two_rows(const ReconKernels& kernels, const AvcPicture& picture, uint32_t row,
                      const DeblockRecord* const records[3]);
