// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/intra_modes.h"

#include "avcdec/macroblock.h"

// Both modes are -1 to 8. Modes are as good as random: nothing here branches on them.
static int derive_mode(int left, int top, ModeField field) {
    const int least = left < top ? left : top;
    const int predicted = least < 0 ? int{kIntraDc} : least;
    const int remaining = field + (field >= predicted);
    const int takes_predicted = field >> 7;  // all ones or 0
    return remaining ^ ((remaining ^ predicted) & takes_predicted);
}

// The table mode by mode, without the samples above and to the right and with them.
static constexpr uint8_t kTableModes4x4[2][9] = {
    {kIntraVertical, kIntraHorizontal, kIntraDc, kIntraDownLeftNoRight, kIntraDiagonalDownRight,
     kIntraVerticalRight, kIntraHorizontalDown, kIntraVerticalLeftNoRight, kIntraHorizontalUp},
    {kIntraVertical, kIntraHorizontal, kIntraDc, kIntraDiagonalDownLeft, kIntraDiagonalDownRight,
     kIntraVerticalRight, kIntraHorizontalDown, kIntraVerticalLeft, kIntraHorizontalUp},
};

// Blocks whose above-right block is decoded before them; block 5 needs the macroblock above-right.
static constexpr uint32_t kHasAboveRight =
    0xffff & ~(1 << 3 | 1 << 7 | 1 << 11 | 1 << 13 | 1 << 15);

// DC blocks of a size at the edges of the slice have fewer neighbours. The macroblock has size
// blocks a side, which block_at finds by column and row.
template <int kSize, int (*block_at)(int x, int y)>
static void adapt_dc_modes(AvcMacroblock* mb) {
    if ((~mb->available & (kHasLeft | kHasTop)) == 0) return;
    const auto adapt = [&](int x, int y, uint8_t mode) {
        uint8_t* const table_mode = &mb->modes[block_at(x, y)];
        if (*table_mode == kIntraDc) *table_mode = mode;
    };
    for (int i = 0; i < kSize; ++i) {
        if (!(mb->available & kHasLeft)) adapt(0, i, kIntraDcTop);
        if (!(mb->available & kHasTop)) adapt(i, 0, kIntraDcLeft);
    }
}

static int block4x4_at(int x, int y) { return (x & 1) + 2 * (y & 1) + 4 * (x >> 1) + 8 * (y >> 1); }
static int block8x8_at(int x, int y) { return x + 2 * y; }

void derive_intra4x4_modes(AvcMacroblock* mb, const ModeField* fields, MbNeighbour* top,
                           MbNeighbour* left) {
    uint32_t has_right = kHasAboveRight;
    if (!(mb->available & kHasTopRight)) has_right &= ~(1U << 5);
#pragma GCC unroll 16
    for (int b = 0; b < 16; ++b) {
        int8_t* const above = &top->modes[block_x(b)];
        int8_t* const before = &left->modes[block_y(b)];
        const int mode = derive_mode(*before, *above, fields[b]);
        mb->modes[b] = kTableModes4x4[has_right >> b & 1][mode];
        *above = *before = static_cast<int8_t>(mode);
    }
    adapt_dc_modes<4, block4x4_at>(mb);
}

void derive_intra8x8_modes(AvcMacroblock* mb, const ModeField* fields, MbNeighbour* top,
                           MbNeighbour* left) {
#pragma GCC unroll 4
    for (int b = 0; b < 4; ++b) {
        int8_t* const above = &top->modes[(b & 1) * 2];
        int8_t* const before = &left->modes[(b >> 1) * 2];
        const int mode = derive_mode(before[0], above[0], fields[b]);
        mb->modes[b] = static_cast<uint8_t>(mode);
        above[0] = above[1] = before[0] = before[1] = static_cast<int8_t>(mode);
    }
    adapt_dc_modes<2, block8x8_at>(mb);
}

uint8_t intra16_table_mode(uint32_t mode, uint8_t available) {
    if (mode != kIntra16Dc) return static_cast<uint8_t>(mode);
    if (!(available & kHasLeft)) return kIntra16DcTop;
    return available & kHasTop ? kIntra16Dc : kIntra16DcLeft;
}

uint8_t chroma_table_mode(uint32_t mode, uint8_t available) {
    if (mode != kIntraChromaDc) return static_cast<uint8_t>(mode);
    if (!(available & kHasLeft)) return kIntraChromaDcTop;
    return available & kHasTop ? kIntraChromaDc : kIntraChromaDcLeft;
}
