// SPDX-License-Identifier: BSD-2-Clause
// What intra blocks leave behind for the prediction of their neighbours: the DC and the first row
// and column of coefficients. Two rows of macroblocks are kept.
#pragma once

#include <assert.h>
#include <stdint.h>
#include <string.h>

#include "runtime/owned.h"

// A block's slots: 0 the DC (dequantised), 1..7 the first column (u = 0, v = 1..7), 9..15 the first
// row (v = 0, u = 1..7). Slot 8 takes what belongs to neither. AC values are quantised levels in
// MPEG-4 and coefficients in H.263 Annex I.
constexpr unsigned kEdgeSlots = 16;
constexpr unsigned kEdgeNoSlot = 8;
struct alignas(8) M4vBlockEdge {
    int16_t slot[kEdgeSlots];
};

// Word by word: where a call of memset is made of it, that is longer.
inline void m4v_clear_edge(M4vBlockEdge* edge) {
    constexpr uint64_t kZero = 0;
#pragma GCC unroll 4
    for (unsigned i = 0; i < kEdgeSlots; i += 4) memcpy(edge->slot + i, &kZero, sizeof kZero);
}

struct M4vMbEdge {
    M4vBlockEdge block[6];  // Y top left, top right, bottom left, bottom right, Cb, Cr
    uint32_t segment;       // video packet, GOB run or slice; 0 before anything was decoded
    int32_t quant;
};

// What a block outside the picture or in another segment counts as (14496-2 7.4.3, H.263 I.3).
constexpr int kMissingDc = 1024;
extern const M4vMbEdge kMissingMbEdge;

struct M4vBlockNeighbours {
    const M4vBlockEdge* left;
    const M4vBlockEdge* above;
    const M4vBlockEdge* corner;  // above left
};

// The macroblock to decode and those around it; missing ones are kMissingMbEdge.
struct M4vNeighbours {
    M4vMbEdge* current;
    const M4vMbEdge* left;
    const M4vMbEdge* above;
    M4vBlockNeighbours of[6];  // its blocks

    bool has_left_of(unsigned n) const { return (n < 4 && (n & 1)) || left != &kMissingMbEdge; }
    bool has_above_of(unsigned n) const { return (n < 4 && (n & 2)) || above != &kMissingMbEdge; }
};

struct M4vEdgeRows {
    Owned<M4vMbEdge> entries;  // two rows of pitch entries; the first of each stays unused
    uint32_t pitch = 0;
};

// Returns 1 when there is no memory.
[[nodiscard]] inline int m4v_create_edge_rows(uint32_t width_mbs, M4vEdgeRows* rows) {
    rows->pitch = width_mbs + 1;
    rows->entries = owned_calloc<M4vMbEdge>(uint64_t{2} * rows->pitch);
    return rows->entries ? 0 : 1;
}

// Enters the macroblock at (x, y), below the width of the rows, into its segment, which must not be
// 0. Neighbours count when they carry the same one. A segment covers its macroblocks in raster
// order (of its rectangle), so a stale entry never carries it.
inline void m4v_enter_macroblock(M4vEdgeRows* rows, uint32_t x, uint32_t y, uint32_t segment,
                                 M4vNeighbours* near) {
    assert(segment != 0 && x + 1 < rows->pitch);
    const auto present = [segment](const M4vMbEdge* mb) {
        return mb->segment == segment ? mb : &kMissingMbEdge;
    };
    M4vMbEdge* const current = rows->entries.get() + (y & 1) * rows->pitch + x + 1;
    const M4vMbEdge* const row_above = rows->entries.get() + (~y & 1) * rows->pitch + x + 1;
    const M4vMbEdge* const above = present(row_above);
    const M4vMbEdge* const corner = present(row_above - 1);
    const M4vMbEdge* const left = present(current - 1);
    current->segment = segment;
    near->current = current;
    near->left = left;
    near->above = above;
    near->of[0] = {&left->block[1], &above->block[2], &corner->block[3]};
    near->of[1] = {&current->block[0], &above->block[3], &above->block[2]};
    near->of[2] = {&left->block[3], &current->block[0], &left->block[1]};
    near->of[3] = {&current->block[2], &current->block[1], &current->block[0]};
    near->of[4] = {&left->block[4], &above->block[4], &corner->block[4]};
    near->of[5] = {&left->block[5], &above->block[5], &corner->block[5]};
}
