// SPDX-License-Identifier: BSD-2-Clause
// The arithmetic decoding engine (H.264 9.3.1.2, 9.3.3.2).
//
// value holds codIOffset in its top bits and, below it, lookahead bits that were loaded already.
// The last of them is followed by a 1, which tells by where it stands how many there are: the
// stream is touched once in several decisions, and nothing is counted.
#pragma once

#include <stdint.h>

#include <array>
#include <bit>

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
    BitWord value;      // codIOffset in the top 9 bits, then lookahead bits, a 1, and zeros
    BitWord range;      // codIRange, 256 to 510 between decisions, in the top 9 bits
    CabacBytes* bytes;  // not owned
};

// The place of the lowest bit of codIRange and codIOffset.
constexpr int kCabacUnit = kBitWordSize - 9;

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
// of an index and then of what it stands for would be waited for. Its states, 16 bits from
// kCabacStatesShift up, are pStateIdx * 2 + valMPS after an MPS (Table 9-45), of which the lowest
// bit is valMPS now as well, and above it after an LPS. Its LPS ranges (H.264 Table 9-44) lie so
// that a shift by 8 * qCodIRangeIdx brings the right one to kCabacUnit: one below the other in what
// the states leave of 64 bits, and in the lower 32 bits, which are rotated, where that is a word.
using CabacContext = uint64_t;
constexpr int kCabacStatesShift = kBitWordSize == 64 ? 0 : 32;

// By pStateIdx * 2 + valMPS.
extern const std::array<CabacContext, 128> kCabacContextOf;

// The (m, n) pairs of the I slice column (H.264 Tables 9-12 to 9-33), in the order of the groups.
extern const int8_t kCabacInitI[kCabacContexts][2];

// What fields have instead for the significance maps: kCtxSignificant and kCtxLast, and those of
// 8x8 blocks (Tables 9-22 to 9-24, 9-26 to 9-30; ctxIdx 277 to 398, 436 to 459).
extern const int8_t kCabacInitField[kCtxAbsLevel - kCtxSignificant][2];
extern const int8_t kCabacInitField8x8[kCtxAbsLevel8x8 - kCtxSignificant8x8][2];

// Bytes are loaded this many bits at a time, as soon as the 1 has left the lower half of value.
// Then at least 7 bits of lookahead are there, of which a decision uses up at most 6: the smallest
// LPS range is 6.
constexpr int kCabacRefillBits = kBitWordSize / 2;

// The next kCabacRefillBits, of which the bytes may not have all.
BitWord cabac_bits_near_end(CabacBytes* bytes);

// Adds kCabacRefillBits of lookahead.
[[gnu::always_inline]] inline void cabac_refill(CabacEngine* e) {
    CabacBytes* const bytes = e->bytes;
    const uint8_t* const next = bytes->next;
    BitWord bits;
    if (bytes->end - next < 4) [[unlikely]] {
        bits = cabac_bits_near_end(bytes);
    } else {
        bytes->next = next + kCabacRefillBits / 8;
        bits = kCabacRefillBits == 32 ? load_be32(next) : load_be16(next);
    }
    // The bits take the place of the 1, which comes after them.
    const int end = std::countr_zero(e->value);
    e->value += (2 * bits + 1 - (BitWord{1} << kCabacRefillBits)) << (end - kCabacRefillBits);
}

[[gnu::always_inline]] inline void cabac_keep_lookahead(CabacEngine* e) {
    // A test of a register of 32 bits, or a shift of one.
    const auto lower_half = static_cast<uint32_t>(kBitWordSize == 64 ? e->value : e->value << 16);
    if (lower_half == 0) [[unlikely]]
        cabac_refill(e);
}

// What normalises a range that is not 0.
[[gnu::always_inline]] inline int cabac_shift(BitWord range) {
    if constexpr (kBitWordSize == 64) return __builtin_clzll(range);
    return __builtin_clz(static_cast<uint32_t>(range));
}

// The outcomes of a decision before it is known which comes true.
struct CabacChoice {
    uint32_t states;
    BitWord lps_range;
    BitWord mps_range;  // value below it means MPS

    uint32_t mps() const { return states & 1; }
    CabacContext after_mps() const { return kCabacContextOf[states & 0xff]; }
    CabacContext after_lps() const { return kCabacContextOf[states >> 8 & 0xff]; }
};

[[gnu::always_inline]] inline CabacChoice cabac_choice(const CabacEngine* e, CabacContext context) {
    constexpr BitWord kMask = BitWord{0xff} << kCabacUnit;
    // 8 * qCodIRangeIdx
    const int by = static_cast<int>(e->range >> (kBitWordSize - 6) & 24);
    const auto rows = static_cast<BitWord>(context);
    const BitWord lps_range = (kBitWordSize == 64 ? rows << by : std::rotr(rows, by)) & kMask;
    return {static_cast<uint32_t>(context >> kCabacStatesShift), lps_range, e->range - lps_range};
}

// Makes the top bit of a range 1 again.
[[gnu::always_inline]] inline void cabac_normalise(CabacEngine* e, BitWord range, int shift) {
    e->range = range << shift;
    e->value <<= shift;
    cabac_keep_lookahead(e);
}

// Decodes one bin and updates its context, for callers that do not branch on the bin: no branch
// here either.
[[gnu::always_inline]] inline uint32_t cabac_decode_decision(CabacEngine* e,
                                                             CabacContext* context) {
    const CabacChoice c = cabac_choice(e, *context);
    const BitWord is_mps = -static_cast<BitWord>(e->value < c.mps_range);  // all ones or 0
    e->value -= c.mps_range & ~is_mps;
    const BitWord range = c.lps_range ^ ((c.mps_range ^ c.lps_range) & is_mps);
    *context = kCabacContextOf[c.states >> (~is_mps & 8) & 0xff];
    cabac_normalise(e, range, cabac_shift(range));
    return c.mps() ^ (~static_cast<uint32_t>(is_mps) & 1);
}

// The same for callers that branch on the bin: it branches itself, so that what follows an MPS need
// not wait for the comparison.
[[gnu::always_inline]] inline bool cabac_decode_branch(CabacEngine* e, CabacContext* context) {
    const CabacChoice c = cabac_choice(e, *context);
    if (e->value < c.mps_range) [[likely]] {
        *context = c.after_mps();
        // An LPS range is at most half the range: one bit is enough to normalise what it leaves.
        cabac_normalise(e, c.mps_range, static_cast<int>(c.mps_range >> (kBitWordSize - 1) ^ 1));
        return c.mps();
    }
    *context = c.after_lps();
    e->value -= c.mps_range;
    cabac_normalise(e, c.lps_range, cabac_shift(c.lps_range));
    return !c.mps();
}

// Decodes one bin of equal probabilities (H.264 9.3.3.2.3).
[[gnu::always_inline]] inline uint32_t cabac_decode_bypass(CabacEngine* e) {
    const BitWord threshold = e->range >> 1;
    // Less than half of all values away from 0: its top bit is a sign.
    const BitWord rest = e->value - threshold;
    const BitWord is_zero = static_cast<BitWord>(static_cast<intptr_t>(rest) >> (kBitWordSize - 1));
    e->value = (rest + (threshold & is_zero)) << 1;
    cabac_keep_lookahead(e);
    return static_cast<uint32_t>(is_zero + 1);
}

// Decodes the terminating bin (H.264 9.3.3.2.2.3). Returns 1 when it is 0: the slice goes on.
[[gnu::always_inline]] inline int cabac_decode_terminate(CabacEngine* e) {
    e->range -= BitWord{2} << kCabacUnit;
    if (e->value >= e->range) return 0;
    cabac_normalise(e, e->range, static_cast<int>(e->range >> (kBitWordSize - 1) ^ 1));
    return 1;
}

// Bits from start to the end of codIOffset: where I_PCM samples follow after alignment, and never
// more than the slice has bits unless data is missing.
inline size_t cabac_position(const CabacEngine* e, const uint8_t* start) {
    const int lookahead = kCabacUnit - 1 - std::countr_zero(e->value);
    return static_cast<size_t>(e->bytes->next - start) * 8 + e->bytes->padding_bits -
           static_cast<size_t>(lookahead);
}

// Sets count contexts from their (m, n) pairs (H.264 9.3.1.1). slice_qp is not clamped.
void cabac_init_contexts(const int8_t (*pairs)[2], CabacContext* contexts, int32_t slice_qp,
                         int count);

// Starts the engine at the first byte, and makes the bytes its own.
void cabac_start(CabacEngine* e, CabacBytes* bytes);
