// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/deblock.h"

#include <stddef.h>
#include <string.h>

#include <bit>

#include "avcdec/deblock_tables.h"

// Stands for the macroblock across an edge that is left alone: any mean with its QP is off.
static constexpr DeblockRecord kNoNeighbour = {{104, 104, 104}, 0, 0, 0};
constexpr int kFirstOff = 52;  // (104 + 0 + 1) >> 1
constexpr int kLastOff = (104 + 51 + 1) >> 1;

// The thresholds of a slice by the mean QP of the two sides of an edge (H.264 8.7.2.2). Few slices
// differ in their offsets: macroblock by macroblock a look is enough.
struct SliceThresholds {
    EdgeThresholds by_qp[kLastOff + 1];
    int offset_a;
    int offset_b;
};

static void set_thresholds(SliceThresholds* t, int offset_a, int offset_b) {
    t->offset_a = offset_a;
    t->offset_b = offset_b;
    for (int qp = 0; qp < kFirstOff; ++qp) {
        const int index_a = kDeblockPad + qp + offset_a;
        const int index_b = kDeblockPad + qp + offset_b;
        const uint8_t alpha = kDeblockAlpha[index_a];
        t->by_qp[qp] = {alpha, kDeblockBeta[index_b], kDeblockTc0[index_a],
                        static_cast<uint8_t>((alpha >> 2) + 2)};
    }
    for (int qp = kFirstOff; qp <= kLastOff; ++qp) t->by_qp[qp] = {};
}

// A row on its way.
struct DeblockRow {
    uint8_t* plane[3];           // its first samples
    const DeblockRecord* above;  // null for the first row
    const DeblockRecord* records;
    SliceThresholds thresholds;
};

static void start_row(DeblockRow* r, const AvcPicture& picture, uint32_t row,
                      const DeblockRecord* above, const DeblockRecord* records) {
    const ptrdiff_t chroma = static_cast<ptrdiff_t>(row) * (picture.stride / 2) * 8;
    r->plane[0] = picture.plane[0] + static_cast<ptrdiff_t>(row) * picture.stride * 16;
    r->plane[1] = picture.plane[1] + chroma;
    r->plane[2] = picture.plane[2] + chroma;
    r->above = above;
    r->records = records;
    set_thresholds(&r->thresholds, records[0].offset_a, records[0].offset_b);
}

// The edges of one macroblock or two that are filtered together, three for each of them.
struct EdgesByDirection {
    DeblockEdges vertical[6];
    DeblockEdges horizontal[6];
};

// The macroblock p across an edge that q filters if it has the flag.
static const DeblockRecord& across(const DeblockRecord* p, const DeblockRecord& q, int flag) {
    return q.flags & flag && p->flags & kDeblockDecoded ? *p : kNoNeighbour;
}

// The mean QPs of two macroblocks, rounded up, in bytes as they are in memory: by plane, and one
// that means nothing.
static uint32_t mean_qps(const DeblockRecord& p, const DeblockRecord& q) {
    static_assert(offsetof(DeblockRecord, qp) == 0 && offsetof(DeblockRecord, flags) == 3);
    uint32_t a, b;
    memcpy(&a, &p, sizeof a);
    memcpy(&b, &q, sizeof b);
    return (a | b) - ((a ^ b) >> 1 & 0x7f7f7f7f);
}

static const EdgeThresholds& thresholds_of(const SliceThresholds& t, uint32_t qps, int c) {
    return t.by_qp[qps >> (std::endian::native == std::endian::little ? 8 * c : 24 - 8 * c) & 0xff];
}

// Sets the edges of the macroblock in column x, which are number i.
static void set_edges(DeblockRow* r, uint32_t x, int i, EdgesByDirection* e) {
    const DeblockRecord& q = r->records[x];
    SliceThresholds* const t = &r->thresholds;
    if (q.offset_a != t->offset_a || q.offset_b != t->offset_b) {
        set_thresholds(t, q.offset_a, q.offset_b);
    }
    const DeblockRecord& left = x > 0 ? across(&q - 1, q, kDeblockLeft) : kNoNeighbour;
    const DeblockRecord& above = r->above ? across(r->above + x, q, kDeblockTop) : kNoNeighbour;
    const uint32_t left_qps = mean_qps(left, q), above_qps = mean_qps(above, q);
#pragma GCC unroll 3
    for (int c = 0; c < 3; ++c) {
        DeblockEdges* const vertical = &e->vertical[3 * i + c];
        DeblockEdges* const horizontal = &e->horizontal[3 * i + c];
        vertical->outer = thresholds_of(*t, left_qps, c);
        horizontal->outer = thresholds_of(*t, above_qps, c);
        vertical->inner = horizontal->inner = t->by_qp[q.qp[c]];
        vertical->inner_step = horizontal->inner_step =
            c == 0 && q.flags & kDeblockTransform8x8 ? 8 : 4;  // of 4:2:0
    }
}

static bool is_filtered(const DeblockRow& r, const AvcPicture& picture, uint32_t x) {
    return x < picture.width_mbs && r.records[x].flags & kDeblockInner;
}

static bool is_monochrome(const DeblockRow& r, uint32_t x) {
    return r.records[x].flags & kDeblockMonochrome;
}

static bool is_on(const DeblockEdges& e) { return e.outer.is_on() || e.inner.is_on(); }

// Where macroblocks that are filtered together are. Without planes of chroma they are monochrome.
struct DeblockPlace {
    uint8_t* plane[3];
    ptrdiff_t pitch;  // of luma
    ptrdiff_t luma_distance;
    ptrdiff_t chroma_distance;
};

template <int kCount>
static void filter(const EdgeKernels& k, const DeblockPlace& at, const DeblockEdges* e) {
    const DeblockEdges* const second = e + 3 * (kCount - 1);
    if (is_on(e[0]) || is_on(second[0])) k.luma(at.plane[0], at.pitch, at.luma_distance, e);
    if (!at.plane[1]) return;
    if (is_on(e[1]) || is_on(e[2]) || is_on(second[1]) || is_on(second[2])) {
        k.chroma(at.plane[1], at.plane[2], at.pitch / 2, at.chroma_distance, e);
    }
}

template <int kCount>
static void filter(const DeblockKernels& k, const DeblockPlace& at, const EdgesByDirection& e) {
    filter<kCount>(k.vertical, at, e.vertical);
    filter<kCount>(k.horizontal, at, e.horizontal);
}

static DeblockPlace place_of(const DeblockRow& r, const AvcPicture& picture, uint32_t x) {
    const bool has_chroma = !is_monochrome(r, x);
    return {{r.plane[0] + 16 * x, has_chroma ? r.plane[1] + 8 * x : nullptr,
             has_chroma ? r.plane[2] + 8 * x : nullptr},
            static_cast<ptrdiff_t>(picture.stride),
            0,
            0};
}

// The edge above a macroblock of a field has the strength of inner edges: it is filtered as the
// middle one of 16 rows.
[[gnu::cold]] static void filter_field(const DeblockKernels& k, const DeblockPlace& at,
                                       const EdgesByDirection& e) {
    filter<1>(k.vertical, at, e.vertical);
    DeblockEdges above[3], inside[3];
    for (int c = 0; c < 3; ++c) {
        above[c] = {{}, e.horizontal[c].outer, 8};
        inside[c] = e.horizontal[c];
        inside[c].outer = {};
    }
    DeblockPlace up = at;
    up.plane[0] -= 8 * at.pitch;
    for (int c = 1; c < 3 && at.plane[1]; ++c) up.plane[c] -= 4 * (at.pitch / 2);
    filter<1>(k.horizontal, up, above);
    filter<1>(k.horizontal, at, inside);
}

// Chroma of 4:4:4 is filtered as luma is, by its own thresholds.
[[gnu::cold]] static void filter_444(const DeblockKernels& k, const DeblockRow& r,
                                     const AvcPicture& picture, uint32_t x, EdgesByDirection* e) {
    const auto pitch = static_cast<ptrdiff_t>(picture.stride);
    for (int c = 0; c < 3; ++c) {
        uint8_t* const at = picture.plane[c] + (r.plane[0] - picture.plane[0]) + 16 * x;
        e->vertical[c].inner_step = e->vertical[0].inner_step;
        e->horizontal[c].inner_step = e->horizontal[0].inner_step;
        if (is_on(e->vertical[c])) k.vertical.luma(at, pitch, 0, &e->vertical[c]);
        if (is_on(e->horizontal[c])) k.horizontal.luma(at, pitch, 0, &e->horizontal[c]);
    }
}

static void filter_one(const ReconKernels& k, DeblockRow* r, const AvcPicture& picture,
                       uint32_t x) {
    __attribute__((uninitialized)) EdgesByDirection e;
    set_edges(r, x, 0, &e);
    if (picture.is_444) {
        filter_444(k.deblock, *r, picture, x, &e);
    } else if (picture.is_field) {
        filter_field(k.deblock, place_of(*r, picture, x), e);
    } else {
        filter<1>(k.deblock, place_of(*r, picture, x), e);
    }
}

// Column x of the upper row and the one lag columns before it of the lower row.
static void filter_two(const ReconKernels& k, DeblockRow* upper, DeblockRow* lower,
                       const AvcPicture& picture, uint32_t x, uint32_t lag) {
    __attribute__((uninitialized)) EdgesByDirection e;
    set_edges(upper, x, 0, &e);
    set_edges(lower, x - lag, 1, &e);
    DeblockPlace at = place_of(*upper, picture, x);
    const auto back = static_cast<ptrdiff_t>(lag);
    at.luma_distance = at.pitch * 16 - 16 * back;
    at.chroma_distance = at.pitch / 2 * 8 - 8 * back;
    filter<2>(k.deblock_two, at, e);
}

void deblock_row(const ReconKernels& k, const AvcPicture& picture, uint32_t row,
                 const DeblockRecord* above, const DeblockRecord* records) {
    DeblockRow r;
    start_row(&r, picture, row, above, records);
    for (uint32_t x = 0; x < picture.width_mbs; ++x) {
        if (is_filtered(r, picture, x)) filter_one(k, &r, picture, x);
    }
}

void deblock_two_rows(const ReconKernels& k, const AvcPicture& picture, uint32_t row,
                      const DeblockRecord* const records[3]) {
    // A macroblock changes samples of its neighbours to the left and above. Two columns behind, the
    // lower row finds all that the standard's order has changed before it, and nothing more.
    constexpr uint32_t kLag = 2;
    DeblockRow upper, lower;
    start_row(&upper, picture, row, records[0], records[1]);
    start_row(&lower, picture, row + 1, records[1], records[2]);
    for (uint32_t x = 0; x < picture.width_mbs + kLag; ++x) {
        const bool has_upper = is_filtered(upper, picture, x);
        const bool has_lower = x >= kLag && is_filtered(lower, picture, x - kLag);
        if (has_upper && has_lower && !is_monochrome(upper, x) && !is_monochrome(lower, x - kLag)) {
            filter_two(k, &upper, &lower, picture, x, kLag);
            continue;
        }
        if (has_upper) filter_one(k, &upper, picture, x);
        if (has_lower) filter_one(k, &lower, picture, x - kLag);
    }
}
