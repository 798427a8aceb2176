// SPDX-License-Identifier: BSD-2-Clause
// The edge filters of deblocking with SSE2 or NEON.
#include "avcdec/deblock_vectors.h"

template <DeblockDirection kDirection>
static void deblock_luma(uint8_t* dst, ptrdiff_t pitch, const DeblockEdges edges[3]) {
    const Rows<U8x16> rows = {dst, pitch, 0};
    if constexpr (kDirection == kVerticalEdge) {
        luma_vertical(rows, edges);
    } else {
        luma_horizontal(rows, edges);
    }
}

template <DeblockDirection kDirection>
static void deblock_chroma(uint8_t* cb, uint8_t* cr, ptrdiff_t pitch, const DeblockEdges edges[3]) {
    const ChromaRows<U8x16> rows = {cb, cr, pitch, 0};
    if constexpr (kDirection == kVerticalEdge) {
        chroma_vertical(rows, edges);
    } else {
        chroma_horizontal(rows, edges);
    }
}

void deblock_use_simd(ReconKernels* k) {
    k->deblock_luma[kVerticalEdge] = deblock_luma<kVerticalEdge>;
    k->deblock_luma[kHorizontalEdge] = deblock_luma<kHorizontalEdge>;
    k->deblock_chroma[kVerticalEdge] = deblock_chroma<kVerticalEdge>;
    k->deblock_chroma[kHorizontalEdge] = deblock_chroma<kHorizontalEdge>;
}
