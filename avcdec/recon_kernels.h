// SPDX-License-Identifier: BSD-2-Clause
// The sample kernels of reconstruction and their choice. Scalar functions are the reference; a
// variant must give the same samples.
#pragma once

#include <stddef.h>
#include <stdint.h>

struct AvcMacroblock;

// Predicts one block from its reconstructed neighbours.
//   dst    the block: 4x4, 16x16 or (chroma, one component) 8x8 samples, rows pitch bytes apart;
//          the row above, the column before and the samples between them are read as the mode
//          asks, 4x4 blocks also read the 4 samples above and to the right
using IntraPredFn = void (*)(uint8_t* dst, ptrdiff_t pitch);

// The same for 8x8 luma blocks, whose reference samples are filtered first (H.264 8.3.2.2.1).
//   available  Pred8x8Available: which of the corner samples may be read
using Pred8x8Fn = void (*)(uint8_t* dst, ptrdiff_t pitch, unsigned available);
enum Pred8x8Available : unsigned { kPred8x8TopLeft = 1, kPred8x8TopRight = 2 };

// Transforms a block of scaled coefficients (H.264 8.5.12, 8.5.13), adds it to the prediction in
// dst, clamps to 0..255, and clears the coefficients.
//   coefficients  16 or 64 values, column by column, 16-byte aligned, any int16; the "dc" kernels
//                 use and clear the first of a block alone
// The "four" kernels do four 4x4 blocks at once, which follow each other in coefficients and make
// an 8x8 square: two above, two below. A DC block gives the same samples with either kernel.
using AddBlockFn = void (*)(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients);

// Filter thresholds of an edge (H.264 8.7.2.2). alpha or beta 0 lets no sample pass.
struct alignas(4) EdgeThresholds {  // copied in one piece
    uint8_t alpha;
    uint8_t beta;  // 0 to 18
    uint8_t tc0;   // 0 to 25; not used by the strong filter
    uint8_t flat;  // (alpha >> 2) + 2, below which the strong filter may smooth three samples

    bool is_on() const { return alpha != 0 && beta != 0; }
};

// The edges of one direction of a macroblock, or of one chroma component of it.
struct DeblockEdges {
    EdgeThresholds outer;  // the macroblock's own edge: boundary strength 4
    EdgeThresholds inner;  // boundary strength 3
    int inner_step;        // from edge to edge, in samples: 4 or 8; chroma has one inner edge, at 4
};

// Filter the edges of one direction (H.264 8.7.2.3, 8.7.2.4), the outer one first, of one
// macroblock or of two at once.
//   dst, cb, cr  the 16x16 or 8x8 samples of the first macroblock; with outer on, up to 4 luma (2
//                chroma) samples before them are read and 3 (1) changed, otherwise none
//   distance     from them to those of the second one. Their samples and those before them do not
//                overlap, and the ones before are there to be read and written unchanged even when
//                an outer edge is off. Kernels for one macroblock do not use it
//   edges        of all three planes of each macroblock; chroma is not read by the one, luma not by
//                the other
using DeblockLumaFn = void (*)(uint8_t* dst, ptrdiff_t pitch, ptrdiff_t distance,
                               const DeblockEdges* edges);
using DeblockChromaFn = void (*)(uint8_t* cb, uint8_t* cr, ptrdiff_t pitch, ptrdiff_t distance,
                                 const DeblockEdges* edges);

// Those of one direction.
struct EdgeKernels {
    DeblockLumaFn luma;
    DeblockChromaFn chroma;
};

struct DeblockKernels {
    EdgeKernels vertical;
    EdgeKernels horizontal;
};

// Predicts the blocks of a macroblock, each from those before it, and adds their residuals.
//   k    for kernels that go block by block
//   mb   its modes, masks and coefficients, which are cleared
//   dst  the macroblock; samples around it are read as IntraPredFn says, of those before it the
//        four of each row next to it
struct ReconKernels;
using IntraNxNFn = void (*)(const ReconKernels& k, AvcMacroblock* mb, uint8_t* dst,
                            ptrdiff_t pitch);

// The same for chroma, whose first samples are at plane.
using IntraChromaFn = void (*)(const ReconKernels& k, AvcMacroblock* mb, uint8_t* const plane[2],
                               ptrdiff_t pitch);

struct ReconKernels {
    IntraPredFn pred4x4[16];  // by IntraNxNMode
    Pred8x8Fn pred8x8[16];
    IntraPredFn pred16x16[8];    // by Intra16Mode
    IntraPredFn pred_chroma[8];  // by IntraChromaMode
    AddBlockFn add_4x4;
    AddBlockFn add_4x4_dc;
    AddBlockFn add_four_4x4;
    AddBlockFn add_four_4x4_dc;
    AddBlockFn add_8x8;
    AddBlockFn add_8x8_dc;
    IntraNxNFn intra_4x4;
    IntraNxNFn intra_16x16;
    IntraChromaFn intra_chroma;
    DeblockKernels deblock;
    DeblockKernels deblock_two;  // two macroblocks at once; null where one at a time is as good
};

// The reference kernels, always built.
ReconKernels recon_kernels_scalar();

// The fastest kernels of this build for this processor.
ReconKernels recon_kernels_best();

// Parts of the reference, each beside its functions.
void intra_nxn_use_scalar(ReconKernels* k);
void intra_whole_use_scalar(ReconKernels* k);
void intra_pred_use_scalar(ReconKernels* k);
void add_block_use_scalar(ReconKernels* k);
void deblock_use_scalar(ReconKernels* k);

// Variants of the build that has them, for SSE2 or NEON.
void intra_pred_use_simd(ReconKernels* k);
void add_block_use_simd(ReconKernels* k);
void deblock_use_simd(ReconKernels* k);

// For AVX2.
void intra_4x4_use_avx2(ReconKernels* k);
void intra_16x16_use_avx2(ReconKernels* k);
void intra_chroma_use_avx2(ReconKernels* k);
void deblock_use_avx2(ReconKernels* k);
