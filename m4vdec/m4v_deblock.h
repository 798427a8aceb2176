// SPDX-License-Identifier: BSD-2-Clause
// The deblocking filter of H.263 Annex J over a whole decoded picture.
#pragma once

#include <stdint.h>

#include "m4vdec/m4v_picture.h"

struct M4vDeblockMap {
    const uint8_t* quant;     // of each macroblock, 1 to 31
    const uint32_t* segment;  // of each macroblock: edges between different ones stay; or null
    bool has_modified_quant;  // Annex T: chroma has a quantiser of its own
};

// T.3: the quantiser of chroma blocks.
uint8_t h263_chroma_quant(uint8_t quant);

void m4v_deblock(const M4vPicture& picture, const M4vDeblockMap& map);
