// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/intra_modes.h"

#include "avcdec/macroblock.h"

// Both modes are -1 to 8.
static int derive_mode(int left, int top, ModeField field) {
    int predicted = left < top ? left : top;
    if (predicted < 0) predicted = kIntraDc;
    if (field < 0) return predicted;
    return field < predicted ? field : field + 1;
}

static uint8_t dc_table_mode(int mode, int left, int top) {
    if (mode != kIntraDc) return static_cast<uint8_t>(mode);
    if (left < 0) return kIntraDcTop;
    return top < 0 ? kIntraDcLeft : kIntraDc;
}

// Blocks whose above-right block is decoded later; block 5 needs the macroblock above-right.
static constexpr uint32_t kNeverHasAboveRight = 1 << 3 | 1 << 7 | 1 << 11 | 1 << 13 | 1 << 15;

void derive_intra4x4_modes(AvcMacroblock* mb, const ModeField* fields, MbNeighbour* top,
                           MbNeighbour* left) {
    uint32_t no_right = kNeverHasAboveRight;
    if (!(mb->available & kHasTopRight)) no_right |= 1 << 5;
    for (int b = 0; b < 16; ++b) {
        int8_t* const above = &top->modes[block_x(b)];
        int8_t* const before = &left->modes[block_y(b)];
        const int mode = derive_mode(*before, *above, fields[b]);
        uint8_t stored = dc_table_mode(mode, *before, *above);
        if (no_right >> b & 1) {
            if (mode == kIntraDiagonalDownLeft) stored = kIntraDownLeftNoRight;
            if (mode == kIntraVerticalLeft) stored = kIntraVerticalLeftNoRight;
        }
        mb->modes[b] = stored;
        *above = *before = static_cast<int8_t>(mode);
    }
}

void derive_intra8x8_modes(AvcMacroblock* mb, const ModeField* fields, MbNeighbour* top,
                           MbNeighbour* left) {
    for (int b = 0; b < 4; ++b) {
        int8_t* const above = &top->modes[(b & 1) * 2];
        int8_t* const before = &left->modes[(b >> 1) * 2];
        const int mode = derive_mode(before[0], above[0], fields[b]);
        mb->modes[b] = dc_table_mode(mode, before[0], above[0]);
        above[0] = above[1] = before[0] = before[1] = static_cast<int8_t>(mode);
    }
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
