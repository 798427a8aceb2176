// SPDX-License-Identifier: BSD-2-Clause
// The arithmetic decoding engine (H.264 9.3.1.2, 9.3.3.2).
//
// value holds codIOffset and, below it, lookahead bits that were loaded already; codIRange is
// compared shifted up by their number. A decision therefore moves no bits, it only lowers that
// number, and the stream is touched once in several decisions.
#pragma once

#include <stdint.h>

#include <array>

#include "avcdec/bit_reader.h"

// The bytes that an engine has not loaded yet.
struct CabacBytes {
    const uint8_t* next;  // the next byte to load
    const uint8_t* end;   // one past the last byte; zeros are read past it
    size_t padding_bits;  // zero bits supplied past the end
};

// Readers copy the engine into a local, whose address they hand to nothing that is not inlined, so
// that it stays in registers. The bytes are seldom asked for and stay where they are.
struct CabacEngine {
    BitWord value;      // codIOffset << lookahead | the next lookahead bits
    uint32_t range;     // codIRange, 256 to 510 between decisions
    int lookahead;      // at least kCabacMinLookahead between decisions
    CabacBytes* bytes;  // not owned
};

// The context variables of I slices by syntax element.
enum CabacContextGroup : uint16_t {
    kCtxMbType = 0,               // ctxIdx 3 to 10
    kCtxCodedBlockFlag = 8,       // 85 to 104
    kCtxSignificant = 28,         // 105 to 165
    kCtxLast = 89,                // 166 to 226
    kCtxAbsLevel = 150,           // 227 to 275
    kCtxCodedBlockPattern = 199,  // 73 to 84
    kCtxChromaMode = 211,         // 64 to 67
    kCtxQpDelta = 215,            // 60 to 63
    kCtxIntraMode = 219,          // 68, 69
    kCtxSignificant8x8 = 221,     // 402 to 416
    kCtxLast8x8 = 236,            // 417 to 425
    kCtxAbsLevel8x8 = 245,        // 426 to 435
    kCtxTransform8x8 = 255,       // 399 to 401
    kCabacContexts = 258,
};

// A context variable, as all that a decision needs to know of it: after a misprediction the load
// of an index and then of what it stands for would be waited for. In bytes from the lowest up: the
// LPS range (H.264 Table 9-44) for each qCodIRangeIdx from the lowest up, valMPS, nothing, and
// pStateIdx * 2 + valMPS after an LPS and after an MPS (Table 9-45).
using CabacContext = uint64_t;

// By pStateIdx * 2 + valMPS.
extern const std::array<CabacContext, 128> kCabacContextOf;

// The (m, n) pairs of the I slice column (H.264 Tables 9-12 to 9-33), in the order of the groups.
extern const int8_t kCabacInitI[kCabacContexts][2];

// A decision uses up at most 6 bits: the smallest LPS range is 6. A refill makes sure of one more.
constexpr int kCabacMinLookahead = 7;

// Bytes are loaded this many bits at a time. 9 bits of codIOffset, the lookahead of up to
// kCabacMinLookahead - 1 bits and the new bits leave the top bit of a BitWord free for a sign.
constexpr int kCabacRefillBits = kBitWordSize == 64 ? 48 : 16;
static_assert(9 + kCabacMinLookahead - 1 + kCabacRefillBits < kBitWordSize);

// Returns value with kCabacRefillBits more, of which the bytes may not have all.
BitWord cabac_refill_near_end(CabacBytes* bytes, BitWord value);

// Adds kCabacRefillBits of lookahead.
[[gnu::always_inline]] inline void cabac_refill(CabacEngine* e) {
    CabacBytes* const bytes = e->bytes;
    const uint8_t* const next = bytes->next;
    if (bytes->end - next < 8) [[unlikely]] {
        e->value = cabac_refill_near_end(bytes, e->value);
    } else {
        bytes->next = next + kCabacRefillBits / 8;
        if constexpr (kBitWordSize == 64) {
            e->value = e->value << kCabacRefillBits |
                       static_cast<BitWord>(load_be64(next) >> (64 - kCabacRefillBits));
        } else {
            e->value = e->value << kCabacRefillBits | load_be16(next);
        }
    }
    e->lookahead += kCabacRefillBits;
}

[[gnu::always_inline]] inline void cabac_keep_lookahead(CabacEngine* e) {
    if (e->lookahead < kCabacMinLookahead) [[unlikely]]
        cabac_refill(e);
}

// The outcomes of a decision before it is known which comes true.
struct CabacChoice {
    CabacContext context;
    uint32_t lps_range;
    uint32_t mps_range;
    BitWord threshold;  // codIOffset below it means MPS

    uint32_t mps() const { return static_cast<uint32_t>(context >> 32) & 1; }
    CabacContext after_lps() const { return kCabacContextOf[context >> 48 & 0xff]; }
    CabacContext after_mps() const { return kCabacContextOf[context >> 56]; }
};

// What normalises a range of 2 to 511.
[[gnu::always_inline]] inline int cabac_shift(uint32_t range) { return __builtin_clz(range) - 23; }

[[gnu::always_inline]] inline CabacChoice cabac_choice(const CabacEngine* e, CabacContext context) {
    const auto rows = static_cast<uint32_t>(context);
    const uint32_t lps_range = rows >> (e->range >> 3 & 24) & 0xff;
    const uint32_t mps_range = e->range - lps_range;
    return {context, lps_range, mps_range, static_cast<BitWord>(mps_range) << e->lookahead};
}

// Decodes one bin and updates its context, for callers that do not branch on the bin: no branch
// here either.
[[gnu::always_inline]] inline uint32_t cabac_decode_decision(CabacEngine* e,
                                                             CabacContext* context) {
    const CabacChoice c = cabac_choice(e, *context);
    const BitWord rest = e->value - c.threshold;
    // All ones for the MPS.
    const BitWord is_mps = static_cast<BitWord>(static_cast<intptr_t>(rest) >> (kBitWordSize - 1));
    const uint32_t mask = static_cast<uint32_t>(is_mps);
    const auto choose = [&](uint32_t mps, uint32_t lps) { return lps ^ ((mps ^ lps) & mask); };
    e->value = rest + (c.threshold & is_mps);
    const uint32_t range = choose(c.mps_range, c.lps_range);
    const int shift = cabac_shift(range);
    e->range = range << shift;
    e->lookahead -= shift;
    *context = kCabacContextOf[c.context >> (48 + (mask & 8)) & 0xff];
    cabac_keep_lookahead(e);
    return c.mps() ^ (~mask & 1);
}

// The same for callers that branch on the bin: it branches itself, so that what follows an MPS need
// not wait for the comparison.
[[gnu::always_inline]] inline bool cabac_decode_branch(CabacEngine* e, CabacContext* context) {
    const CabacChoice c = cabac_choice(e, *context);
    if (e->value < c.threshold) [[likely]] {
        // An LPS range is at most half the range: one bit is enough to normalise what it leaves.
        const uint32_t shift = c.mps_range >> 8 ^ 1;
        e->range = c.mps_range << shift;
        e->lookahead -= static_cast<int>(shift);
        *context = c.after_mps();
        cabac_keep_lookahead(e);
        return c.mps();
    }
    e->value -= c.threshold;
    const int shift = cabac_shift(c.lps_range);
    e->range = c.lps_range << shift;
    e->lookahead -= shift;
    *context = c.after_lps();
    cabac_keep_lookahead(e);
    return !c.mps();
}

// Decodes one bin of equal probabilities (H.264 9.3.3.2.3).
[[gnu::always_inline]] inline uint32_t cabac_decode_bypass(CabacEngine* e) {
    e->lookahead -= 1;
    const BitWord threshold = static_cast<BitWord>(e->range) << e->lookahead;
    const BitWord rest = e->value - threshold;
    const BitWord is_zero = static_cast<BitWord>(static_cast<intptr_t>(rest) >> (kBitWordSize - 1));
    e->value = rest + (threshold & is_zero);
    cabac_keep_lookahead(e);
    return static_cast<uint32_t>(is_zero + 1);
}

// Decodes the terminating bin (H.264 9.3.3.2.2.3). Returns 1 when it is 0: the slice goes on.
[[gnu::always_inline]] inline int cabac_decode_terminate(CabacEngine* e) {
    e->range -= 2;
    if (e->value >= static_cast<BitWord>(e->range) << e->lookahead) return 0;
    if (e->range < 256) {
        e->range <<= 1;
        e->lookahead -= 1;
        cabac_keep_lookahead(e);
    }
    return 1;
}

// Bits from start to the end of codIOffset: where I_PCM samples follow after alignment, and never
// more than the slice has bits unless data is missing.
inline size_t cabac_position(const CabacEngine* e, const uint8_t* start) {
    return static_cast<size_t>(e->bytes->next - start) * 8 + e->bytes->padding_bits -
           static_cast<size_t>(e->lookahead);
}

// Sets count contexts from their (m, n) pairs (H.264 9.3.1.1). slice_qp is not clamped.
void cabac_init_contexts(const int8_t (*pairs)[2], CabacContext* contexts, int32_t slice_qp,
                         int count);

// Starts the engine at the first byte, and makes the bytes its own.
void cabac_start(CabacEngine* e, CabacBytes* bytes);
