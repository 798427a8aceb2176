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
        const uint8_t alpha = kDeblockAlpha[index_a];
        t->by_qp[qp] = {alpha, kDeblockBeta[index_b], kDeblockTc0[index_a],
                        static_cast<uint8_t>((alpha >> 2) + 2)};
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

// A macroblock to be filtered.
struct DeblockJob {
    uint8_t* plane[3];  // its first samples
    const DeblockRecord* record;
    const DeblockRecord* left;  // across the outer edges; null where they are left alone
    const DeblockRecord* above;
    const SliceThresholds* thresholds;
};

// A row on its way.
struct DeblockRowState {
    const DeblockRecord* above;  // null for the first row
    const DeblockRecord* records;
    uint32_t row;
    SliceThresholds thresholds;
};

static void start_row(DeblockRowState* s, uint32_t row, const DeblockRecord* above,
                      const DeblockRecord* records) {
    s->row = row;
    s->above = above;
    s->records = records;
    set_thresholds(&s->thresholds, records[0].offset_a, records[0].offset_b);
}

static bool has_job(const DeblockRowState& s, const AvcPicture& picture, uint32_t x) {
    return x < picture.width_mbs && s.records[x].flags & kDeblockInner;
}

// The job of column x, which has one. It is good up to the next of the row.
static void set_job(DeblockRowState* s, const AvcPicture& picture, uint32_t x, DeblockJob* job) {
    const DeblockRecord& q = s->records[x];
    if (q.offset_a != s->thresholds.offset_a || q.offset_b != s->thresholds.offset_b) {
        set_thresholds(&s->thresholds, q.offset_a, q.offset_b);
    }
    const ptrdiff_t luma = (static_cast<ptrdiff_t>(s->row) * picture.stride + x) * 16;
    const ptrdiff_t chroma = (static_cast<ptrdiff_t>(s->row) * (picture.stride / 2) + x) * 8;
    *job = {{picture.plane[0] + luma, picture.plane[1] + chroma, picture.plane[2] + chroma},
            &q,
            neighbour(x > 0 ? &s->records[x - 1] : nullptr, q, kDeblockLeft),
            neighbour(s->above ? &s->above[x] : nullptr, q, kDeblockTop),
            &s->thresholds};
}

static bool is_monochrome(const DeblockJob& job) { return job.record->flags & kDeblockMonochrome; }

// Across the outer edge of the direction that is filtered.
using DeblockJobSide = const DeblockRecord* DeblockJob::*;

static void filter_one(const EdgeKernels& k, const DeblockJob& job, DeblockJobSide side,
                       ptrdiff_t pitch) {
    __attribute__((uninitialized)) DeblockEdges e[3];
    set_edges(*job.thresholds, job.*side, *job.record, e);
    if (is_on(e[0])) k.luma(job.plane[0], pitch, 0, e);
    if (!is_monochrome(job) && (is_on(e[1]) || is_on(e[2]))) {
        k.chroma(job.plane[1], job.plane[2], pitch / 2, 0, e);
    }
}

static void filter_two(const EdgeKernels& k, const DeblockJob jobs[2], DeblockJobSide side,
                       ptrdiff_t pitch) {
    __attribute__((uninitialized)) DeblockEdges e[6];
    for (int i = 0; i < 2; ++i) {
        set_edges(*jobs[i].thresholds, jobs[i].*side, *jobs[i].record, e + 3 * i);
    }
    const DeblockJob& job = jobs[0];
    if (is_on(e[0]) || is_on(e[3])) {
        k.luma(job.plane[0], pitch, jobs[1].plane[0] - job.plane[0], e);
    }
    if (is_on(e[1]) || is_on(e[2]) || is_on(e[4]) || is_on(e[5])) {
        k.chroma(job.plane[1], job.plane[2], pitch / 2, jobs[1].plane[1] - job.plane[1], e);
    }
}

// All edges of a macroblock, or of two.
static void filter_one(const ReconKernels& k, const DeblockJob& job, ptrdiff_t pitch) {
    filter_one(k.deblock.vertical, job, &DeblockJob::left, pitch);
    filter_one(k.deblock.horizontal, job, &DeblockJob::above, pitch);
}

static void filter_two(const ReconKernels& k, const DeblockJob jobs[2], ptrdiff_t pitch) {
    filter_two(k.deblock_two.vertical, jobs, &DeblockJob::left, pitch);
    filter_two(k.deblock_two.horizontal, jobs, &DeblockJob::above, pitch);
}

void deblock_row(const ReconKernels& k, const AvcPicture& picture, uint32_t row,
                 const DeblockRecord* above, const DeblockRecord* records) {
    DeblockRowState s;
    start_row(&s, row, above, records);
    for (uint32_t x = 0; x < picture.width_mbs; ++x) {
        DeblockJob job;
        if (!has_job(s, picture, x)) continue;
        set_job(&s, picture, x, &job);
        filter_one(k, job, picture.stride);
    }
}

void deblock_two_rows(const ReconKernels& k, const AvcPicture& picture, uint32_t row,
                      const DeblockRecord* const records[3]) {
    // A macroblock changes samples of its neighbours to the left and above. Two columns behind, the
    // lower row finds all that the standard's order has changed before it, and nothing more.
    constexpr uint32_t kLag = 2;
    DeblockRowState upper, lower;
    start_row(&upper, row, records[0], records[1]);
    start_row(&lower, row + 1, records[1], records[2]);
    for (uint32_t x = 0; x < picture.width_mbs + kLag; ++x) {
        __attribute__((uninitialized)) DeblockJob jobs[2];
        const bool has_upper = has_job(upper, picture, x);
        const bool has_lower = x >= kLag && has_job(lower, picture, x - kLag);
        if (has_upper) set_job(&upper, picture, x, &jobs[0]);
        if (has_lower) set_job(&lower, picture, x - kLag, &jobs[1]);
        if (has_upper && has_lower && !is_monochrome(jobs[0]) && !is_monochrome(jobs[1])) {
            filter_two(k, jobs, picture.stride);
            continue;
        }
        if (has_upper) filter_one(k, jobs[0], picture.stride);
        if (has_lower) filter_one(k, jobs[1], picture.stride);
    }
}
