// SPDX-License-Identifier: BSD-2-Clause
// The arithmetic decoding engine (H.264 9.3.1.2, 9.3.3.2).
//
// Instead of codIOffset the engine holds how far codIRange is above it. An MPS takes the range of
// the LPS off that distance, and an LPS is what the distance is too short for and leaves alone: one
// subtraction decides.
//
// Below codIOffset come lookahead bits that were loaded already. The last of them is followed by a
// 1, which tells by where it stands how many there are: the stream is touched once in several
// decisions, and nothing is counted. The distance has its lowest 1 at the same place.
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
    BitWord distance;   // codIRange - codIOffset, as far as its bits are loaded
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
// bit is valMPS now as well, and above it after an LPS. Above them are 4 bits for each
// qCodIRangeIdx, how far to shift the LPS range to normalise it. Its LPS ranges (H.264 Table 9-44)
// lie so that a shift by 8 * qCodIRangeIdx brings the right one to kCabacUnit: one below the other
// in what is left of 64 bits, and in the lower 32 bits, which are rotated, where that is a word.
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

// Bytes are loaded this many bits at a time, as soon as the 1 has left the lower half of a word.
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
    const int end = kBitWordSize == 64 ? __builtin_ctzll(e->distance)
                                       : __builtin_ctz(static_cast<uint32_t>(e->distance));
    e->distance -= (2 * bits + 1 - (BitWord{1} << kCabacRefillBits)) << (end - kCabacRefillBits);
}

[[gnu::always_inline]] inline void cabac_keep_lookahead(CabacEngine* e) {
    // A test of a register of 32 bits, or a shift of one.
    const auto lower_half =
        static_cast<uint32_t>(kBitWordSize == 64 ? e->distance : e->distance << 16);
    if (lower_half == 0) [[unlikely]]
        cabac_refill(e);
}

// What normalises a range that is not 0.
[[gnu::always_inline]] inline int cabac_shift(BitWord range) {
    if constexpr (kBitWordSize == 64) return __builtin_clzll(range);
    return __builtin_clz(static_cast<uint32_t>(range));
}

// A decision before it is known how it ends.
struct CabacChoice {
    uint32_t states;  // and shifts
    int by;           // 8 * qCodIRangeIdx
    BitWord lps_range;

    uint32_t mps() const { return states & 1; }
    CabacContext after_mps() const { return kCabacContextOf[states & 0xff]; }
    CabacContext after_lps() const { return kCabacContextOf[states >> 8 & 0xff]; }
    int lps_shift() const {
#if defined(__x86_64__)
        return static_cast<int>(states >> 16 >> by / 2 & 7);  // counting zeros may be slow
#else
        return cabac_shift(lps_range);
#endif
    }
};

[[gnu::always_inline]] inline CabacChoice cabac_choice(const CabacEngine* e, CabacContext context) {
    constexpr BitWord kMask = BitWord{0xff} << kCabacUnit;
    const int by = static_cast<int>(e->range >> (kBitWordSize - 6) & 24);
    const auto rows = static_cast<BitWord>(context);
    const BitWord lps_range = (kBitWordSize == 64 ? rows << by : std::rotr(rows, by)) & kMask;
    return {static_cast<uint32_t>(context >> kCabacStatesShift), by, lps_range};
}

// Makes the top bit of a range 1 again.
[[gnu::always_inline]] inline void cabac_normalise(CabacEngine* e, BitWord range, int shift) {
    e->range = range << shift;
    e->distance <<= shift;
    cabac_keep_lookahead(e);
}

// Makes the range that much smaller and normalises it. An LPS range is at most half the range: one
// bit is enough.
[[gnu::always_inline]] inline void cabac_narrow(CabacEngine* e, BitWord lps_range) {
#if defined(__x86_64__)
    // Compilers branch where a processor can hardly predict.
    const BitWord distance_twice = e->distance * 2;
    BitWord range_twice;
    asm("sub %[lps], %[range]\n\t"
        "lea (%[range], %[range]), %[range_twice]\n\t"
        "cmovns %[range_twice], %[range]\n\t"
        "cmovns %[distance_twice], %[distance]"
        : [range] "+r"(e->range), [distance] "+r"(e->distance), [range_twice] "=&r"(range_twice)
        : [lps] "r"(lps_range), [distance_twice] "r"(distance_twice)
        : "cc");
    cabac_keep_lookahead(e);
#else
    const BitWord range = e->range - lps_range;
    cabac_normalise(e, range, static_cast<int>(range >> (kBitWordSize - 1) ^ 1));
#endif
}

// Decodes one bin and updates its context, for callers that do not branch on the bin: no branch
// here either.
[[gnu::always_inline]] inline uint32_t cabac_decode_decision(CabacEngine* e,
                                                             CabacContext* context) {
    const CabacChoice c = cabac_choice(e, *context);
    const BitWord mps_range = e->range - c.lps_range;
    const BitWord is_mps = -static_cast<BitWord>(e->distance >= c.lps_range);  // all ones or 0
    e->distance -= c.lps_range & is_mps;
    const BitWord range = c.lps_range ^ ((mps_range ^ c.lps_range) & is_mps);
    *context = kCabacContextOf[c.states >> (~is_mps & 8) & 0xff];
    cabac_normalise(e, range, cabac_shift(range));
    return c.mps() ^ (~static_cast<uint32_t>(is_mps) & 1);
}

// Has the caller's branch on a bin behind each outcome of a decision, where the bin is easy to
// predict: compilers would let the outcomes meet first.
template <int kOutcome>
[[gnu::always_inline]] inline bool cabac_bin_of(uint32_t bin) {
    if (bin != 0) {
        asm volatile("" : : "i"(kOutcome));
        return true;
    }
    asm volatile("" : : "i"(kOutcome));
    return false;
}

// The same for callers that branch on the bin: it branches itself, so that what follows an MPS need
// not wait for the comparison.
[[gnu::always_inline]] inline bool cabac_decode_branch(CabacEngine* e, CabacContext* context) {
    const CabacChoice c = cabac_choice(e, *context);
    BitWord distance;
    if (!__builtin_sub_overflow(e->distance, c.lps_range, &distance)) [[likely]] {
        *context = c.after_mps();
        e->distance = distance;
        cabac_narrow(e, c.lps_range);
        return cabac_bin_of<0>(c.mps());
    }
    *context = c.after_lps();
    cabac_normalise(e, c.lps_range, c.lps_shift());
    return cabac_bin_of<1>(c.mps() ^ 1);
}

// Decodes one bin of equal probabilities (H.264 9.3.3.2.3).
[[gnu::always_inline]] inline uint32_t cabac_decode_bypass(CabacEngine* e) {
    const BitWord threshold = e->range >> 1;
    BitWord is_one;  // all ones or 0
#if defined(__x86_64__)
    BitWord rest = e->distance;
    asm("sub %[threshold], %[rest]\n\t"
        "cmovnc %[rest], %[distance]\n\t"
        "sbb %[is_one], %[is_one]"
        : [distance] "+r"(e->distance), [rest] "+r"(rest), [is_one] "=r"(is_one)
        : [threshold] "r"(threshold)
        : "cc");
    e->distance *= 2;
#else
    // Less than half of all values away from 0: its top bit is a sign.
    const BitWord rest = e->distance - threshold;
    is_one = static_cast<BitWord>(static_cast<intptr_t>(rest) >> (kBitWordSize - 1));
    e->distance = (rest + (threshold & is_one)) * 2;
#endif
    cabac_keep_lookahead(e);
    return static_cast<uint32_t>(-is_one);
}

// Decodes the terminating bin (H.264 9.3.3.2.2.3). Returns 1 when it is 0: the slice goes on.
[[gnu::always_inline]] inline int cabac_decode_terminate(CabacEngine* e) {
    constexpr BitWord kTwo = BitWord{2} << kCabacUnit;
    if (e->distance < kTwo) return 0;
    e->distance -= kTwo;
    cabac_narrow(e, kTwo);
    return 1;
}

// Bits from start to the end of codIOffset: where I_PCM samples follow after alignment, and never
// more than the slice has bits unless data is missing.
inline size_t cabac_position(const CabacEngine* e, const uint8_t* start) {
    const int lookahead = kCabacUnit - 1 - std::countr_zero(e->distance);
    return static_cast<size_t>(e->bytes->next - start) * 8 + e->bytes->padding_bits -
           static_cast<size_t>(lookahead);
}

// Sets count contexts from their (m, n) pairs (H.264 9.3.1.1). slice_qp is not clamped.
void cabac_init_contexts(const int8_t (*pairs)[2], CabacContext* contexts, int32_t slice_qp,
                         int count);

// Starts the engine at the first byte, and makes the bytes its own.
void cabac_start(CabacEngine* e, CabacBytes* bytes);
