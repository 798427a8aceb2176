// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/deblock.h"

#include "avcdec/deblock_tables.h"
#include "avcdec/quant_tables.h"

struct Thresholds {
    int alpha;
    int beta;
    int tc0;
};

// H.264 8.7.2.2, for the mean QP of the two sides.
static Thresholds thresholds(const DeblockRecord& q, int qp) {
    const int index_a = kDeblockPad + qp + q.offset_a;
    const int index_b = kDeblockPad + qp + q.offset_b;
    return {kDeblockAlpha[index_a], kDeblockBeta[index_b], kDeblockTc0[index_a]};
}

// Where an edge runs and how far it is to the next one inside the macroblock.
struct EdgeRun {
    DeblockDirection direction;
    uint8_t* q0;
    ptrdiff_t pitch;
    ptrdiff_t step;  // from an edge to the samples of the next 4x4 block
};

static void filter(const DeblockEdgeFn fn, const EdgeRun& run, int block, const Thresholds& t) {
    // Thresholds of 0 let no sample pass.
    if (t.alpha != 0 && t.beta != 0) {
        fn(run.q0 + block * run.step, run.pitch, t.alpha, t.beta, t.tc0);
    }
}

// All edges of one direction. p is the macroblock on the other side of the outer edge, or null when
// that edge is not filtered.
static void filter_luma(const ReconKernels& k, const EdgeRun& run, const DeblockRecord* p,
                        const DeblockRecord& q) {
    if (p) filter(k.luma_strong[run.direction], run, 0, thresholds(q, (p->qp + q.qp + 1) >> 1));
    const Thresholds inner = thresholds(q, q.qp);
    const int stride = q.flags & kDeblockTransform8x8 ? 2 : 1;
    for (int block = stride; block < 4; block += stride) {
        filter(k.luma_normal[run.direction], run, block, inner);
    }
}

static int chroma_qp(const DeblockRecord& r, int c, const DeblockRecord& q) {
    return kChromaQp[12 + r.qp + q.chroma_offset[c]];
}

static void filter_chroma(const ReconKernels& k, const EdgeRun& run, int c, const DeblockRecord* p,
                          const DeblockRecord& q) {
    const int q_qp = chroma_qp(q, c, q);
    if (p) {
        const int mean = (chroma_qp(*p, c, q) + q_qp + 1) >> 1;
        filter(k.chroma_strong[run.direction], run, 0, thresholds(q, mean));
    }
    filter(k.chroma_normal[run.direction], run, 1, thresholds(q, q_qp));
}

static const DeblockRecord* neighbour(const DeblockRecord* p, const DeblockRecord& q, int flag) {
    return q.flags & flag && p && p->flags & kDeblockDecoded ? p : nullptr;
}

static void deblock_macroblock(const ReconKernels& k, const AvcPicture& picture, uint32_t row,
                               uint32_t x, const DeblockRecord* left, const DeblockRecord* top,
                               const DeblockRecord& q) {
    const ptrdiff_t pitch = picture.stride;
    uint8_t* const luma = picture.plane[0] + (static_cast<ptrdiff_t>(row) * pitch + x) * 16;
    filter_luma(k, {kVerticalEdge, luma, pitch, 4}, left, q);
    filter_luma(k, {kHorizontalEdge, luma, pitch, 4 * pitch}, top, q);
    if (q.flags & kDeblockMonochrome) return;
    const ptrdiff_t chroma_pitch = pitch / 2;
    for (int c = 0; c < 2; ++c) {
        uint8_t* const chroma =
            picture.plane[1 + c] + (static_cast<ptrdiff_t>(row) * chroma_pitch + x) * 8;
        filter_chroma(k, {kVerticalEdge, chroma, chroma_pitch, 4}, c, left, q);
        filter_chroma(k, {kHorizontalEdge, chroma, chroma_pitch, 4 * chroma_pitch}, c, top, q);
    }
}

void deblock_row(const ReconKernels& k, const AvcPicture& picture, uint32_t row,
                 const DeblockRecord* above, const DeblockRecord* records) {
    for (uint32_t x = 0; x < picture.width_mbs; ++x) {
        const DeblockRecord& q = records[x];
        if (!(q.flags & kDeblockInner)) continue;
        const DeblockRecord* const left =
            neighbour(x > 0 ? &records[x - 1] : nullptr, q, kDeblockLeft);
        const DeblockRecord* const top = neighbour(above ? &above[x] : nullptr, q, kDeblockTop);
        deblock_macroblock(k, picture, row, x, left, top, q);
    }
}
