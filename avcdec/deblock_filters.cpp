// SPDX-License-Identifier: BSD-2-Clause
// The edge filters of deblocking (H.264 8.7.2.3, 8.7.2.4), scalar.
#include "avcdec/recon_kernels.h"
#include "runtime/byte_order.h"

// Whether two samples differ by less than a limit that is not 0.
static inline bool is_near(int a, int b, int limit) {
    return static_cast<unsigned>(a - b + (limit - 1)) < static_cast<unsigned>(2 * limit - 1);
}

// p0 and q0 are the samples at the edge, across is the distance from one to the next across it.
static inline bool is_filtered(const uint8_t* q0, ptrdiff_t across, int alpha, int beta) {
    const int p1 = q0[-2 * across];
    const int p0 = q0[-across];
    const int q1 = q0[across];
    return is_near(p0, q0[0], alpha) && is_near(p1, p0, beta) && is_near(q1, q0[0], beta);
}

static void luma_normal(uint8_t* q, ptrdiff_t across, int beta, int tc0) {
    const int p2 = q[-3 * across];
    const int p1 = q[-2 * across];
    const int p0 = q[-across];
    const int q0 = q[0];
    const int q1 = q[across];
    const int q2 = q[2 * across];
    int tc = tc0;
    if (is_near(p2, p0, beta)) {
        q[-2 * across] =
            static_cast<uint8_t>(p1 + clip3(-tc0, tc0, (p2 + ((p0 + q0 + 1) >> 1) - 2 * p1) >> 1));
        ++tc;
    }
    if (is_near(q2, q0, beta)) {
        q[across] =
            static_cast<uint8_t>(q1 + clip3(-tc0, tc0, (q2 + ((p0 + q0 + 1) >> 1) - 2 * q1) >> 1));
        ++tc;
    }
    const int delta = clip3(-tc, tc, ((q0 - p0) * 4 + (p1 - q1) + 4) >> 3);
    q[-across] = clip_u8(p0 + delta);
    q[0] = clip_u8(q0 - delta);
}

// One side of the strong filter: a is the side's sample at the edge, b the one on the other side.
static inline void luma_strong_side(uint8_t* a0, ptrdiff_t away, int b0, int b1, bool is_flat) {
    const int s0 = a0[0];
    const int s1 = a0[away];
    const int s2 = a0[2 * away];
    if (!is_flat) {
        a0[0] = static_cast<uint8_t>((2 * s1 + s0 + b1 + 2) >> 2);
        return;
    }
    const int s3 = a0[3 * away];
    a0[0] = static_cast<uint8_t>((s2 + 2 * s1 + 2 * s0 + 2 * b0 + b1 + 4) >> 3);
    a0[away] = static_cast<uint8_t>((s2 + s1 + s0 + b0 + 2) >> 2);
    a0[2 * away] = static_cast<uint8_t>((2 * s3 + 3 * s2 + s1 + s0 + b0 + 4) >> 3);
}

static void luma_strong(uint8_t* q, ptrdiff_t across, int beta, int flat) {
    const int p2 = q[-3 * across];
    const int p1 = q[-2 * across];
    const int p0 = q[-across];
    const int q0 = q[0];
    const int q1 = q[across];
    const int q2 = q[2 * across];
    const bool is_flat = is_near(p0, q0, flat);
    luma_strong_side(q - across, -across, q0, q1, is_flat && is_near(p2, p0, beta));
    luma_strong_side(q, across, p0, p1, is_flat && is_near(q2, q0, beta));
}

static void chroma_normal(uint8_t* q, ptrdiff_t across, int tc0) {
    const int p0 = q[-across];
    const int q0 = q[0];
    const int tc = tc0 + 1;
    const int delta = clip3(-tc, tc, ((q0 - p0) * 4 + (q[-2 * across] - q[across]) + 4) >> 3);
    q[-across] = clip_u8(p0 + delta);
    q[0] = clip_u8(q0 - delta);
}

static void chroma_strong(uint8_t* q, ptrdiff_t across) {
    const int p1 = q[-2 * across];
    const int p0 = q[-across];
    const int q0 = q[0];
    const int q1 = q[across];
    q[-across] = static_cast<uint8_t>((2 * p1 + p0 + q1 + 2) >> 2);
    q[0] = static_cast<uint8_t>((2 * q1 + q0 + p1 + 2) >> 2);
}

enum class FilterKind { kLumaNormal, kLumaStrong, kChromaNormal, kChromaStrong };
enum class EdgeDirection { kVertical, kHorizontal };

template <FilterKind kKind>
static void filter_edge(uint8_t* q0, ptrdiff_t across, ptrdiff_t along, EdgeThresholds t) {
    constexpr int kCount =
        kKind == FilterKind::kLumaNormal || kKind == FilterKind::kLumaStrong ? 16 : 8;
    for (int i = 0; i < kCount; ++i) {
        uint8_t* const q = q0 + i * along;
        if (!is_filtered(q, across, t.alpha, t.beta)) continue;
        if constexpr (kKind == FilterKind::kLumaNormal) luma_normal(q, across, t.beta, t.tc0);
        if constexpr (kKind == FilterKind::kLumaStrong) luma_strong(q, across, t.beta, t.flat);
        if constexpr (kKind == FilterKind::kChromaNormal) chroma_normal(q, across, t.tc0);
        if constexpr (kKind == FilterKind::kChromaStrong) chroma_strong(q, across);
    }
}

template <EdgeDirection kDirection>
static void deblock_luma(uint8_t* dst, ptrdiff_t pitch, ptrdiff_t, const DeblockEdges* edges) {
    const DeblockEdges& e = edges[0];
    const ptrdiff_t across = kDirection == EdgeDirection::kVertical ? 1 : pitch;
    const ptrdiff_t along = kDirection == EdgeDirection::kVertical ? pitch : 1;
    if (e.outer.is_on()) filter_edge<FilterKind::kLumaStrong>(dst, across, along, e.outer);
    if (!e.inner.is_on()) return;
    for (int i = e.inner_step; i < 16; i += e.inner_step) {
        filter_edge<FilterKind::kLumaNormal>(dst + i * across, across, along, e.inner);
    }
}

template <EdgeDirection kDirection>
static void deblock_chroma(uint8_t* cb, uint8_t* cr, ptrdiff_t pitch, ptrdiff_t,
                           const DeblockEdges* edges) {
    const ptrdiff_t across = kDirection == EdgeDirection::kVertical ? 1 : pitch;
    const ptrdiff_t along = kDirection == EdgeDirection::kVertical ? pitch : 1;
    for (int c = 0; c < 2; ++c) {
        uint8_t* const dst = c == 0 ? cb : cr;
        const DeblockEdges& e = edges[1 + c];
        if (e.outer.is_on()) filter_edge<FilterKind::kChromaStrong>(dst, across, along, e.outer);
        if (e.inner.is_on())
            filter_edge<FilterKind::kChromaNormal>(dst + 4 * across, across, along, e.inner);
    }
}

template <EdgeDirection kDirection>
static EdgeKernels edge_kernels() {
    return {deblock_luma<kDirection>, deblock_chroma<kDirection>};
}

void deblock_use_scalar(ReconKernels* k) {
    k->deblock = {edge_kernels<EdgeDirection::kVertical>(),
                  edge_kernels<EdgeDirection::kHorizontal>()};
}
