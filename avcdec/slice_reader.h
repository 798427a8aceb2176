// SPDX-License-Identifier: BSD-2-Clause
// What reads the macroblocks of a slice: the bits of its unit, the entropy coder in use, the
// quantiser, and what the neighbours left behind.
#pragma once

#include <stdint.h>

#include "avcdec/bit_reader.h"
#include "avcdec/block_loops.h"
#include "avcdec/cabac_engine.h"
#include "avcdec/chroma_444.h"
#include "avcdec/macroblock.h"
#include "avcdec/quantiser.h"
#include "avcdec/slice_header.h"

// Zeros are a reader without its arrays.
struct AvcSliceReader {
    AvcBitReader bits;
    AvcSliceHeader header;
    int32_t slice_qp;  // as coded, not brought into 0 to 51
    uint8_t is_cabac;  // of the active parameter sets, like the next two
    uint8_t transform_8x8_mode;
    uint8_t monochrome;  // also where chroma is coded as luma: the syntax is the same
    AvcQuantiser quantiser;
    CabacEngine cabac;
    CabacBytes cabac_bytes;  // the engine's
    CabacContext contexts[kCabacContexts];
    AvcMacroblock mb;
    MbNeighbour left;
    MbNeighbour* top;          // into columns
    MbNeighbour* columns;      // owned: what the row above left behind, one entry per column
    AvcChroma444* chroma_444;  // owned; null but for 4:4:4
    BlockLoops loops;
};

// The arrays for pictures of that width. Returns 1 without memory.
int slice_reader_allocate(AvcSliceReader* s, uint32_t width_mbs, bool is_444);
void slice_reader_release(AvcSliceReader* s);

// Starts the CABAC engine at the byte on which the bit reader stands, without moving it.
void slice_reader_start_cabac(AvcSliceReader* s);

// What the readers of both entropy coders do with what they have read.

// Derives the modes of an I_NxN macroblock from its mode fields.
void mb_set_modes(AvcSliceReader* s, const int8_t* fields);
// mb_type 1 to 24: prediction mode and coded block pattern of an Intra 16x16 macroblock.
void mb_set_intra16(AvcSliceReader* s, uint32_t mb_type);
