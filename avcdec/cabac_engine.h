// SPDX-License-Identifier: BSD-2-Clause
// The arithmetic decoding engine (H.264 9.3.1.2, 9.3.3.2).
//
// value holds codIOffset and, below it, lookahead bits that were loaded already; codIRange is
// compared shifted up by their number. A decision therefore moves no bits, it only lowers that
// number, and the stream is touched once in several decisions. No decision branches on its bin.
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

// What a decision needs to know of a context variable. The LPS ranges (H.264 Table 9-44) of its
// state by qCodIRangeIdx are in 16 bits each from the lowest up: the range and, in the upper byte,
// the shift that normalises it.
extern const std::array<uint64_t, 128> kCabacLps;
// The context variable after an LPS in the low, and after an MPS in the high byte (Table 9-45).
extern const std::array<uint16_t, 128> kCabacNext;

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

// Decodes one bin and updates its context.
inline uint32_t cabac_decode_decision(CabacEngine* e, uint8_t* context) {
    const uint32_t variable = *context;
    const uint32_t lps_entry = static_cast<uint32_t>(kCabacLps[variable] >> (e->range >> 2 & 48));
    const uint32_t lps_range = lps_entry & 0xff;
    const uint32_t mps_range = e->range - lps_range;
    const BitWord threshold = static_cast<BitWord>(mps_range) << e->lookahead;
    const intptr_t rest = static_cast<intptr_t>(e->value - threshold);
    const BitWord mps = BitWord{0} - static_cast<BitWord>(e->value < threshold);  // all ones, or 0

    // Both outcomes are normalised before the choice, off the path of the comparison.
    const uint32_t choice = static_cast<uint32_t>(mps);
    const uint32_t mps_shift = mps_range >> 8 ^ 1;
    const uint32_t lps_shift = lps_entry >> 8 & 7;
    const uint32_t mps_next = mps_range << mps_shift;
    const uint32_t lps_next = lps_range << lps_shift;
    e->value -= threshold & ~mps;
    e->range = lps_next ^ ((mps_next ^ lps_next) & choice);
    e->lookahead -= static_cast<int>(lps_shift ^ ((mps_shift ^ lps_shift) & choice));
    *context = static_cast<uint8_t>(kCabacNext[variable] >> (choice & 8));
    if (e->lookahead < kCabacMinLookahead) cabac_refill(e);
    // The bin as a sign, which a branch tests at once: below 0 for an MPS of 1 and an LPS of 0.
    const intptr_t flip = static_cast<intptr_t>(variable & 1) - 1;
    return static_cast<uint32_t>(static_cast<BitWord>(rest ^ flip) >> (kBitWordSize - 1));
}

// Decodes one bin of equal probabilities (H.264 9.3.3.2.3).
inline uint32_t cabac_decode_bypass(CabacEngine* e) {
    using SignedWord = intptr_t;
    e->lookahead -= 1;
    const BitWord threshold = static_cast<BitWord>(e->range) << e->lookahead;
    const BitWord rest = e->value - threshold;
    const BitWord is_zero =
        static_cast<BitWord>(static_cast<SignedWord>(rest) >> (kBitWordSize - 1));
    e->value = rest + (threshold & is_zero);
    if (e->lookahead < kCabacMinLookahead) cabac_refill(e);
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
        if (e->lookahead < kCabacMinLookahead) cabac_refill(e);
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
