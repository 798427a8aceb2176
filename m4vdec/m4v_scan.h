// SPDX-License-Identifier: BSD-2-Clause
// The three scans of a block (14496-2 figure 7-2, H.263 figures 14 and I.2).
#pragma once

#include <stdint.h>

struct M4vScan {
    uint8_t position[64];   // in the block (m4v_position), by scan index
    uint8_t edge_slot[64];  // in M4vBlockEdge, by scan index
    uint8_t width[64];      // coefficients up to this scan index have u < width
    uint8_t height[64];     // and v < height
};

extern const M4vScan kScanZigzag;
extern const M4vScan kScanHorizontal;  // alternate-horizontal, for prediction from above
extern const M4vScan kScanVertical;    // alternate-vertical, from the left and for fields
