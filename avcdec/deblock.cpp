// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/deblock.h"

#include "avcdec/deblock_tables.h"

// The thresholds of a slice by the mean QP of the two sides of an edge (H.264 8.7.2.2). Few slices
// differ in their offsets: macroblock by macroblock a look is enough.
struct SliceThresholds {
    EdgeThresholds by_qp[52];
    int offset_a;
    int offset_b;
};

static void set_thresholds(SliceThresholds* t, int offset_a, int offset_b) {
    t->offset_a = offset_a;
    t->offset_b = offset_b;
    for (int qp = 0; qp < 52; ++qp) {
        const int index_a = kDeblockPad + qp + offset_a;
        const int index_b = kDeblockPad + qp + offset_b;
        t->by_qp[qp] = {kDeblockAlpha[index_a], kDeblockBeta[index_b], kDeblockTc0[index_a]};
    }
}

// Sets the edges of one direction in all planes. p is the macroblock on the other side of the outer
// edge; null when that edge is not filtered.
static void set_edges(const SliceThresholds& t, const DeblockRecord* p, const DeblockRecord& q,
                      DeblockEdges edges[3]) {
    for (int c = 0; c < 3; ++c) {
        edges[c].inner = t.by_qp[q.qp[c]];
        edges[c].inner_step = c == 0 && q.flags & kDeblockTransform8x8 ? 8 : 4;
        edges[c].outer = p ? t.by_qp[(p->qp[c] + q.qp[c] + 1) >> 1] : EdgeThresholds{};
    }
}

static bool is_on(const DeblockEdges& e) { return e.outer.is_on() || e.inner.is_on(); }

static const DeblockRecord* neighbour(const DeblockRecord* p, const DeblockRecord& q, int flag) {
    return q.flags & flag && p && p->flags & kDeblockDecoded ? p : nullptr;
}

// The first samples of a macroblock in each plane.
struct MbPlanes {
    uint8_t* plane[3];
    ptrdiff_t luma_pitch;
    ptrdiff_t chroma_pitch;
};

static MbPlanes macroblock_at(const AvcPicture& picture, uint32_t row, uint32_t x) {
    const ptrdiff_t luma_pitch = picture.stride;
    const ptrdiff_t chroma_pitch = luma_pitch / 2;
    const ptrdiff_t luma = (static_cast<ptrdiff_t>(row) * luma_pitch + x) * 16;
    const ptrdiff_t chroma = (static_cast<ptrdiff_t>(row) * chroma_pitch + x) * 8;
    return {{picture.plane[0] + luma, picture.plane[1] + chroma, picture.plane[2] + chroma},
            luma_pitch,
            chroma_pitch};
}

// edges are of as many planes as the picture has.
static void filter_direction(const ReconKernels& k, DeblockDirection direction, const MbPlanes& to,
                             const DeblockEdges* edges, int planes) {
    if (is_on(edges[0])) k.deblock_luma[direction](to.plane[0], to.luma_pitch, edges[0]);
    if (planes == 3 && (is_on(edges[1]) || is_on(edges[2]))) {
        k.deblock_chroma[direction](to.plane[1], to.plane[2], to.chroma_pitch, edges + 1);
    }
}

// sides are the macroblocks on the other side of the outer edges, by DeblockDirection.
static void deblock_macroblock(const ReconKernels& k, const MbPlanes& to, const SliceThresholds& t,
                               const DeblockRecord* const sides[2], const DeblockRecord& q) {
    const int planes = q.flags & kDeblockMonochrome ? 1 : 3;
    __attribute__((uninitialized)) DeblockEdges edges[3];
    set_edges(t, sides[kVerticalEdge], q, edges);
    filter_direction(k, kVerticalEdge, to, edges, planes);
    set_edges(t, sides[kHorizontalEdge], q, edges);
    filter_direction(k, kHorizontalEdge, to, edges, planes);
}

void deblock_row(const ReconKernels& k, const AvcPicture& picture, uint32_t row,
                 const DeblockRecord* above, const DeblockRecord* records) {
    SliceThresholds thresholds;
    set_thresholds(&thresholds, records[0].offset_a, records[0].offset_b);
    for (uint32_t x = 0; x < picture.width_mbs; ++x) {
        const DeblockRecord& q = records[x];
        if (!(q.flags & kDeblockInner)) continue;
        const DeblockRecord* const sides[2] = {
            neighbour(x > 0 ? &records[x - 1] : nullptr, q, kDeblockLeft),
            neighbour(above ? &above[x] : nullptr, q, kDeblockTop)};
        if (q.offset_a != thresholds.offset_a || q.offset_b != thresholds.offset_b) {
            set_thresholds(&thresholds, q.offset_a, q.offset_b);
        }
        deblock_macroblock(k, macroblock_at(picture, row, x), thresholds, sides, q);
    }
}
