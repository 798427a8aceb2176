// SPDX-License-Identifier: BSD-2-Clause
// What one macroblock of an I slice is made of (H.264 7.3.5), and what its neighbours need to know
// of it.
#pragma once

#include <stdint.h>

struct AvcDcScale;

enum class MbKind : uint8_t {
    kIntra4x4,
    kIntra8x8,  // I_NxN with transform_size_8x8_flag
    kIntra16x16,
    kPcm,
};

// Which neighbouring macroblocks belong to the same slice.
enum MbAvailability : uint8_t {
    kHasLeft = 1,
    kHasTop = 2,
    kHasTopRight = 4,
    kHasTopLeft = 8,
};

// MbNeighbour.counts of a neighbour that is not available.
constexpr uint8_t kCountMissing = 0x40;

enum MbNeighbourFlags : uint8_t {
    kNotINxN = 1,            // Intra 16x16 or I_PCM
    kChromaModeNonzero = 2,  // intra_chroma_pred_mode is not DC
    kTransform8x8 = 4,
};

// Each macroblock has a grid of 8 rows of 8 places for its blocks and those of its neighbours that
// matter to them:
//     . T T T T . T T    luma in rows and columns 1 to 4, Cb and Cr to the right of it, the DC
//     L y y y y L b b    blocks of Y, Cb and Cr below; L and T are blocks of the neighbours. So
//     L y y y y L b b    every block has its left neighbour 1 place and its top neighbour 8 places
//     L y y y y . T T    before itself.
//     L y y y y L r r
//     . . . . . L r r
//     . T . T . T . .
//     L d L d L d . .
enum MbGridPlace { kGridLuma = 9, kGridCb = 14, kGridCr = 38, kGridDc = 57 };

// The coded_block_flags of a grid, a bit a place from the lowest up (CABAC).
using CodedGrid = uint64_t;

constexpr CodedGrid grid_rows(int first, int count, CodedGrid row) {
    CodedGrid rows = 0;
    for (int i = 0; i < count; ++i) rows |= row << 8 * (first + i);
    return rows;
}

// What the macroblock to the right sees of a grid, where it sees it.
constexpr CodedGrid grid_for_right(CodedGrid grid) {
    constexpr CodedGrid kChroma = grid_rows(1, 2, 0x20) | grid_rows(4, 2, 0x20);
    return (grid >> 4 & grid_rows(1, 4, 0x01)) | (grid >> 2 & kChroma) |
           (grid >> 1 & grid_rows(7, 1, 0x15));
}

// The same for the macroblock below.
constexpr CodedGrid grid_for_below(CodedGrid grid) {
    constexpr CodedGrid kChroma = grid_rows(0, 1, 0xc0) | grid_rows(3, 1, 0xc0);
    return (grid >> 32 & grid_rows(0, 1, 0x1e)) | (grid >> 16 & kChroma) |
           (grid >> 8 & grid_rows(6, 1, 0x2a));
}

constexpr CodedGrid kGridLeft = grid_for_right(~CodedGrid{0});
constexpr CodedGrid kGridTop = grid_for_below(~CodedGrid{0});

// One macroblock as seen from below (its bottom 4x4 row) or from the right (its right column).
struct MbNeighbour {
    CodedGrid coded;    // CABAC: in the grid of the macroblock that sees it
    int8_t modes[4];    // intra modes 0 to 8, -1 when not available
    uint8_t counts[8];  // CAVLC: coefficients of four luma blocks, two of Cb, two of Cr
    uint8_t cbp;        // luma bits 0 to 3, chroma pattern in bits 4 and 5
    uint8_t flags;      // MbNeighbourFlags
};

constexpr int kDcBlock = 24;  // of Y; those of Cb and Cr follow
constexpr int kBlocks = 27;

struct AvcMacroblock {
    MbKind kind;
    uint8_t available;     // MbAvailability
    uint8_t intra16_mode;  // table index of the 16x16 predictor
    uint8_t chroma_mode;   // table index of the chroma predictor
    uint8_t cbp;
    uint8_t flags;           // MbNeighbourFlags
    uint8_t has_error;       // the syntax cannot be decoded any further
    uint8_t qp_delta_coded;  // mb_qp_delta of the previous macroblock was not 0 (CABAC)
    uint8_t modes[16];       // table indices of the 4x4 (8x8: 4 of them) predictors
    // For the levels of the DC blocks, by component.
    const AvcDcScale* dc_scales;
    // Blocks with coefficients: bits 31 to 16 luma in decoding order, 15 to 12 Cb, 11 to 8 Cr, 7 to
    // 5 the DC blocks. Of these, the ones in ac_mask have more than a DC coefficient.
    uint32_t coded_mask;
    uint32_t ac_mask;
    // 16 luma, 4 Cb and 4 Cr blocks of 16 in decoding order, each stored column by column; an 8x8
    // block takes the place of four. After them the levels of the DC blocks, in raster order, which
    // reconstruction puts into the blocks. All zero between macroblocks: the kernels clear what
    // they use.
    alignas(32) int16_t coefficients[(24 + 3) * 16];
};

constexpr uint32_t kLumaMask = 0xffff0000;
constexpr uint32_t kCbMask = 0x0000f000;
constexpr uint32_t kChromaMask = 0x0000ff00;

// The bit of a block in the masks, by its place in the coefficients.
constexpr uint32_t block_bit(int block) { return 0x80000000U >> block; }
constexpr uint32_t kChromaDcMask = block_bit(kDcBlock + 1) | block_bit(kDcBlock + 2);

// Column and row of luma 4x4 block b, in 4x4 blocks (H.264 6.4.3).
constexpr int block_x(int b) { return (b & 1) + (b >> 1 & 2); }
constexpr int block_y(int b) { return (b >> 1 & 1) + (b >> 2 & 2); }

constexpr uint32_t kMbTypePcm = 25;

// Mode fields of an I_NxN macroblock.
constexpr int mode_field_count(MbKind kind) { return kind == MbKind::kIntra8x8 ? 4 : 16; }

// The blocks that a macroblock has by its coded_block_pattern, bits in the order of the syntax: DC
// of Y, 16 of Y, DC of Cb and Cr, 4 of Cb, 4 of Cr.
constexpr uint32_t blocks_of_pattern(uint32_t cbp, bool has_luma_dc) {
    constexpr uint32_t kLuma[16] = {
        0x00000, 0x0001e, 0x001e0, 0x001fe, 0x01e00, 0x01e1e, 0x01fe0, 0x01ffe,
        0x1e000, 0x1e01e, 0x1e1e0, 0x1e1fe, 0x1fe00, 0x1fe1e, 0x1ffe0, 0x1fffe,
    };
    constexpr uint32_t kChroma[4] = {0, 3U << 17, 0x3ffU << 17, 0x3ffU << 17};
    return kLuma[cbp & 15] | kChroma[cbp >> 4 & 3] | static_cast<uint32_t>(has_luma_dc);
}

// Where block i in the order of the syntax belongs.
struct BlockPlace {
    uint8_t block;  // in AvcMacroblock.coefficients
    uint8_t grid;   // MbGridPlace
};

constexpr BlockPlace block_place(int i) {
    const auto place = [](int block, int grid) {
        return BlockPlace{static_cast<uint8_t>(block), static_cast<uint8_t>(grid)};
    };
    if (i == 0) return place(kDcBlock, kGridDc);
    if (i < 17) return place(i - 1, kGridLuma + block_x(i - 1) + 8 * block_y(i - 1));
    if (i < 19) return place(kDcBlock + i - 16, kGridDc + 2 * (i - 16));
    const int b = i - 19;
    return place(16 + b, (b < 4 ? kGridCb : kGridCr) + (b & 1) + 8 * (b >> 1 & 1));
}
