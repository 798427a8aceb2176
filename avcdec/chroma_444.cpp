// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/chroma_444.h"

#include <assert.h>
#include <string.h>

#include <algorithm>

#include "runtime/accounted_memory.h"

AvcChroma444* chroma_444_create(uint32_t width_mbs) {
    const size_t size = sizeof(AvcChroma444) + 2 * sizeof(PlaneNeighbour) * width_mbs;
    auto* const chroma = static_cast<AvcChroma444*>(upnp_calloc(1, size));
    if (chroma) chroma->columns = reinterpret_cast<PlaneNeighbour*>(chroma + 1);
    return chroma;
}

void chroma_444_start_contexts(AvcChroma444* chroma, const CabacContext* luma) {
    constexpr int kFlagsOfLuma4x4 = kCtxCodedBlockFlag + 8;
    for (auto& contexts : chroma->contexts) memcpy(contexts, luma, sizeof contexts);
    for (auto& flags : chroma->flags_8x8) memcpy(flags, luma + kFlagsOfLuma4x4, sizeof flags);
}

static void set_both(PlaneNeighbour* planes, const MbNeighbour& as) {
    for (int c = 0; c < 2; ++c) {
        planes[c].coded = as.coded;
        memcpy(planes[c].counts, as.counts, sizeof as.counts);
    }
}

void chroma_444_set_left(AvcChroma444* chroma, const MbNeighbour& as) {
    set_both(chroma->left, as);
}

void chroma_444_set_top(AvcChroma444* chroma, uint32_t column, const MbNeighbour& as) {
    set_both(chroma->columns + size_t{2} * column, as);
}

static void exchange(MbNeighbour* side, PlaneNeighbour* plane) {
    std::swap(side->coded, plane->coded);
    std::swap(side->counts, plane->counts);
}

void chroma_444_exchange(AvcChroma444* chroma, int c, uint32_t column, MbNeighbour* left,
                         MbNeighbour* top, CabacContext* contexts) {
    assert(c == 0 || c == 1);
    exchange(left, &chroma->left[c]);
    exchange(top, &chroma->columns[size_t{2} * column + static_cast<size_t>(c)]);
    if (contexts) std::swap_ranges(contexts, contexts + kCabacContexts, chroma->contexts[c]);
}
