// SPDX-License-Identifier: BSD-2-Clause
// From mode syntax to predictor table indices (H.264 8.3.1.1, 8.3.2.1). A prediction whose
// neighbours are missing gets an index of its own, so that no predictor has to ask.
#pragma once

#include <stdint.h>

struct AvcMacroblock;
struct MbNeighbour;

// Modes 0 to 8 of 4x4 and 8x8 blocks are the standard's.
enum IntraNxNMode : uint8_t {
    kIntraVertical = 0,
    kIntraHorizontal = 1,
    kIntraDc = 2,
    kIntraDiagonalDownLeft = 3,
    kIntraDiagonalDownRight = 4,
    kIntraVerticalRight = 5,
    kIntraHorizontalDown = 6,
    kIntraVerticalLeft = 7,
    kIntraHorizontalUp = 8,
    kIntraDcLeft = 9,
    kIntraDcTop = 10,            // also when both are missing: the row above holds 128 then
    kIntraDownLeftNoRight = 11,  // 4x4 without the samples above and to the right
    kIntraVerticalLeftNoRight = 12,
};

enum Intra16Mode : uint8_t {
    kIntra16Vertical = 0,
    kIntra16Horizontal = 1,
    kIntra16Dc = 2,
    kIntra16Plane = 3,
    kIntra16DcLeft = 4,
    kIntra16DcTop = 5,
};

enum IntraChromaMode : uint8_t {
    kIntraChromaDc = 0,
    kIntraChromaHorizontal = 1,
    kIntraChromaVertical = 2,
    kIntraChromaPlane = 3,
    kIntraChromaDcLeft = 4,
    kIntraChromaDcTop = 5,
    kIntraChromaNone = 7,  // monochrome: grey
};

// A mode field: -1 takes the predicted mode, 0 to 7 is rem_intra_pred_mode.
using ModeField = int8_t;

// Derives the modes of the 16 4x4 blocks (4 8x8 blocks) and leaves them in top and left for the
// macroblocks to come.
void derive_intra4x4_modes(AvcMacroblock* mb, const ModeField* fields, MbNeighbour* top,
                           MbNeighbour* left);
void derive_intra8x8_modes(AvcMacroblock* mb, const ModeField* fields, MbNeighbour* top,
                           MbNeighbour* left);

// Table index of a 16x16 mode (0 to 3) and of a chroma mode (0 to 7, of which the standard has 0 to
// 3) given the MbAvailability.
uint8_t intra16_table_mode(uint32_t mode, uint8_t available);
uint8_t chroma_table_mode(uint32_t mode, uint8_t available);
