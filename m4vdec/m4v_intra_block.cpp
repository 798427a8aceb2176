// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_intra_block.h"

#include <assert.h>
#include <stdlib.h>
#include <string.h>
#if defined(__ARM_FEATURE_SAT)
#include <arm_acle.h>
#endif

// How a level becomes a coefficient, and what goes into the block's edge.
enum class Method {
    kH263,    // 14496-2 7.4.4.2, levels into the edge
    kMatrix,  // 14496-2 7.4.4.1, levels into the edge
    kAic,     // H.263 I.3: 2 * quant * level, coefficients into the edge
};

static int clip_coef(int v) {
#if defined(__ARM_FEATURE_SAT)
    return __ssat(v, 12);
#else
    return clip3(-2048, 2047, v);
#endif
}

// What the H.263 method makes of the levels of the tables, which need no clipping:
// 31 * (2 * 27 + 1).
static constexpr int kTableLevels = 32;
static constexpr struct H263Coefs {
    int16_t of[32][2 * kTableLevels];  // by quantiser and kTableLevels + level
    constexpr H263Coefs() : of() {
        for (int quant = 1; quant < 32; ++quant) {
            for (int level = 1; level < kTableLevels; ++level) {
                const int magnitude = quant * (2 * level + 1) - (~quant & 1);
                of[quant][kTableLevels + level] = static_cast<int16_t>(magnitude);
                of[quant][kTableLevels - level] = static_cast<int16_t>(-magnitude);
            }
        }
    }
} kH263Coefs;

struct Dequantiser {
    int scale;   // 2 * quant
    int offset;  // what the H.263 method adds to the magnitude
    const uint8_t* matrix;
    const int16_t* coefs;  // of the H.263 method, by level, for those of the tables
};

static Dequantiser make_dequantiser(const M4vBlockDecoder& d) {
    assert(d.quant >= 1 && d.quant <= 31);
    return {2 * d.quant, d.quant - (~d.quant & 1), d.matrix, kH263Coefs.of[d.quant] + kTableLevels};
}

template <Method kMethod>
static int dequantise(const Dequantiser& q, int level, unsigned position) {
    if (kMethod == Method::kAic) return level * q.scale;
    if (kMethod == Method::kMatrix) return clip_coef(level * q.matrix[position] * q.scale / 16);
    const int sign = level >> 31;
    return level * q.scale + ((q.offset ^ sign) - sign);
}

template <Method kMethod>
static int dequantise_table_level(const Dequantiser& q, int level, unsigned position) {
    if (kMethod == Method::kH263) return q.coefs[level];
    return dequantise<kMethod>(q, level, position);
}

// Puts what stands at scan index `index` into the block and its edge.
template <Method kMethod>
static inline void store(M4vBlockDecoder* d, const M4vScan& scan, M4vBlockEdge* edge, int index,
                         int level, unsigned position, int coef) {
    d->coef[position] = static_cast<int16_t>(coef);
    edge->slot[scan.edge_slot[index]] =
        static_cast<int16_t>(kMethod == Method::kAic ? coef : level);
}

// Takes the event after an entry of kTcoefEscape.
static inline TcoefEntry take_escaped_event(BitWindow* bits, M4vBlockDecoder* d, TcoefEntry entry) {
    bits_drop(bits, entry.length());
    bits_refill(bits, &d->bits);
    static_assert(kTcoefEscapedBits <= kBitWordSize);  // all of which are right now
    const TcoefEntry event = m4v_escaped_event(bits->cache, *d->tcoef, entry);
    int length = event.length();
    if (length > kBitsGuaranteed) {  // more than the reader counts in 32 bits
        bits_drop(bits, kBitsGuaranteed);
        bits_refill(bits, &d->bits);
        length -= kBitsGuaranteed;
    }
    bits_drop(bits, length);
    return event;
}

// Reads events after scan index `index` (-1: from the DC on) up to the last one. Returns its scan
// index, or -1 on an error. A function of its own, so that what its loop needs has registers.
template <Method kMethod>
[[gnu::noinline]] static int read_events(M4vBlockDecoder* d, const M4vScan& scan, int index,
                                         M4vBlockEdge* edge) {
    const TcoefEntry* const primary = d->tcoef->primary;
    Dequantiser q = make_dequantiser(*d);
    asm("" : "+r"(q.coefs));  // a register for it, not a sum anew for every event
    BitWindow bits = bits_window(d->bits);
    const auto take = [&](int i, TcoefEntry event) {
        const unsigned position = scan.position[i];
        bits_drop(&bits, event.length());
        const int coef = dequantise_table_level<kMethod>(q, event.level(), position);
        store<kMethod>(d, scan, edge, i, event.level(), position, coef);
    };
    for (;;) {
        bits_need(&bits, &d->bits, kTcoefMostBits);
        TcoefEntry event = primary[bits_cached(&bits, kTcoefPrimaryBits)];
        const int next = index + static_cast<int>(event.step());
        if (next <= 63) [[likely]] {  // neither the last event nor a special step is that short
            take(next, event);
            index = next;
            continue;
        }
        event = m4v_whole_entry<kTcoefPrimaryBits>(bits.cache, *d->tcoef, event);
        const bool is_escaped = event.step() >= kTcoefEscape;
        if (is_escaped) event = take_escaped_event(&bits, d, event);
        index += event.step() & (kTcoefLast - 1);
        if (index > 63) break;  // as after kTcoefInvalid
        if (is_escaped) {
            const unsigned position = scan.position[index];
            const int coef = clip_coef(dequantise<kMethod>(q, event.level(), position));
            store<kMethod>(d, scan, edge, index, event.level(), position, coef);
        } else {
            take(index, event);
        }
        if (event.step() >= kTcoefLast) break;
    }
    bits_return(&d->bits, bits);
    return index <= 63 ? index : -1;
}

// The same behind the DC of H.263 without advanced intra coding: by pairs, without an edge.
[[gnu::noinline]] static int read_h263_events(M4vBlockDecoder* d) {
    const uint8_t* const position = kScanZigzag.position;
    const TcoefPair* const pairs = d->tcoef->pairs;
    const Dequantiser q = make_dequantiser(*d);
    BitWindow bits = bits_window(d->bits);
    unsigned index = 0;
    const auto take = [&](unsigned i, TcoefPair pair) {
        bits_drop(&bits, pair.length());
        // A single event is put twice: nobody can foretell whether there are two.
        d->coef[position[i]] = q.coefs[pair.second_level()];
        d->coef[position[i - pair.second_step()]] = q.coefs[pair.level()];
    };
    for (;;) {
        bits_need(&bits, &d->bits, kTcoefMostBits);
        const TcoefPair pair = pairs[bits_cached(&bits, kTcoefPairBits)];
        const unsigned next = index + pair.step();
        if (next <= 63) [[likely]] {  // as above
            take(next, pair);
            index = next;
            continue;
        }
        if (pair.step() < kTcoefLong) {
            index += pair.step() & (kTcoefLast - 1);
            if (index <= 63) take(index, pair);
            break;
        }
        TcoefEntry event = m4v_whole_entry<kTcoefPairBits>(bits.cache, *d->tcoef, pair.single());
        if (event.step() >= kTcoefEscape) {
            event = take_escaped_event(&bits, d, event);
        } else {
            bits_drop(&bits, event.length());
        }
        index += event.step() & (kTcoefLast - 1);
        if (index > 63) break;
        const int coef = clip_coef(dequantise<Method::kH263>(q, event.level(), 0));
        d->coef[position[index]] = static_cast<int16_t>(coef);
        if (event.step() >= kTcoefLast) break;
    }
    bits_return(&d->bits, bits);
    return index <= 63 ? static_cast<int>(index) : -1;
}

static void fill(int dc, M4vTarget target) {
    const uint64_t row = 0x0101010101010101u * static_cast<unsigned>(m4v_idct_dc_sample(dc));
    for (int y = 0; y < 8; ++y) memcpy(target.samples + y * target.pitch, &row, sizeof row);
}

// Sends the block whose DC is not in d->coef yet into the picture.
static inline void reconstruct(M4vBlockDecoder* d, int dc, unsigned width, unsigned height,
                               M4vTarget target) {
    if (width == 1 && height == 1) {
        d->coef[0] = 0;
        fill(dc, target);
        return;
    }
    d->coef[0] = static_cast<int16_t>(dc);
    d->idct(target.samples, target.pitch, d->coef, width, height);
}

// Rounds halves away from zero, as // does in 14496-2.
static int divide_rounded(int a, int b) { return (a < 0 ? a - b / 2 : a + b / 2) / b; }

// 14496-2 table 7-1, with the reciprocal that makes a division of a multiplication: exact for
// |dc| <= 2048.
struct DcScaler {
    uint16_t scaler;      // 8 to 46
    uint32_t reciprocal;  // 2^20 / scaler, rounded up
};
static constexpr struct DcScalers {
    DcScaler of[2][32];  // luma and chroma, by quantiser
    constexpr DcScalers() : of() {
        for (unsigned quant = 1; quant < 32; ++quant) {
            of[0][quant] = scaler(quant < 5    ? 8
                                  : quant < 9  ? 2 * quant
                                  : quant < 25 ? quant + 8
                                               : 2 * quant - 16);
            of[1][quant] = scaler(quant < 5 ? 8 : quant < 25 ? (quant + 13) / 2 : quant - 6);
        }
    }
    static constexpr DcScaler scaler(unsigned s) {
        return {static_cast<uint16_t>(s), ((1u << 20) + s - 1) / s};
    }
} kDcScalers;

// F // scaler for the predicted DC.
static int scale_dc(int dc, const DcScaler& by) {
    const uint32_t magnitude = static_cast<uint32_t>(abs(dc) + by.scaler / 2);
    const int quotient = static_cast<int>(magnitude * by.reciprocal >> 20);
    return dc < 0 ? -quotient : quotient;
}

struct Extent {
    unsigned width;
    unsigned height;

    void include(unsigned reach, bool is_row) {
        if (is_row && width < reach) width = reach;
        if (!is_row && height < reach) height = reach;
    }
};

// 14496-2 7.4.3.3: adds the neighbour's first row (from above) or column to that of the block.
// Returns how many coefficients of it there are up to the last one that it came to, at least one.
template <Method kMethod>
static unsigned predict_ac(M4vBlockDecoder* d, const M4vBlockEdge& from, int from_quant,
                           bool from_above, M4vBlockEdge* edge) {
    const Dequantiser q = make_dequantiser(*d);
    unsigned reach = 1;
    for (unsigned i = 1; i < 8; ++i) {
        const unsigned slot = from_above ? 8 + i : i;
        int prediction = from.slot[slot];
        if (prediction == 0) continue;
        if (from_quant != d->quant) {
            prediction = divide_rounded(prediction * from_quant, d->quant);
        }
        const int level = clip_coef(edge->slot[slot] + prediction);
        const unsigned position = from_above ? m4v_position(i, 0) : m4v_position(0, i);
        const int coef = level == 0 ? 0 : clip_coef(dequantise<kMethod>(q, level, position));
        d->coef[position] = static_cast<int16_t>(coef);
        edge->slot[slot] = static_cast<int16_t>(level);
        reach = i + 1;
    }
    return reach;
}

static bool is_sum_even(const M4vBlockDecoder& d, int dc) {
    int parity = dc;
    for (unsigned i = 1; i < 64; ++i) parity ^= d.coef[i];
    return (parity & 1) == 0;
}

template <Method kMethod>
static inline int decode_intra_block(M4vBlockDecoder* d, const M4vIntraMb& mb, unsigned n,
                                     bool is_coded, M4vTarget target) {
    const M4vBlockEdge& left = *mb.near.of[n].left;
    const M4vBlockEdge& above = *mb.near.of[n].above;
    const int corner_dc = mb.near.of[n].corner->slot[0];
    M4vBlockEdge* const edge = &mb.near.current->block[n];

    // 14496-2 7.4.3.1: predict across the direction of the smaller gradient.
    const bool from_above = abs(left.slot[0] - corner_dc) < abs(corner_dc - above.slot[0]);
    const M4vBlockEdge& from = from_above ? above : left;

    m4v_clear_edge(edge);
    int dc = 0;
    if (mb.dc_coding == M4vDcCoding::kOwn) {
        dc = m4v_read_dc_difference(&d->bits, n >= 4);
        if (dc == kM4vNoDc) return 1;
    } else if (mb.dc_coding == M4vDcCoding::kPartition) {
        dc = mb.dc_differences[n];
    }
    Extent extent = {1, 1};
    if (is_coded) {
        const M4vScan& scan = mb.fixed_scan ? *mb.fixed_scan
                              : from_above  ? kScanHorizontal
                                            : kScanVertical;
        const bool has_dc_event = mb.dc_coding == M4vDcCoding::kEvents;
        const int last = read_events<kMethod>(d, scan, has_dc_event ? -1 : 0, edge);
        if (last < 0) return 1;
        extent = {scan.width[last], scan.height[last]};
        if (has_dc_event) dc = edge->slot[0];
    }

    const DcScaler& scaler = kDcScalers.of[n >= 4][d->quant];
    dc = clip_coef(clip_coef(dc + scale_dc(from.slot[0], scaler)) * scaler.scaler);
    edge->slot[0] = static_cast<int16_t>(dc);

    if (mb.ac_pred_flag) {
        const M4vMbEdge* const mb_from = from_above ? mb.near.above : mb.near.left;
        const bool is_inside = n < 4 && (from_above ? n & 2 : n & 1);
        const int from_quant = is_inside ? d->quant : mb_from->quant;
        extent.include(predict_ac<kMethod>(d, from, from_quant, from_above, edge), from_above);
    }
    if (kMethod == Method::kMatrix && is_sum_even(*d, dc)) {
        d->coef[63] ^= 1;  // 14496-2 7.4.4.5, mismatch control
        extent = {8, 8};
    }
    reconstruct(d, dc, extent.width, extent.height, target);
    return 0;
}

template <Method kMethod>
[[gnu::noinline]] static int decode_intra_blocks(M4vBlockDecoder* d, const M4vIntraMb& mb,
                                                 unsigned cbp, const M4vTarget targets[6]) {
    for (unsigned n = 0; n < 6; ++n) {
        if (decode_intra_block<kMethod>(d, mb, n, cbp >> (5 - n) & 1, targets[n])) return 1;
    }
    return 0;
}

int m4v_decode_intra_blocks(M4vBlockDecoder* d, const M4vIntraMb& mb, unsigned cbp,
                            const M4vTarget targets[6]) {
    if (d->matrix) return decode_intra_blocks<Method::kMatrix>(d, mb, cbp, targets);
    return decode_intra_blocks<Method::kH263>(d, mb, cbp, targets);
}

int m4v_decode_h263_block(M4vBlockDecoder* d, bool is_coded, M4vTarget target) {
    bits_refill(&d->bits);
    const unsigned code = bits_take(&d->bits, 8);
    const int dc = static_cast<int>(code == 255 ? 128 : code) * 8;
    int last = 0;
    if (is_coded) {
        last = read_h263_events(d);
        if (last < 0) return 1;
    }
    reconstruct(d, dc, kScanZigzag.width[last], kScanZigzag.height[last], target);
    return 0;
}

// H.263 I.3: the DC is made odd and clamped to what samples can need.
static int oddify_dc(int dc) { return clip3(0, 2047, dc | 1); }

// As predict_ac.
static unsigned predict_aic_ac(M4vBlockDecoder* d, const M4vBlockEdge& from, bool from_above,
                               M4vBlockEdge* edge) {
    unsigned reach = 1;
    for (unsigned i = 1; i < 8; ++i) {
        const unsigned slot = from_above ? 8 + i : i;
        if (from.slot[slot] == 0) continue;
        const int coef = clip_coef(edge->slot[slot] + from.slot[slot]);
        d->coef[from_above ? m4v_position(i, 0) : m4v_position(0, i)] = static_cast<int16_t>(coef);
        edge->slot[slot] = static_cast<int16_t>(coef);
        reach = i + 1;
    }
    return reach;
}

static int predict_aic_dc(const M4vNeighbours& near, M4vAicMode mode, unsigned n) {
    const int left = near.of[n].left->slot[0];
    const int above = near.of[n].above->slot[0];
    if (mode == M4vAicMode::kVertical) return above;
    if (mode == M4vAicMode::kHorizontal) return left;
    if (!near.has_left_of(n)) return above;
    return near.has_above_of(n) ? (left + above) / 2 : left;
}

int m4v_decode_aic_block(M4vBlockDecoder* d, const M4vNeighbours& near, M4vAicMode mode, unsigned n,
                         bool is_coded, M4vTarget target) {
    static const M4vScan* const kScans[3] = {&kScanZigzag, &kScanHorizontal, &kScanVertical};
    M4vBlockEdge* const edge = &near.current->block[n];
    m4v_clear_edge(edge);
    Extent extent = {1, 1};
    if (is_coded) {
        const M4vScan& scan = *kScans[static_cast<unsigned>(mode)];
        const int last = read_events<Method::kAic>(d, scan, -1, edge);
        if (last < 0) return 1;
        extent = {scan.width[last], scan.height[last]};
    }
    const int dc = oddify_dc(edge->slot[0] + predict_aic_dc(near, mode, n));
    edge->slot[0] = static_cast<int16_t>(dc);
    if (mode != M4vAicMode::kDcOnly) {
        const bool from_above = mode == M4vAicMode::kVertical;
        const M4vBlockEdge& from = *(from_above ? near.of[n].above : near.of[n].left);
        extent.include(predict_aic_ac(d, from, from_above, edge), from_above);
    }
    reconstruct(d, dc, extent.width, extent.height, target);
    return 0;
}
