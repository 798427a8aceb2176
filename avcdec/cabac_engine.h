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

struct AvcDecoder;

struct CabacEngine {
    BitWord value;        // codIOffset << lookahead | the next lookahead bits
    uint32_t range;       // codIRange, 256 to 510 between decisions
    int lookahead;        // at least kCabacMinLookahead between decisions
    const uint8_t* next;  // the next byte to load
    const uint8_t* end;   // one past the last byte; zeros are read behind it
    size_t padding_bits;  // zero bits supplied behind the end
};

// The context variables of I slices by syntax element, pStateIdx * 2 + valMPS each.
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

// What a decision needs to know of a context variable: the LPS ranges (H.264 Table 9-44) of its
// state by qCodIRangeIdx in 16 bits each from the lowest up, the range and, in the upper byte, the
// shift that normalises it.
extern const std::array<uint64_t, 128> kCabacLps;

// The context variable after an LPS (first 128) and after an MPS (last 128; Table 9-45).
extern const std::array<uint8_t, 256> kCabacNext;

// The (m, n) pairs of the I slice column (H.264 Tables 9-12 to 9-33), in the order of the groups.
extern const int8_t kCabacInitI[kCabacContexts][2];

// A decision uses up at most 6 bits: the smallest LPS range is 6. A refill makes sure of one more.
constexpr int kCabacMinLookahead = 7;

// Bytes are loaded this many bits at a time. 9 bits of codIOffset, the lookahead of up to
// kCabacMinLookahead - 1 bits and the new bits leave the top bit of a BitWord free for a sign.
constexpr int kCabacRefillBits = kBitWordSize == 64 ? 48 : 16;
static_assert(9 + kCabacMinLookahead - 1 + kCabacRefillBits < kBitWordSize);

void cabac_refill_near_end(CabacEngine* e);

// Adds kCabacRefillBits of lookahead.
inline void cabac_refill(CabacEngine* e) {
    if (e->end - e->next >= 8) {
        if constexpr (kBitWordSize == 64) {
            e->value = e->value << kCabacRefillBits |
                       static_cast<BitWord>(load_be64(e->next) >> (64 - kCabacRefillBits));
        } else {
            e->value = e->value << kCabacRefillBits | load_be16(e->next);
        }
        e->next += kCabacRefillBits / 8;
        e->lookahead += kCabacRefillBits;
    } else {
        CabacEngine copy = *e;  // the engine itself stays in registers
        cabac_refill_near_end(&copy);
        *e = copy;
    }
}

inline void cabac_keep_lookahead(CabacEngine* e) {
    if (e->lookahead < kCabacMinLookahead) cabac_refill(e);
}

// The outcomes of a decision before it is known which comes true.
struct CabacChoice {
    uint32_t mps_range;
    uint32_t mps_shift;  // that normalises it, 0 or 1
    uint32_t lps_range;
    uint32_t lps_shift;
    BitWord threshold;  // codIOffset below it means MPS
};

[[gnu::always_inline]] inline CabacChoice cabac_choice(const CabacEngine* e, uint64_t row) {
    const uint32_t entry = static_cast<uint32_t>(row >> (e->range >> 2 & 48));
    const uint32_t lps_range = entry & 0xff;
    const uint32_t mps_range = e->range - lps_range;
    return {mps_range, mps_range >> 8 ^ 1, lps_range, entry >> 8 & 7,
            static_cast<BitWord>(mps_range) << e->lookahead};
}

// Decides by a row of kCabacLps without a branch: all ones for the MPS, 0 for the LPS. Leaves the
// context and the lookahead to the caller.
[[gnu::always_inline]] inline BitWord cabac_decide(CabacEngine* e, uint64_t row) {
    const CabacChoice c = cabac_choice(e, row);
    const BitWord rest = e->value - c.threshold;
    const BitWord mps = static_cast<BitWord>(static_cast<intptr_t>(rest) >> (kBitWordSize - 1));
    // Both outcomes are normalised before the choice, off the path of the comparison.
    const uint32_t choice = static_cast<uint32_t>(mps);
    const uint32_t mps_next = c.mps_range << c.mps_shift;
    const uint32_t lps_next = c.lps_range << c.lps_shift;
    e->value = rest + (c.threshold & mps);
    e->range = lps_next ^ ((mps_next ^ lps_next) & choice);
    e->lookahead -= static_cast<int>(c.lps_shift ^ ((c.mps_shift ^ c.lps_shift) & choice));
    return mps;
}

// Decodes one bin and updates its context, for callers that do not branch on the bin.
inline uint32_t cabac_decode_decision(CabacEngine* e, uint8_t* context) {
    const uint32_t variable = *context;
    const BitWord mps = cabac_decide(e, kCabacLps[variable]);
    *context = kCabacNext[variable + (mps & 128)];
    cabac_keep_lookahead(e);
    return (variable ^ ~static_cast<uint32_t>(mps)) & 1;
}

// The same for callers that branch on the bin: it branches itself, so that what follows an MPS need
// not wait for the comparison.
[[gnu::always_inline]] inline bool cabac_decode_branch(CabacEngine* e, uint8_t* context) {
    const uint32_t variable = *context;
    const CabacChoice c = cabac_choice(e, kCabacLps[variable]);
    if (e->value < c.threshold) [[likely]] {
        e->range = c.mps_range << c.mps_shift;
        e->lookahead -= static_cast<int>(c.mps_shift);
        *context = kCabacNext[variable + 128];
        cabac_keep_lookahead(e);
        return variable & 1;
    }
    e->value -= c.threshold;
    e->range = c.lps_range << c.lps_shift;
    e->lookahead -= static_cast<int>(c.lps_shift);
    *context = kCabacNext[variable];
    cabac_keep_lookahead(e);
    return !(variable & 1);
}

// Decodes one bin of equal probabilities (H.264 9.3.3.2.3).
inline uint32_t cabac_decode_bypass(CabacEngine* e) {
    e->lookahead -= 1;
    const BitWord threshold = static_cast<BitWord>(e->range) << e->lookahead;
    const BitWord rest = e->value - threshold;
    const BitWord is_zero = static_cast<BitWord>(static_cast<intptr_t>(rest) >> (kBitWordSize - 1));
    e->value = rest + (threshold & is_zero);
    cabac_keep_lookahead(e);
    return static_cast<uint32_t>(is_zero + 1);
}

// Decodes count bins with the contexts of the list, the first bin in the highest position; 0
// without effect when count is below 1.
uint32_t cabac_decode_decisions(CabacEngine* e, uint8_t* const* contexts, int count);

// Decodes the terminating bin (H.264 9.3.3.2.2.3). Returns 1 when it is 0: the slice goes on.
inline int cabac_decode_terminate(CabacEngine* e) {
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
    return static_cast<size_t>(e->next - start) * 8 + e->padding_bits -
           static_cast<size_t>(e->lookahead);
}

// Sets count contexts from their (m, n) pairs (H.264 9.3.1.1). slice_qp is not clamped.
void cabac_init_contexts(const int8_t (*pairs)[2], uint8_t* contexts, int32_t slice_qp, int count);

// Starts the engine at data, which ends before end.
void cabac_start(CabacEngine* e, const uint8_t* data, const uint8_t* end);

// Starts the engine at the byte on which the decoder's bit reader stands, without moving it.
void cabac_init_engine(AvcDecoder* decoder);

// The same, and the contexts of the slice.
void cabac_init_slice(AvcDecoder* decoder);
