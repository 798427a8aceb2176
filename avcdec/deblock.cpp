// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/deblock.h"

#include "avcdec/deblock_tables.h"
#include "avcdec/quant_tables.h"

// H.264 8.7.2.2, for the mean QP of the two sides.
static EdgeThresholds thresholds(const DeblockRecord& q, int qp) {
    const int index_a = kDeblockPad + qp + q.offset_a;
    const int index_b = kDeblockPad + qp + q.offset_b;
    return {kDeblockAlpha[index_a], kDeblockBeta[index_b], kDeblockTc0[index_a]};
}

// The edges of macroblock q in one direction, from the QP of both sides. p is the macroblock on the
// other side of the outer edge, or null when that edge is not filtered.
static DeblockEdges luma_edges(const DeblockRecord* p, const DeblockRecord& q) {
    DeblockEdges e = {};
    if (p) e.outer = thresholds(q, (p->qp + q.qp + 1) >> 1);
    e.inner = thresholds(q, q.qp);
    e.inner_step = q.flags & kDeblockTransform8x8 ? 8 : 4;
    return e;
}

static int chroma_qp(const DeblockRecord& r, int c, const DeblockRecord& q) {
    return kChromaQp[12 + r.qp + q.chroma_offset[c]];
}

static DeblockEdges chroma_edges(int c, const DeblockRecord* p, const DeblockRecord& q) {
    const int q_qp = chroma_qp(q, c, q);
    DeblockEdges e = {};
    if (p) e.outer = thresholds(q, (chroma_qp(*p, c, q) + q_qp + 1) >> 1);
    e.inner = thresholds(q, q_qp);
    e.inner_step = 4;
    return e;
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

static void filter_direction(const ReconKernels& k, DeblockDirection direction, const MbPlanes& to,
                             const DeblockRecord* p, const DeblockRecord& q) {
    const DeblockEdges luma = luma_edges(p, q);
    if (is_on(luma)) k.deblock_luma[direction](to.plane[0], to.luma_pitch, luma);
    if (q.flags & kDeblockMonochrome) return;
    const DeblockEdges chroma[2] = {chroma_edges(0, p, q), chroma_edges(1, p, q)};
    if (!is_on(chroma[0]) && !is_on(chroma[1])) return;
    k.deblock_chroma[direction](to.plane[1], to.plane[2], to.chroma_pitch, chroma);
}

void deblock_row(const ReconKernels& k, const AvcPicture& picture, uint32_t row,
                 const DeblockRecord* above, const DeblockRecord* records) {
    for (uint32_t x = 0; x < picture.width_mbs; ++x) {
        const DeblockRecord& q = records[x];
        if (!(q.flags & kDeblockInner)) continue;
        const DeblockRecord* const left =
            neighbour(x > 0 ? &records[x - 1] : nullptr, q, kDeblockLeft);
        const DeblockRecord* const top = neighbour(above ? &above[x] : nullptr, q, kDeblockTop);
        const MbPlanes to = macroblock_at(picture, row, x);
        filter_direction(k, kVerticalEdge, to, left, q);
        filter_direction(k, kHorizontalEdge, to, top, q);
    }
}
