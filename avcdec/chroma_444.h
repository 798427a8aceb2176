// SPDX-License-Identifier: BSD-2-Clause
// The planes of chroma where they are coded as luma is (ChromaArrayType 3): with the modes of luma,
// and with coefficients, contexts and neighbours of their own.
#pragma once

#include <stdint.h>

#include "avcdec/cabac_engine.h"
#include "avcdec/macroblock.h"

// What a plane's blocks see of a neighbouring macroblock: see MbNeighbour.
struct PlaneNeighbour {
    CodedGrid coded;
    uint8_t counts[8];
};

struct AvcChroma444 {
    int plane;  // the one that is read now, 0 for luma
    // Blocks of other sizes count as coded for the flags of 8x8 blocks (kAvcOldFlags).
    bool has_old_flags;
    CabacContext contexts[2][kCabacContexts];  // of Cb and Cr, of which those of blocks count
    CabacContext flags_8x8[3][4];              // coded_block_flag of 8x8 blocks, by plane
    PlaneNeighbour left[2];
    PlaneNeighbour* columns;  // two for each column of macroblocks, behind this record
};

// Null without memory. Ended by upnp_free.
AvcChroma444* chroma_444_create(uint32_t width_mbs);

// Starts the contexts of a slice as those of luma have started.
void chroma_444_start_contexts(AvcChroma444* chroma, const CabacContext* luma);

// What the planes of chroma see of missing neighbours, and what they leave behind where a
// macroblock has no residual.
void chroma_444_set_left(AvcChroma444* chroma, const MbNeighbour& as);
void chroma_444_set_top(AvcChroma444* chroma, uint32_t column, const MbNeighbour& as);

// Exchanges what the reader has of luma with what Cb (0) or Cr (1) has, or back: the neighbours of
// a macroblock and kCabacContexts contexts, which are null in CAVLC.
void chroma_444_exchange(AvcChroma444* chroma, int c, uint32_t column, MbNeighbour* left,
                         MbNeighbour* top, CabacContext* contexts);
