// SPDX-License-Identifier: BSD-2-Clause
// The edge filters of deblocking with vectors, which have 16 positions along an edge of one
// macroblock, or of each of two. Filters work across lines of samples; for vertical edges the
// samples are turned first and turned back after. Everything is static, since files include this
// that are built for other processors.
#pragma once

#include "avcdec/deblock_lines.h"
#include "avcdec/recon_kernels.h"

// EdgeThresholds, one per position.
template <typename Samples>
struct Limits {
    Samples alpha, beta, tc0, flat;
};

// Edges come by plane, three for each macroblock.

// What pick takes of the edges in two planes: of the first eight positions and of the others.
template <typename Samples, typename Pick>
static inline Limits<Samples> spread(const DeblockEdges* edges, const int (&planes)[2],
                                     const Pick& pick) {
    const auto load = [&](int plane) {
        return of_each<Samples>([&](int i) {
            const EdgeThresholds t = pick(edges[3 * i + plane]);
            uint32_t all;
            static_assert(sizeof all == sizeof t);
            memcpy(&all, &t, sizeof all);
            return (U8x16)U32x4{all};
        });
    };
    const Samples once = interleave_low(load(planes[0]), load(planes[1]));
    const Samples twice = interleave_low(once, once);
    const Samples low = interleave_low(twice, twice), high = interleave_high(twice, twice);
    return {interleave_low(low, low), interleave_high(low, low), interleave_low(high, high),
            interleave_high(high, high)};
}

static inline EdgeThresholds outer_of(const DeblockEdges& e) { return e.outer; }
static inline EdgeThresholds inner_of(const DeblockEdges& e) { return e.inner; }
// Of the inner edges that only 4x4 transforms have.
static inline EdgeThresholds between_of(const DeblockEdges& e) {
    return e.inner_step == 4 ? e.inner : EdgeThresholds{};
}

// All bits where a < b.
template <typename Samples>
static inline Samples is_below(Samples a, Samples b) {
    return (Samples)(sub_saturate(b, a) != 0);
}

// A threshold of 0 lets no sample pass.
template <typename Samples>
static inline Samples is_filtered(Samples p1, Samples p0, Samples q0, Samples q1,
                                  const Limits<Samples>& t) {
    const Samples room_beta =
        smaller(sub_saturate(t.beta, distance(p1, p0)), sub_saturate(t.beta, distance(q1, q0)));
    return (Samples)(smaller(room_beta, sub_saturate(t.alpha, distance(p0, q0))) != 0);
}

template <typename Samples>
static inline Samples select(Samples mask, Samples yes, Samples no) {
    return (yes & mask) | (no & ~mask);
}

// Moves p0 and q0 towards each other by delta = ((q0 - p0) * 4 + (p1 - q1) + 4) >> 3, at most tc.
// With d = q0 - p0 and e = p1 - q1, delta is (d >> 1) + (((d & 1) + (e >> 2) + 1) >> 1); averages
// with a complement halve the differences, offset by 128, and in the sum delta is offset by 192.
// Saturation of the sum is beyond the largest tc.
template <typename Samples>
static inline void move_together(Samples p1, Samples* p0, Samples* q0, Samples q1, Samples tc) {
    const Samples middle = Samples{} + uint8_t{127};
    const Samples offset = Samples{} + uint8_t{192};
    const Samples half_d = average(*q0, ~*p0);
    const Samples quarter_e = average(average(p1, ~q1), middle);
    const Samples sum = add_saturate(half_d, average(quarter_e, (*p0 ^ *q0) & 1));
    const Samples up = smaller(sub_saturate(sum, offset), tc);
    const Samples down = smaller(sub_saturate(offset, sum), tc);
    *p0 = sub_saturate(add_saturate(*p0, up), down);
    *q0 = add_saturate(sub_saturate(*q0, up), down);
}

// The second sample of a side: p1 + clip3(-tc0, tc0, (p2 + middle - 2 * p1) >> 1).
template <typename Samples>
static inline Samples second_sample(Samples p2, Samples p1, Samples middle, Samples tc0) {
    const Samples wanted = average_down(p2, middle);
    return smaller(larger(wanted, sub_saturate(p1, tc0)), add_saturate(p1, tc0));
}

// H.264 8.7.2.3. Nearly always there is a sample to be filtered.
template <typename Lines, typename Samples = typename Lines::Vector>
static inline void luma_normal(const Lines& lines, const Limits<Samples>& t) {
    const Samples p1 = lines.load(-2);
    const Samples q1 = lines.load(1);
    Samples p0 = lines.load(-1);
    Samples q0 = lines.load(0);
    const Samples mask = is_filtered(p1, p0, q0, q1, t);
    const Samples p2 = lines.load(-3);
    const Samples q2 = lines.load(2);
    const Samples p_smooth = is_below(distance(p2, p0), t.beta) & mask;
    const Samples q_smooth = is_below(distance(q2, q0), t.beta) & mask;
    const Samples middle = average(p0, q0);
    lines.store(-2, second_sample(p2, p1, middle, t.tc0 & p_smooth));
    lines.store(1, second_sample(q2, q1, middle, t.tc0 & q_smooth));
    move_together(p1, &p0, &q0, q1, (t.tc0 & mask) - p_smooth - q_smooth);
    lines.store(-1, p0);
    lines.store(0, q0);
}

// One side of the strong filter: the side's samples from the edge away.
template <typename Samples>
struct Side {
    Samples s0, s1, s2;
};

// Half a sum of two samples, and of what is 1 when that is not whole.
template <typename Samples>
struct Halved {
    Samples half, odd;

    Halved(Samples a, Samples b) : half(average_down(a, b)), odd((a ^ b) & 1) {}
};

// The half of another sum with all that both sums have, so that (s + 2) >> 2 of the sum of all four
// samples is an average of this and the first half.
template <typename Samples>
static inline Samples half_with(const Halved<Samples>& a, const Halved<Samples>& b) {
    return b.half + (a.odd & b.odd);
}

// (a + b + c + d + 2) >> 2
template <typename Samples>
static inline Samples mean_4(const Halved<Samples>& a, const Halved<Samples>& b) {
    return average(a.half, half_with(a, b));
}

// The samples of a side that is flat: of each sum of eight, halves are taken first.
template <typename Samples>
static inline Side<Samples> smooth_side(const Side<Samples>& s, Samples s3, Samples b0,
                                        Samples b1) {
    const Halved<Samples> far(s.s2, s.s1), near(s.s0, b0);
    const Samples rest = half_with(far, near);
    const Samples around = average_down(s.s2, b1);
    return {mean_4(Halved<Samples>(around, s.s1), near), average(far.half, rest),
            mean_4(Halved<Samples>(s3, s.s2), Halved<Samples>(far.half, rest))};
}

// (2 * b + a + c + 2) >> 2
template <typename Samples>
static inline Samples mean_1_2_1(Samples a, Samples b, Samples c) {
    return average(b, average_down(a, c));
}

// at is the side's line at the edge, the next one is away from it.
template <typename Lines, typename Samples = typename Lines::Vector>
static void store_strong_side(const Lines& lines, int at, int away, const Side<Samples>& s,
                              Samples b0, Samples b1, Samples mask, Samples flat) {
    const Samples s0 = select(mask, mean_1_2_1(s.s0, s.s1, b1), s.s0);
    if (!is_any(flat)) {
        lines.store(at, s0);
        return;
    }
    const Side<Samples> smooth = smooth_side(s, lines.load(at + 3 * away), b0, b1);
    lines.store(at, select(flat, smooth.s0, s0));
    lines.store(at + away, select(flat, smooth.s1, s.s1));
    lines.store(at + 2 * away, select(flat, smooth.s2, s.s2));
}

// H.264 8.7.2.4. Returns whether any sample was filtered.
template <typename Lines, typename Samples = typename Lines::Vector>
static inline bool luma_strong(const Lines& lines, const Limits<Samples>& t) {
    const Side<Samples> p = {lines.load(-1), lines.load(-2), lines.load(-3)};
    const Side<Samples> q = {lines.load(0), lines.load(1), lines.load(2)};
    const Samples mask = is_filtered(p.s1, p.s0, q.s0, q.s1, t);
    if (!is_any(mask)) return false;
    const Samples flat = mask & is_below(distance(p.s0, q.s0), t.flat);
    const Samples p_flat = flat & is_below(distance(p.s2, p.s0), t.beta);
    const Samples q_flat = flat & is_below(distance(q.s2, q.s0), t.beta);
    store_strong_side(lines, -1, -1, p, q.s0, q.s1, mask, p_flat);
    store_strong_side(lines, 0, 1, q, p.s0, p.s1, mask, q_flat);
    return true;
}

enum ChangedSamples : unsigned { kChangedOuter = 1, kChangedInner = 2 };

template <typename Samples>
static inline bool has_outer(const DeblockEdges* edges, int c) {
    return edges[c].outer.is_on() || (kMbs<Samples> == 2 && edges[3 + c].outer.is_on());
}

// Filters all edges of luma. Returns ChangedSamples.
template <typename Lines, typename Samples = typename Lines::Vector>
static inline unsigned filter_luma(const Lines& lines, const DeblockEdges* edges) {
    constexpr int kLuma[2] = {0, 0};
    unsigned changed = 0;
    if (has_outer<Samples>(edges, 0) &&
        luma_strong(lines, spread<Samples>(edges, kLuma, outer_of))) {
        changed = kChangedOuter;
    }
    int step = 16;
    for (int i = 0; i < kMbs<Samples>; ++i) {
        const DeblockEdges& e = edges[3 * i];
        if (e.inner.is_on() && e.inner_step < step) step = e.inner_step;
    }
    if (step == 16) return changed;
    const Limits<Samples> middle = spread<Samples>(edges, kLuma, inner_of);
    const Limits<Samples> between =
        kMbs<Samples> == 1 ? middle : spread<Samples>(edges, kLuma, between_of);
    Lines edge = lines;
    for (int at = step; at < 16; at += step) {
        edge = edge.moved(step);
        luma_normal(edge, at == 8 ? middle : between);
    }
    return changed | kChangedInner;
}

template <typename Samples>
static void luma_horizontal(uint8_t* dst, ptrdiff_t pitch, ptrdiff_t distance,
                            const DeblockEdges* edges) {
    filter_luma(Rows<Samples>{{dst, pitch, distance}}, edges);
}

template <typename Samples>
static void luma_vertical(uint8_t* dst, ptrdiff_t pitch, ptrdiff_t distance,
                          const DeblockEdges* edges) {
    const Rows<Samples> rows = {{dst, pitch, distance}};
    __attribute__((uninitialized)) Samples columns[4 + 16];
    if (has_outer<Samples>(edges, 0)) load_turned_4(rows.at.moved(-4, 0), columns);
    load_turned_16(rows, columns + 4);
    const unsigned changed = filter_luma(Columns<Samples>{columns + 4}, edges);
    if (changed & kChangedOuter) store_turned_4(rows.at.moved(-4, 0), columns);
    if (changed) store_turned_16(rows.moved(0), columns + 4);
}

// H.264 8.7.2.3, 8.7.2.4 for chroma. Returns whether any sample was filtered.
template <bool kIsStrong, typename Lines, typename Samples = typename Lines::Vector>
static inline bool chroma_edge(const Lines& lines, const Limits<Samples>& t) {
    const Samples p1 = lines.load(-2);
    const Samples q1 = lines.load(1);
    Samples p0 = lines.load(-1);
    Samples q0 = lines.load(0);
    const Samples mask = is_filtered(p1, p0, q0, q1, t);
    if (!is_any(mask)) return false;
    if (kIsStrong) {
        p0 = select(mask, mean_1_2_1(p0, p1, q1), p0);
        q0 = select(mask, mean_1_2_1(q0, q1, p1), q0);
    } else {
        move_together(p1, &p0, &q0, q1, (t.tc0 + 1) & mask);
    }
    lines.store(-1, p0);
    lines.store(0, q0);
    return true;
}

template <typename Samples>
static inline bool has_outer_chroma(const DeblockEdges* edges) {
    return has_outer<Samples>(edges, 1) || has_outer<Samples>(edges, 2);
}

template <typename Lines, typename Samples = typename Lines::Vector>
static inline bool filter_chroma(const Lines& lines, const DeblockEdges* edges, bool has_outer) {
    constexpr int kChroma[2] = {1, 2};
    bool changed = false;
    if (has_outer) {
        changed = chroma_edge<true>(lines, spread<Samples>(edges, kChroma, outer_of));
    }
    const Limits<Samples> inner = spread<Samples>(edges, kChroma, inner_of);
    return chroma_edge<false>(lines.moved(4), inner) || changed;
}

template <typename Samples>
static void chroma_horizontal(uint8_t* cb, uint8_t* cr, ptrdiff_t pitch, ptrdiff_t distance,
                              const DeblockEdges* edges) {
    const ChromaRows<Samples> rows = {{cb, pitch, distance}, {cr, pitch, distance}};
    filter_chroma(rows, edges, has_outer_chroma<Samples>(edges));
}

// Eight columns from kLead before the macroblock on hold all that is touched.
template <int kLead, typename Samples>
static inline void chroma_vertical_from(uint8_t* cb, uint8_t* cr, ptrdiff_t pitch,
                                        ptrdiff_t distance, const DeblockEdges* edges) {
    const auto at = [&](uint8_t* first) {
        return Plane<Samples>(fresh(first - kLead), pitch, distance);
    };
    Samples v[8];
    load_by_twos(at(cb), v);
    load_by_twos(at(cr), v + 4);
    perfect_shuffle<4>(v);
    if (!filter_chroma(Columns<Samples>{v + kLead}, edges, kLead != 0)) return;
    perfect_shuffle<3>(v);
    store_by_twos(at(cb), v);
    store_by_twos(at(cr), v + 4);
}

template <typename Samples>
static void chroma_vertical(uint8_t* cb, uint8_t* cr, ptrdiff_t pitch, ptrdiff_t distance,
                            const DeblockEdges* edges) {
    // Before the first column there may be nothing to read.
    const auto filter = has_outer_chroma<Samples>(edges) ? chroma_vertical_from<2, Samples>
                                                         : chroma_vertical_from<0, Samples>;
    filter(cb, cr, pitch, distance, edges);
}

template <typename Samples>
static inline DeblockKernels deblock_kernels() {
    return {{luma_vertical<Samples>, chroma_vertical<Samples>},
            {luma_horizontal<Samples>, chroma_horizontal<Samples>}};
}
