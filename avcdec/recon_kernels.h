// SPDX-License-Identifier: BSD-2-Clause
// The sample kernels of reconstruction and their choice. Scalar functions are the reference; a
// variant must give the same samples.
#pragma once

#include <stddef.h>
#include <stdint.h>

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
//                 use and clear the first alone
using AddBlockFn = void (*)(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients);

// Filters one edge (H.264 8.7.2.3, 8.7.2.4): 16 luma or 8 chroma samples along it.
//   q0     first sample behind the edge; 4 luma (2 chroma) samples on either side are used
//   alpha  1 to 255; beta 1 to 18; tc0 0 to 25 (not used by the strong filters)
using DeblockEdgeFn = void (*)(uint8_t* q0, ptrdiff_t pitch, int alpha, int beta, int tc0);

enum DeblockDirection { kVerticalEdge = 0, kHorizontalEdge = 1 };

struct ReconKernels {
    IntraPredFn pred4x4[16];  // by IntraNxNMode
    Pred8x8Fn pred8x8[16];
    IntraPredFn pred16x16[8];    // by Intra16Mode
    IntraPredFn pred_chroma[8];  // by IntraChromaMode
    AddBlockFn add_4x4;
    AddBlockFn add_4x4_dc;
    AddBlockFn add_8x8;
    AddBlockFn add_8x8_dc;
    DeblockEdgeFn luma_strong[2];  // by DeblockDirection
    DeblockEdgeFn luma_normal[2];
    DeblockEdgeFn chroma_strong[2];
    DeblockEdgeFn chroma_normal[2];
};

// The reference kernels, always built.
ReconKernels recon_kernels_scalar();

// The fastest kernels of this build for this processor.
ReconKernels recon_kernels_best();

// Parts of the reference, each beside its functions.
void intra_pred_use_scalar(ReconKernels* k);
void add_block_use_scalar(ReconKernels* k);
void deblock_use_scalar(ReconKernels* k);
