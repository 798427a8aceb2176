// SPDX-License-Identifier: BSD-2-Clause
// The edge filters of deblocking with AVX2, two macroblocks at a time.
#include "avcdec/deblock_vectors.h"

template <DeblockDirection kDirection>
static void deblock_two_luma(uint8_t* dst, ptrdiff_t pitch, ptrdiff_t distance,
                             const DeblockEdges edges[6]) {
    const Rows<U8x32> rows = {dst, pitch, distance};
    if constexpr (kDirection == kVerticalEdge) {
        luma_vertical(rows, edges);
    } else {
        luma_horizontal(rows, edges);
    }
}

template <DeblockDirection kDirection>
static void deblock_two_chroma(uint8_t* cb, uint8_t* cr, ptrdiff_t pitch, ptrdiff_t distance,
                               const DeblockEdges edges[6]) {
    const ChromaRows<U8x32> rows = {cb, cr, pitch, distance};
    if constexpr (kDirection == kVerticalEdge) {
        chroma_vertical(rows, edges);
    } else {
        chroma_horizontal(rows, edges);
    }
}

void deblock_use_avx2(ReconKernels* k) {
    k->deblock_two_luma[kVerticalEdge] = deblock_two_luma<kVerticalEdge>;
    k->deblock_two_luma[kHorizontalEdge] = deblock_two_luma<kHorizontalEdge>;
    k->deblock_two_chroma[kVerticalEdge] = deblock_two_chroma<kVerticalEdge>;
    k->deblock_two_chroma[kHorizontalEdge] = deblock_two_chroma<kHorizontalEdge>;
}
