// SPDX-License-Identifier: BSD-2-Clause
// Variable length codes of intra macroblocks (ISO/IEC 14496-2 Annex B; H.263 5.3, 5.4, Annex I),
// as tables that give a symbol per lookup.
#pragma once

#include <stdint.h>

#include "runtime/bits.h"

// --- Transform coefficients -----------------------------------------------------------------

// One event, the sign bit included in code and level. A word, so that one load brings it.
class TcoefEntry {
 public:
    constexpr TcoefEntry() = default;
    constexpr TcoefEntry(int level, unsigned step, unsigned length)
        : word(step << 24 | (static_cast<unsigned>(level) & 0xffff) << 8 | length) {}

    // Signed, 16 bits; for kTcoefLong the first of a group in `secondary`.
    constexpr int level() const { return static_cast<int>(word << 8) >> 16; }
    // run + 1, + kTcoefLast on the last event of the block, or a kTcoef... below
    constexpr unsigned step() const { return word >> 24; }
    // Bits of the code and the sign, 0 when invalid.
    constexpr int length() const { return static_cast<int>(word & 255); }

 private:
    uint32_t word = 0;
};
constexpr unsigned kTcoefLast = 128;
constexpr unsigned kTcoefLong = 253;     // longer than the primary table's index: see `secondary`
constexpr unsigned kTcoefEscape = 254;   // the escape code itself, without what follows; of length
                                         // 0 for any code beyond kTcoefPrimaryBits of kReversible
constexpr unsigned kTcoefInvalid = 255;  // no such code

// Two events whose codes follow each other, the first not being the last one, or a single entry.
class TcoefPair {
 public:
    constexpr TcoefPair() = default;
    constexpr explicit TcoefPair(TcoefEntry entry)
        : word(entry.step() << 24 | low6(entry.level()) << 18 | low6(entry.level()) << 12 |
               static_cast<unsigned>(entry.length())) {}
    constexpr TcoefPair(TcoefEntry first, TcoefEntry second)
        : word((first.step() + second.step()) << 24 | low6(first.level()) << 18 |
               low6(second.level()) << 12 | (second.step() & kMostSecondStep) << 8 |
               static_cast<unsigned>(first.length() + second.length())) {}

    // As those of TcoefEntry, of both together.
    constexpr unsigned step() const { return word >> 24; }
    constexpr int length() const { return static_cast<int>(word & 255); }
    // Signed, 6 bits, like that of the second.
    constexpr int level() const { return static_cast<int>(word << 8) >> 26; }
    // Of a single entry the same level, and a step of 0.
    constexpr int second_level() const { return static_cast<int>(word << 14) >> 26; }
    static constexpr unsigned kMostSecondStep = 15;  // besides kTcoefLast
    constexpr unsigned second_step() const { return word >> 8 & kMostSecondStep; }

    // The entry where it is single.
    constexpr TcoefEntry single() const { return {level(), step(), word & 255}; }

 private:
    static constexpr unsigned low6(int level) { return static_cast<unsigned>(level) & 63; }

    uint32_t word = 0;
};

constexpr unsigned kTcoefMostBits = 13;  // of a code
constexpr unsigned kTcoefPrimaryBits = 10;
constexpr unsigned kTcoefPairBits = 12;

enum class TcoefEscapes : uint8_t {
    kMpeg4,        // three kinds: level offset, run offset, fixed length with 12-bit levels
    kReversible,   // fixed length with 11-bit levels, closed by a second escape code
    kH263,         // fixed length with 8-bit levels
    kH263Extended  // the same, with 11 more bits after level -128 (Annex T)
};

struct TcoefTable {
    const TcoefEntry* primary;    // 1 << kTcoefPrimaryBits, indexed by the next bits
    const TcoefPair* pairs;       // 1 << kTcoefPairBits, instead of `primary`; H.263 only
    const TcoefEntry* secondary;  // groups, indexed by the rest of kTcoefMostBits; null for
                                  // kReversible
    const uint8_t* max_level[2];  // [last][run]: the highest level that has a code; kMpeg4 only
    const uint8_t* max_run[2];    // [last][level]: the highest run that has a code; kMpeg4 only
    TcoefEscapes escapes;
};

extern const TcoefTable kTcoefIntra;         // MPEG-4 B-16
extern const TcoefTable kTcoefReversible;    // MPEG-4 B-23, intra columns
extern const TcoefTable kTcoefH263;          // H.263 table 16
extern const TcoefTable kTcoefH263Extended;  // the same with Annex T escapes
extern const TcoefTable kTcoefAic;           // H.263 table I.2
extern const TcoefTable kTcoefAicExtended;   // the same with Annex T escapes

// The entry of the code that `bits`, the next ones from the top bit down, begin with, where the
// table that kIndexBits of them index has `entry` for it.
template <unsigned kIndexBits>
inline TcoefEntry m4v_whole_entry(BitWord bits, const TcoefTable& table, TcoefEntry entry) {
    if (entry.step() != kTcoefLong) return entry;
    constexpr unsigned kMask = (1u << (kTcoefMostBits - kIndexBits)) - 1;
    const BitWord code = bits >> (kBitWordSize - static_cast<int>(kTcoefMostBits));
    return table.secondary[static_cast<unsigned>(entry.level()) + (code & kMask)];
}

// Which code of kTcoefReversible the next 16 bits begin with.
TcoefEntry m4v_reversible_event(unsigned bits);

// The event after an entry of kTcoefEscape, with the length of all that follows it. The step is
// kTcoefInvalid when the event is not valid, or that of the entry is.
//   bits   those after the entry from the top bit down, kTcoefEscapedBits of them at least
constexpr int kTcoefEscapedBits = 26;
TcoefEntry m4v_escaped_event(BitWord bits, const TcoefTable& table, TcoefEntry entry);

// --- Macroblock headers and DC --------------------------------------------------------------

struct ShortCode {
    uint8_t value;
    uint8_t length;  // 0 when invalid
};

constexpr unsigned kMcbpcBits = 6;   // the stuffing code (0000 0000 1) is not in the table
constexpr unsigned kMcbpcQuant = 4;  // bit of the value: DQUANT follows; bits 1, 0: Cb, Cr coded
constexpr unsigned kMcbpcStuffing = 8;
constexpr unsigned kMcbpcInvalid = 16;
extern const ShortCode kMcbpcIntra[1 << kMcbpcBits];

constexpr unsigned kCbpyBits = 6;
extern const ShortCode kCbpyIntra[1 << kCbpyBits];  // value: block 0 at bit 3

// Returns a combination of the kMcbpc... bits. 15 more can be taken without a refill.
inline unsigned m4v_read_mcbpc(BitReader* bits) {
    bits_refill(bits);
    const ShortCode code = kMcbpcIntra[bits_cached(bits, kMcbpcBits)];
    if (code.length != 0) {
        bits_drop(bits, code.length);
        return code.value;
    }
    return bits_take(bits, 9) == 1 ? kMcbpcStuffing : kMcbpcInvalid;
}

// Returns the four luma bits, above 15 for an invalid code.
inline unsigned m4v_read_cbpy(BitReader* bits) {
    bits_refill(bits);
    const ShortCode code = kCbpyIntra[bits_cached(bits, kCbpyBits)];
    bits_drop(bits, code.length);
    return code.value;
}

// dct_dc_size and dct_dc_differential of one block (MPEG-4 B-13, B-14) in one.
struct M4vDcEntry {
    int16_t value : 8;
    uint16_t length : 8;  // of both codes together, 0 when longer than the index
};
constexpr unsigned kM4vDcBits = 9;
extern const M4vDcEntry* const kM4vDcDifference[2];  // luma, chroma

constexpr int kM4vNoDc = 1 << 16;  // for a code that is not valid

int m4v_read_long_dc_difference(BitReader* bits, bool is_chroma);

// Returns the difference, or kM4vNoDc.
[[nodiscard]] inline int m4v_read_dc_difference(BitReader* bits, bool is_chroma) {
    bits_need(bits, kM4vDcBits);
    const M4vDcEntry entry = kM4vDcDifference[is_chroma][bits_cached(bits, kM4vDcBits)];
    if (entry.length == 0) [[unlikely]] {
        return m4v_read_long_dc_difference(bits, is_chroma);
    }
    bits_drop(bits, entry.length);
    return entry.value;
}
