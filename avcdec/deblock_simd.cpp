// SPDX-License-Identifier: BSD-2-Clause
// The edge filters of deblocking with SSE2 or NEON, 16 positions along an edge at a time. Filters
// work across rows; for vertical edges the samples are turned first and turned back after.
#include "avcdec/recon_kernels.h"
#include "runtime/simd_vectors.h"

// One threshold per position.
struct Limits {
    U8x16 alpha;
    U8x16 beta;
    U8x16 tc0;
};

static inline Limits splat(const EdgeThresholds& t) {
    return {splat_u8(t.alpha), splat_u8(t.beta), splat_u8(t.tc0)};
}

// All bits where a < b.
static inline U8x16 is_below(U8x16 a, U8x16 b) { return (U8x16)(sub_saturate(b, a) != 0); }

// A threshold of 0 lets no sample pass.
static inline U8x16 is_filtered(U8x16 p1, U8x16 p0, U8x16 q0, U8x16 q1, const Limits& t) {
    const U8x16 room_beta =
        smaller(sub_saturate(t.beta, distance(p1, p0)), sub_saturate(t.beta, distance(q1, q0)));
    return (U8x16)(smaller(room_beta, sub_saturate(t.alpha, distance(p0, q0))) != 0);
}

static inline U8x16 select(U8x16 mask, U8x16 yes, U8x16 no) { return (yes & mask) | (no & ~mask); }

// Moves p0 and q0 towards each other by delta = ((q0 - p0) * 4 + (p1 - q1) + 4) >> 3, at most tc.
// With d = q0 - p0 and e = p1 - q1, delta is (d >> 1) + (((d & 1) + (e >> 2) + 1) >> 1); averages
// with a complement halve the differences, offset by 128, and in the sum delta is offset by 192.
// Saturation of the sum is beyond the largest tc.
static inline void move_together(U8x16 p1, U8x16* p0, U8x16* q0, U8x16 q1, U8x16 tc) {
    const U8x16 half_d = average(*q0, ~*p0);
    const U8x16 quarter_e = average(average(p1, ~q1), splat_u8(127));
    const U8x16 sum = add_saturate(half_d, average(quarter_e, (*p0 ^ *q0) & 1));
    const U8x16 up = smaller(sub_saturate(sum, splat_u8(192)), tc);
    const U8x16 down = smaller(sub_saturate(splat_u8(192), sum), tc);
    *p0 = sub_saturate(add_saturate(*p0, up), down);
    *q0 = add_saturate(sub_saturate(*q0, up), down);
}

// The second sample of a side: p1 + clip3(-tc0, tc0, (p2 + middle - 2 * p1) >> 1).
static inline U8x16 second_sample(U8x16 p2, U8x16 p1, U8x16 middle, U8x16 tc0) {
    const U8x16 wanted = average_down(p2, middle);
    return smaller(larger(wanted, sub_saturate(p1, tc0)), add_saturate(p1, tc0));
}

// H.264 8.7.2.3. Returns whether any sample was filtered.
static inline bool luma_normal(uint8_t* q, ptrdiff_t pitch, const Limits& t) {
    const U8x16 p1 = load_16(q - 2 * pitch);
    const U8x16 q1 = load_16(q + pitch);
    U8x16 p0 = load_16(q - pitch);
    U8x16 q0 = load_16(q);
    const U8x16 mask = is_filtered(p1, p0, q0, q1, t);
    if (!is_any(mask)) return false;
    const U8x16 p2 = load_16(q - 3 * pitch);
    const U8x16 q2 = load_16(q + 2 * pitch);
    const U8x16 p_smooth = is_below(distance(p2, p0), t.beta) & mask;
    const U8x16 q_smooth = is_below(distance(q2, q0), t.beta) & mask;
    const U8x16 middle = average(p0, q0);
    store_16(q - 2 * pitch, second_sample(p2, p1, middle, t.tc0 & p_smooth));
    store_16(q + pitch, second_sample(q2, q1, middle, t.tc0 & q_smooth));
    move_together(p1, &p0, &q0, q1, (t.tc0 & mask) - p_smooth - q_smooth);
    store_16(q - pitch, p0);
    store_16(q, q0);
    return true;
}

// One side of the strong filter: the side's samples from the edge away, and two of the other side.
struct Side {
    U8x16 s0, s1, s2;
};

// Eight positions, 16 bits a sample.
struct WideSide {
    I16x8 s0, s1, s2;
};

static inline WideSide smooth_half(I16x8 s0, I16x8 s1, I16x8 s2, I16x8 s3, I16x8 b0, I16x8 b1) {
    const I16x8 sum = s2 + s1 + s0 + b0;
    return {(2 * sum - s2 + b1 + 4) >> 3, (sum + 2) >> 2, (2 * (s3 + s2) + sum + 4) >> 3};
}

static inline Side smooth_side(const Side& s, U8x16 s3, U8x16 b0, U8x16 b1) {
    const WideSide low = smooth_half(widen_low(s.s0), widen_low(s.s1), widen_low(s.s2),
                                     widen_low(s3), widen_low(b0), widen_low(b1));
    const WideSide high = smooth_half(widen_high(s.s0), widen_high(s.s1), widen_high(s.s2),
                                      widen_high(s3), widen_high(b0), widen_high(b1));
    return {clip_to_u8(low.s0, high.s0), clip_to_u8(low.s1, high.s1), clip_to_u8(low.s2, high.s2)};
}

// (2 * b + a + c + 2) >> 2
static inline U8x16 mean_1_2_1(U8x16 a, U8x16 b, U8x16 c) { return average(b, average_down(a, c)); }

static inline void store_strong_side(uint8_t* edge, ptrdiff_t away, const Side& s, U8x16 b0,
                                     U8x16 b1, U8x16 mask, U8x16 flat) {
    const U8x16 s0 = select(mask, mean_1_2_1(s.s0, s.s1, b1), s.s0);
    if (!is_any(flat)) {
        store_16(edge, s0);
        return;
    }
    const Side smooth = smooth_side(s, load_16(edge + 3 * away), b0, b1);
    store_16(edge, select(flat, smooth.s0, s0));
    store_16(edge + away, select(flat, smooth.s1, s.s1));
    store_16(edge + 2 * away, select(flat, smooth.s2, s.s2));
}

// H.264 8.7.2.4. Returns whether any sample was filtered.
static inline bool luma_strong(uint8_t* q, ptrdiff_t pitch, const Limits& t) {
    const Side p = {load_16(q - pitch), load_16(q - 2 * pitch), load_16(q - 3 * pitch)};
    const Side s = {load_16(q), load_16(q + pitch), load_16(q + 2 * pitch)};
    const U8x16 mask = is_filtered(p.s1, p.s0, s.s0, s.s1, t);
    if (!is_any(mask)) return false;
    // Shifted as 16-bit lanes: the bits that come from the lane above are cut off.
    const U8x16 quarter_alpha = (U8x16)((U16x8)t.alpha >> 2) & 63;
    const U8x16 small = mask & is_below(distance(p.s0, s.s0), quarter_alpha + 2);
    const U8x16 p_flat = small & is_below(distance(p.s2, p.s0), t.beta);
    const U8x16 q_flat = small & is_below(distance(s.s2, s.s0), t.beta);
    store_strong_side(q - pitch, -pitch, p, s.s0, s.s1, mask, p_flat);
    store_strong_side(q, pitch, s, p.s0, p.s1, mask, q_flat);
    return true;
}

enum ChangedSamples : unsigned { kChangedOuter = 1, kChangedInner = 2 };

// The edges between rows of a macroblock; returns ChangedSamples.
static inline unsigned filter_luma(uint8_t* dst, ptrdiff_t pitch, const DeblockEdges& e) {
    unsigned changed = 0;
    if (e.outer.is_on() && luma_strong(dst, pitch, splat(e.outer))) changed = kChangedOuter;
    if (!e.inner.is_on()) return changed;
    const Limits inner = splat(e.inner);
    for (int y = e.inner_step; y < 16; y += e.inner_step) {
        if (luma_normal(dst + y * pitch, pitch, inner)) changed |= kChangedInner;
    }
    return changed;
}

static void luma_horizontal(uint8_t* dst, ptrdiff_t pitch, const DeblockEdges& e) {
    filter_luma(dst, pitch, e);
}

// 16 rows of 4 samples to 4 columns.
static inline void load_turned_4(const uint8_t* src, ptrdiff_t pitch, U8x16* columns) {
    U8x16 v[4];
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) v[i] = load_4x4(src + 4 * i * pitch, pitch);
    perfect_shuffle<4>(v);
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) columns[i] = v[i];
}

static inline void store_turned_4(uint8_t* dst, ptrdiff_t pitch, const U8x16* columns) {
    U8x16 v[4] = {columns[0], columns[1], columns[2], columns[3]};
    perfect_shuffle<2>(v);
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) store_4x4(dst + 4 * i * pitch, pitch, v[i]);
}

static inline void load_turned_16(const uint8_t* src, ptrdiff_t pitch, U8x16* columns) {
    U8x16 v[16];
#pragma GCC unroll 16
    for (int i = 0; i < 16; ++i) v[i] = load_16(src + i * pitch);
    perfect_shuffle<4>(v);
#pragma GCC unroll 16
    for (int i = 0; i < 16; ++i) columns[i] = v[i];
}

static inline void store_turned_16(uint8_t* dst, ptrdiff_t pitch, const U8x16* columns) {
    U8x16 v[16];
#pragma GCC unroll 16
    for (int i = 0; i < 16; ++i) v[i] = columns[i];
    perfect_shuffle<4>(v);
#pragma GCC unroll 16
    for (int i = 0; i < 16; ++i) store_16(dst + i * pitch, v[i]);
}

static void luma_vertical(uint8_t* dst, ptrdiff_t pitch, const DeblockEdges& e) {
    __attribute__((uninitialized)) U8x16 columns[4 + 16];
    if (e.outer.is_on()) load_turned_4(dst - 4, pitch, columns);
    load_turned_16(dst, pitch, columns + 4);
    const unsigned changed = filter_luma(reinterpret_cast<uint8_t*>(columns + 4), 16, e);
    if (changed & kChangedOuter) store_turned_4(dst - 4, pitch, columns);
    if (changed) store_turned_16(dst, pitch, columns + 4);
}

// Thresholds of Cb for the first eight positions, of Cr for the others.
static inline Limits chroma_limits(const EdgeThresholds& cb, const EdgeThresholds& cr) {
    constexpr uint64_t kEveryByte = 0x0101010101010101;
    const auto halves = [](int low, int high) {
        return (U8x16)U64x2{static_cast<uint64_t>(low) * kEveryByte,
                            static_cast<uint64_t>(high) * kEveryByte};
    };
    return {halves(cb.alpha, cr.alpha), halves(cb.beta, cr.beta), halves(cb.tc0, cr.tc0)};
}

static inline bool chroma_edge(uint8_t* cb, uint8_t* cr, ptrdiff_t pitch, const Limits& t,
                               bool is_strong) {
    const U8x16 p1 = load_8_8(cb - 2 * pitch, cr - 2 * pitch);
    const U8x16 q1 = load_8_8(cb + pitch, cr + pitch);
    U8x16 p0 = load_8_8(cb - pitch, cr - pitch);
    U8x16 q0 = load_8_8(cb, cr);
    const U8x16 mask = is_filtered(p1, p0, q0, q1, t);
    if (!is_any(mask)) return false;
    if (is_strong) {
        p0 = select(mask, mean_1_2_1(p0, p1, q1), p0);
        q0 = select(mask, mean_1_2_1(q0, q1, p1), q0);
    } else {
        move_together(p1, &p0, &q0, q1, (t.tc0 + 1) & mask);
    }
    store_8_8(cb - pitch, cr - pitch, p0);
    store_8_8(cb, cr, q0);
    return true;
}

static inline bool is_outer_on(const DeblockEdges edges[2]) {
    return edges[0].outer.is_on() || edges[1].outer.is_on();
}

// Returns whether any sample was filtered.
static inline bool filter_chroma(uint8_t* cb, uint8_t* cr, ptrdiff_t pitch,
                                 const DeblockEdges edges[2]) {
    bool changed = false;
    if (is_outer_on(edges)) {
        changed = chroma_edge(cb, cr, pitch, chroma_limits(edges[0].outer, edges[1].outer), true);
    }
    const Limits inner = chroma_limits(edges[0].inner, edges[1].inner);
    return chroma_edge(cb + 4 * pitch, cr + 4 * pitch, pitch, inner, false) || changed;
}

static void chroma_horizontal(uint8_t* cb, uint8_t* cr, ptrdiff_t pitch,
                              const DeblockEdges edges[2]) {
    filter_chroma(cb, cr, pitch, edges);
}

static void chroma_vertical(uint8_t* cb, uint8_t* cr, ptrdiff_t pitch,
                            const DeblockEdges edges[2]) {
    // Eight columns hold all that both edges touch. Before the first there may be nothing to read.
    const ptrdiff_t lead = is_outer_on(edges) ? 2 : 0;
    U8x16 v[8];
#pragma GCC unroll 4
    for (ptrdiff_t i = 0; i < 4; ++i) {
        const ptrdiff_t at = 2 * i * pitch - lead;
        v[i] = load_8_8(cb + at, cb + at + pitch);
        v[i + 4] = load_8_8(cr + at, cr + at + pitch);
    }
    perfect_shuffle<4>(v);
    uint8_t* const columns = reinterpret_cast<uint8_t*>(v) + 16 * lead;
    if (!filter_chroma(columns, columns + 8, 16, edges)) return;
    perfect_shuffle<3>(v);
#pragma GCC unroll 4
    for (ptrdiff_t i = 0; i < 4; ++i) {
        const ptrdiff_t at = 2 * i * pitch - lead;
        store_8_8(cb + at, cb + at + pitch, v[i]);
        store_8_8(cr + at, cr + at + pitch, v[i + 4]);
    }
}

void deblock_use_simd(ReconKernels* k) {
    k->deblock_luma[kVerticalEdge] = luma_vertical;
    k->deblock_luma[kHorizontalEdge] = luma_horizontal;
    k->deblock_chroma[kVerticalEdge] = chroma_vertical;
    k->deblock_chroma[kHorizontalEdge] = chroma_horizontal;
}
