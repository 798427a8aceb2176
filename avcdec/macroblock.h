// SPDX-License-Identifier: BSD-2-Clause
// What one macroblock of an I slice is made of (H.264 7.3.5), and what its neighbours need to know
// of it.
#pragma once

#include <stdint.h>

enum MbKind : uint8_t {
    kMbIntra4x4 = 12,
    kMbIntra8x8 = 13,  // I_NxN with transform_size_8x8_flag
    kMbIntra16x16 = 14,
    kMbPcm = 15,
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

// One macroblock as seen from below (its bottom 4x4 row) or from the right (its right column).
// Written while the macroblock is read, so that the blocks inside it see each other the same way.
struct MbNeighbour {
    uint64_t coded;     // CABAC: coded_block_flags in the grid of the macroblock that sees it
    int8_t modes[4];    // intra modes 0 to 8, -1 when not available
    uint8_t counts[8];  // CAVLC: coefficients of four luma blocks, two of Cb, two of Cr
    uint8_t cbp;        // luma bits 0 to 3, chroma pattern in bits 4 and 5
    uint8_t flags;      // MbNeighbourFlags
};

// The coded_block_flags that matter to a macroblock, in one word: bit 8 * row + column of
//     . T T T T . T T    luma in rows and columns 1 to 4, Cb and Cr to the right of it,
//     L y y y y L b b    the DC blocks of Y, Cb and Cr below; L and T are those of the
//     L y y y y L b b    neighbours. So every block has its left neighbour 1 bit below itself
//     L y y y y . T T    and its top neighbour 8 bits below.
//     L y y y y L r r
//     . . . . . L r r
//     . T . T . T . .
//     L d L d L d . .
enum MbGridPlace { kGridLuma = 9, kGridCb = 14, kGridCr = 38, kGridDc = 57 };

constexpr uint64_t grid_rows(int first, int count, uint64_t row) {
    uint64_t rows = 0;
    for (int i = 0; i < count; ++i) rows |= row << 8 * (first + i);
    return rows;
}

// The part of the macroblock to the right's grid that this one's blocks make.
constexpr uint64_t grid_for_right(uint64_t grid) {
    constexpr uint64_t kChroma = grid_rows(1, 2, 0x20) | grid_rows(4, 2, 0x20);
    return (grid >> 4 & grid_rows(1, 4, 0x01)) | (grid >> 2 & kChroma) |
           (grid >> 1 & grid_rows(7, 1, 0x15));
}

// The same for the macroblock below.
constexpr uint64_t grid_for_below(uint64_t grid) {
    constexpr uint64_t kChroma = grid_rows(0, 1, 0xc0) | grid_rows(3, 1, 0xc0);
    return (grid >> 32 & grid_rows(0, 1, 0x1e)) | (grid >> 16 & kChroma) |
           (grid >> 8 & grid_rows(6, 1, 0x2a));
}

constexpr uint64_t kGridLeft = grid_for_right(~uint64_t{0});
constexpr uint64_t kGridTop = grid_for_below(~uint64_t{0});

// The blocks of a macroblock in the order of the syntax, in groups that are there or not.
struct BlockGroup {
    uint8_t component;  // AvcComponent
    uint8_t block;      // the first one's place in AvcMacroblock.coefficients
    uint8_t count;      // 1, or 4 that make a square
    uint8_t left;       // what the first one has to the left and above, in MbNeighbour.counts
    uint8_t top;
};
constexpr int kDcBlock = 24;  // of Y; those of Cb and Cr follow
constexpr BlockGroup kBlockGroupTable[] = {
    {0, kDcBlock, 1, 0, 0},      // Y DC, which goes by the neighbours of the first block
    {0, 0, 4, 0, 0},             // the quadrants of Y
    {0, 4, 4, 0, 2},             //
    {0, 8, 4, 2, 0},             //
    {0, 12, 4, 2, 2},            //
    {1, kDcBlock + 1, 1, 4, 4},  // Cb DC
    {2, kDcBlock + 2, 1, 6, 6},  // Cr DC
    {1, 16, 4, 4, 4},            // Cb
    {2, 20, 4, 6, 6},            // Cr
};
enum BlockGroupIndex { kGroupQuadrants = 1, kGroupCbDc = 5, kGroupCb = 7, kBlockGroups = 9 };

struct AvcMacroblock {
    uint8_t kind;          // MbKind
    uint8_t available;     // MbAvailability
    uint8_t intra16_mode;  // table index of the 16x16 predictor
    uint8_t chroma_mode;   // table index of the chroma predictor
    uint8_t cbp;
    uint8_t flags;           // MbNeighbourFlags
    uint8_t has_error;       // the syntax cannot be decoded any further
    uint8_t qp_delta_coded;  // mb_qp_delta of the previous macroblock was not 0 (CABAC)
    uint8_t modes[16];       // table indices of the 4x4 (8x8: 4 of them) predictors
    // Blocks with coefficients: bits 31 to 16 luma in decoding order, 15 to 12 Cb, 11 to 8 Cr;
    // while the residual is read also bits 7 to 5, the DC blocks. Of these, the ones in ac_mask
    // have more than a DC coefficient.
    uint32_t coded_mask;
    uint32_t ac_mask;
    // 16 luma, 4 Cb and 4 Cr blocks of 16 in decoding order, each stored column by column; an 8x8
    // block takes the place of four. After them the levels of the DC blocks, in raster order. All
    // zero between macroblocks: the kernels clear what they use.
    alignas(32) int16_t coefficients[(24 + 3) * 16];
};

constexpr uint32_t kLumaMask = 0xffff0000;
constexpr uint32_t kCbMask = 0x0000f000;

// The bit of a block in the masks, by its place in the coefficients.
constexpr uint32_t block_bit(int block) { return 0x80000000U >> block; }

// Column and row of luma 4x4 block b, in 4x4 blocks (H.264 6.4.3).
constexpr int block_x(int b) { return (b & 1) + (b >> 1 & 2); }
constexpr int block_y(int b) { return (b >> 1 & 1) + (b >> 2 & 2); }

constexpr uint32_t kMbTypePcm = 25;

// Mode fields of an I_NxN macroblock.
constexpr int mode_field_count(uint8_t kind) { return kind == kMbIntra8x8 ? 4 : 16; }

// Bits of the groups that are coded, by kBlockGroupTable.
inline uint32_t mb_coded_groups(const AvcMacroblock& mb) {
    uint32_t groups = (mb.cbp & 15U) << kGroupQuadrants;
    if (mb.kind == kMbIntra16x16) groups |= 1;
    if (mb.cbp & 0x30) groups |= 3U << kGroupCbDc;
    if (mb.cbp & 0x20) groups |= 3U << kGroupCb;
    return groups;
}
