// SPDX-License-Identifier: BSD-2-Clause
// Code tables in the order of the standards, and the lookup tables that the compiler makes of them.
#include <algorithm>
#include <bit>
#include <iterator>

#include "m4vdec/m4v_vlc.h"

namespace {

struct Code {
    uint16_t bits;
    uint8_t length;  // without the sign
};

constexpr unsigned kRuns = 64;
constexpr unsigned kLevels = 32;

// The events of a table run by run: levels[last][run] is the number of levels, from 1 up, that
// have a code; codes stand in the order last, run, level.
struct Levels {
    uint8_t of[2][kRuns];
};

struct RunLimits {
    uint8_t of[2][kLevels];
};

constexpr RunLimits run_limits(const Levels& levels) {
    RunLimits limits{};
    for (unsigned last = 0; last < 2; ++last) {
        for (unsigned run = 0; run < kRuns; ++run) {
            for (unsigned level = 1; level <= levels.of[last][run]; ++level) {
                limits.of[last][level] = static_cast<uint8_t>(run);
            }
        }
    }
    return limits;
}

// The entries of all codes, for a table that kIndexBits index and one of the longer codes.
template <unsigned kIndexBits>
struct Lookup {
    static constexpr unsigned kRestBits = kTcoefMostBits - kIndexBits;
    static constexpr unsigned kGroups = kIndexBits == kTcoefPairBits ? 16 : 24;
    TcoefEntry primary[1 << kIndexBits];
    TcoefEntry secondary[kGroups << kRestBits];
    unsigned groups;

    constexpr Lookup() : primary(), secondary(), groups(0) {
        for (TcoefEntry& e : primary) e = {0, kTcoefInvalid, 0};
        for (TcoefEntry& e : secondary) e = {0, kTcoefInvalid, 0};
    }

    constexpr void add(unsigned code, unsigned length, int level, unsigned step) {
        const TcoefEntry entry(level, step, length);
        if (length <= kIndexBits) {
            const unsigned spare = kIndexBits - length;
            for (unsigned i = 0; i < 1u << spare; ++i) primary[code << spare | i] = entry;
            return;
        }
        TcoefEntry& link = primary[code >> (length - kIndexBits)];
        if (link.step() != kTcoefLong) {
            link = {static_cast<int>(groups << kRestBits), kTcoefLong, 0};
            ++groups;  // more than kGroups does not compile: the write below leaves the array
        }
        const unsigned spare = kTcoefMostBits - length;
        const unsigned low = (code << spare) & ((1u << kRestBits) - 1);
        for (unsigned i = 0; i < 1u << spare; ++i) {
            secondary[static_cast<unsigned>(link.level()) + low + i] = entry;
        }
    }

    constexpr void add_signed(Code code, unsigned last, unsigned run, unsigned level) {
        const unsigned step = run + 1 + (last ? kTcoefLast : 0);
        const int value = static_cast<int>(level);
        add(code.bits * 2u, code.length + 1u, value, step);
        add(code.bits * 2u + 1, code.length + 1u, -value, step);
    }
};

template <unsigned kIndexBits>
constexpr Lookup<kIndexBits> build(const Levels& levels, const Code* codes) {
    Lookup<kIndexBits> lookup;
    for (unsigned last = 0; last < 2; ++last) {
        for (unsigned run = 0; run < kRuns; ++run) {
            for (unsigned level = 1; level <= levels.of[last][run]; ++level) {
                lookup.add_signed(*codes++, last, run, level);
            }
        }
    }
    lookup.add(3, 7, 0, kTcoefEscape);
    return lookup;
}

// The same with two events in an entry where both codes fit.
struct PairLookup {
    TcoefPair pairs[1 << kTcoefPairBits];
    TcoefEntry secondary[std::size(Lookup<kTcoefPairBits>().secondary)];

    constexpr explicit PairLookup(const Lookup<kTcoefPairBits>& lookup) : pairs(), secondary() {
        for (unsigned bits = 0; bits < std::size(pairs); ++bits) pairs[bits] = pair(lookup, bits);
        std::copy(std::begin(lookup.secondary), std::end(lookup.secondary), secondary);
    }

    static constexpr TcoefPair pair(const Lookup<kTcoefPairBits>& lookup, unsigned bits) {
        const TcoefEntry first = lookup.primary[bits];
        if (first.step() >= kTcoefLast) return TcoefPair(first);
        const unsigned behind = bits << first.length() & ((1u << kTcoefPairBits) - 1);
        const TcoefEntry second = lookup.primary[behind];
        const bool is_event = second.step() < kTcoefLong;
        const bool is_near = (second.step() & (kTcoefLast - 1)) <= TcoefPair::kMostSecondStep;
        const bool fits = first.length() + second.length() <= static_cast<int>(kTcoefPairBits);
        return is_event && is_near && fits ? TcoefPair(first, second) : TcoefPair(first);
    }
};

// clang-format off

// ISO/IEC 14496-2 table B-16, intra columns.
constexpr Levels kIntraLevels = {{
    {27, 10, 5, 4, 3, 3, 3, 3, 2, 2, 1, 1, 1, 1, 1},
    {8, 3, 2, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
}};
constexpr Code kIntraCodes[102] = {
    // last 0, run 0
    {0x02, 2}, {0x06, 3}, {0x0f, 4}, {0x0d, 5}, {0x0c, 5}, {0x15, 6}, {0x13, 6}, {0x12, 6},
    {0x17, 7}, {0x1f, 8}, {0x1e, 8}, {0x1d, 8}, {0x25, 9}, {0x24, 9}, {0x23, 9}, {0x21, 9},
    {0x21, 10}, {0x20, 10}, {0x0f, 10}, {0x0e, 10}, {0x07, 11}, {0x06, 11}, {0x20, 11},
    {0x21, 11}, {0x50, 12}, {0x51, 12}, {0x52, 12},
    // run 1
    {0x0e, 4}, {0x14, 6}, {0x16, 7}, {0x1c, 8}, {0x20, 9}, {0x1f, 9}, {0x0d, 10}, {0x22, 11},
    {0x53, 12}, {0x55, 12},
    // runs 2 to 14
    {0x0b, 5}, {0x15, 7}, {0x1e, 9}, {0x0c, 10}, {0x56, 12},
    {0x11, 6}, {0x1b, 8}, {0x1d, 9}, {0x0b, 10},
    {0x10, 6}, {0x22, 9}, {0x0a, 10},
    {0x0d, 6}, {0x1c, 9}, {0x08, 10},
    {0x12, 7}, {0x1b, 9}, {0x54, 12},
    {0x14, 7}, {0x1a, 9}, {0x57, 12},
    {0x19, 8}, {0x09, 10},
    {0x18, 8}, {0x23, 11},
    {0x17, 8}, {0x19, 9}, {0x18, 9}, {0x07, 10}, {0x58, 12},
    // last 1, run 0
    {0x07, 4}, {0x0c, 6}, {0x16, 8}, {0x17, 9}, {0x06, 10}, {0x05, 11}, {0x04, 11}, {0x59, 12},
    // runs 1 to 20
    {0x0f, 6}, {0x16, 9}, {0x05, 10},
    {0x0e, 6}, {0x04, 10},
    {0x11, 7}, {0x24, 11},
    {0x10, 7}, {0x25, 11},
    {0x13, 7}, {0x5a, 12},
    {0x15, 8}, {0x5b, 12},
    {0x14, 8}, {0x13, 8}, {0x1a, 8}, {0x15, 9}, {0x14, 9}, {0x13, 9}, {0x12, 9}, {0x11, 9},
    {0x26, 11}, {0x27, 11}, {0x5c, 12}, {0x5d, 12}, {0x5e, 12}, {0x5f, 12},
};

// H.263 table 16, which is also MPEG-4 table B-17.
constexpr Levels kH263Levels = {{
    {12, 6, 4, 3, 3, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
    {3, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
     1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
}};
constexpr Code kH263Codes[102] = {
    // last 0, run 0
    {0x02, 2}, {0x0f, 4}, {0x15, 6}, {0x17, 7}, {0x1f, 8}, {0x25, 9}, {0x24, 9}, {0x21, 10},
    {0x20, 10}, {0x07, 11}, {0x06, 11}, {0x20, 11},
    // runs 1 to 26
    {0x06, 3}, {0x14, 6}, {0x1e, 8}, {0x0f, 10}, {0x21, 11}, {0x50, 12},
    {0x0e, 4}, {0x1d, 8}, {0x0e, 10}, {0x51, 12},
    {0x0d, 5}, {0x23, 9}, {0x0d, 10},
    {0x0c, 5}, {0x22, 9}, {0x52, 12},
    {0x0b, 5}, {0x0c, 10}, {0x53, 12},
    {0x13, 6}, {0x0b, 10}, {0x54, 12},
    {0x12, 6}, {0x0a, 10},
    {0x11, 6}, {0x09, 10},
    {0x10, 6}, {0x08, 10},
    {0x16, 7}, {0x55, 12},
    {0x15, 7}, {0x14, 7}, {0x1c, 8}, {0x1b, 8}, {0x21, 9}, {0x20, 9}, {0x1f, 9}, {0x1e, 9},
    {0x1d, 9}, {0x1c, 9}, {0x1b, 9}, {0x1a, 9}, {0x22, 11}, {0x23, 11}, {0x56, 12}, {0x57, 12},
    // last 1, run 0
    {0x07, 4}, {0x19, 9}, {0x05, 11},
    // runs 1 to 40
    {0x0f, 6}, {0x04, 11},
    {0x0e, 6}, {0x0d, 6}, {0x0c, 6}, {0x13, 7}, {0x12, 7}, {0x11, 7}, {0x10, 7}, {0x1a, 8},
    {0x19, 8}, {0x18, 8}, {0x17, 8}, {0x16, 8}, {0x15, 8}, {0x14, 8}, {0x13, 8}, {0x18, 9},
    {0x17, 9}, {0x16, 9}, {0x15, 9}, {0x14, 9}, {0x13, 9}, {0x12, 9}, {0x11, 9}, {0x07, 10},
    {0x06, 10}, {0x05, 10}, {0x04, 10}, {0x24, 11}, {0x25, 11}, {0x26, 11}, {0x27, 11},
    {0x58, 12}, {0x59, 12}, {0x5a, 12}, {0x5b, 12}, {0x5c, 12}, {0x5d, 12}, {0x5e, 12}, {0x5f, 12},
};

// H.263 table I.2.
constexpr Levels kAicLevels = {{
    {25, 7, 4, 4, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1},
    {10, 4, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
}};
constexpr Code kAicCodes[102] = {
    // last 0, run 0
    {0x02, 2}, {0x06, 3}, {0x0e, 4}, {0x0c, 5}, {0x0d, 5}, {0x10, 6}, {0x11, 6}, {0x12, 6},
    {0x16, 7}, {0x1b, 8}, {0x20, 9}, {0x21, 9}, {0x1a, 9}, {0x1b, 9}, {0x1c, 9}, {0x1d, 9},
    {0x1e, 9}, {0x1f, 9}, {0x23, 11}, {0x22, 11}, {0x57, 12}, {0x56, 12}, {0x55, 12}, {0x54, 12},
    {0x53, 12},
    // runs 1 to 13
    {0x0f, 4}, {0x14, 6}, {0x14, 7}, {0x1e, 8}, {0x0f, 10}, {0x21, 11}, {0x50, 12},
    {0x0b, 5}, {0x15, 7}, {0x0e, 10}, {0x09, 10},
    {0x15, 6}, {0x1d, 8}, {0x0d, 10}, {0x51, 12},
    {0x13, 6}, {0x23, 9}, {0x07, 11},
    {0x17, 7}, {0x22, 9}, {0x52, 12},
    {0x1c, 8}, {0x0c, 10},
    {0x1f, 8}, {0x0b, 10},
    {0x25, 9}, {0x0a, 10},
    {0x24, 9}, {0x06, 11},
    {0x21, 10}, {0x20, 10}, {0x08, 10}, {0x20, 11},
    // last 1, run 0
    {0x07, 4}, {0x0c, 6}, {0x10, 7}, {0x13, 8}, {0x11, 9}, {0x12, 9}, {0x04, 10}, {0x27, 11},
    {0x26, 11}, {0x5f, 12},
    // runs 1 to 23
    {0x0f, 6}, {0x13, 9}, {0x05, 10}, {0x25, 11},
    {0x0e, 6}, {0x14, 9}, {0x24, 11},
    {0x0d, 6}, {0x06, 10}, {0x5e, 12},
    {0x11, 7}, {0x07, 10},
    {0x13, 7}, {0x5d, 12},
    {0x12, 7}, {0x5c, 12},
    {0x14, 8}, {0x5b, 12},
    {0x15, 8}, {0x1a, 8}, {0x19, 8}, {0x18, 8}, {0x17, 8}, {0x16, 8}, {0x19, 9}, {0x15, 9},
    {0x16, 9}, {0x18, 9}, {0x17, 9}, {0x04, 11}, {0x05, 11}, {0x58, 12}, {0x59, 12}, {0x5a, 12},
};

// ISO/IEC 14496-2 table B-23, intra columns: {last, run, level} in the order of the codes.
constexpr uint8_t kReversibleEvents[169][3] = {
    {0, 0, 1}, {0, 0, 2}, {0, 1, 1}, {0, 0, 3}, {1, 0, 1}, {0, 2, 1}, {0, 3, 1}, {0, 1, 2},
    {0, 0, 4}, {1, 1, 1}, {1, 2, 1}, {0, 4, 1}, {0, 5, 1}, {0, 0, 5}, {0, 0, 6}, {1, 3, 1},
    {1, 4, 1}, {1, 5, 1}, {1, 6, 1}, {0, 6, 1}, {0, 7, 1}, {0, 2, 2}, {0, 1, 3}, {0, 0, 7},
    {1, 7, 1}, {1, 8, 1}, {1, 9, 1}, {1, 10, 1}, {1, 11, 1}, {0, 8, 1}, {0, 9, 1}, {0, 3, 2},
    {0, 4, 2}, {0, 1, 4}, {0, 1, 5}, {0, 0, 8}, {0, 0, 9}, {1, 0, 2}, {1, 12, 1}, {1, 13, 1},
    {1, 14, 1}, {0, 10, 1}, {0, 5, 2}, {0, 2, 3}, {0, 3, 3}, {0, 1, 6}, {0, 0, 10}, {0, 0, 11},
    {1, 1, 2}, {1, 15, 1}, {1, 16, 1}, {1, 17, 1}, {1, 18, 1}, {1, 19, 1}, {1, 20, 1}, {0, 11, 1},
    {0, 12, 1}, {0, 6, 2}, {0, 7, 2}, {0, 8, 2}, {0, 4, 3}, {0, 2, 4}, {0, 1, 7}, {0, 0, 12},
    {0, 0, 13}, {0, 0, 14}, {1, 21, 1}, {1, 22, 1}, {1, 23, 1}, {1, 24, 1}, {1, 25, 1}, {0, 13, 1},
    {0, 9, 2}, {0, 5, 3}, {0, 6, 3}, {0, 7, 3}, {0, 3, 4}, {0, 2, 5}, {0, 2, 6}, {0, 1, 8},
    {0, 1, 9}, {0, 0, 15}, {0, 0, 16}, {0, 0, 17}, {1, 0, 3}, {1, 2, 2}, {1, 26, 1}, {1, 27, 1},
    {1, 28, 1}, {0, 10, 2}, {0, 4, 4}, {0, 5, 4}, {0, 6, 4}, {0, 3, 5}, {0, 4, 5}, {0, 1, 10},
    {0, 0, 18}, {0, 0, 19}, {0, 0, 22}, {1, 1, 3}, {1, 3, 2}, {1, 4, 2}, {1, 29, 1}, {1, 30, 1},
    {1, 31, 1}, {1, 32, 1}, {1, 33, 1}, {1, 34, 1}, {1, 35, 1}, {0, 14, 1}, {0, 15, 1}, {0, 11, 2},
    {0, 8, 3}, {0, 9, 3}, {0, 7, 4}, {0, 3, 6}, {0, 2, 7}, {0, 2, 8}, {0, 2, 9}, {0, 1, 11},
    {0, 0, 20}, {0, 0, 21}, {0, 0, 23}, {1, 0, 4}, {1, 5, 2}, {1, 6, 2}, {1, 7, 2}, {1, 8, 2},
    {1, 9, 2}, {1, 36, 1}, {1, 37, 1}, {0, 16, 1}, {0, 17, 1}, {0, 18, 1}, {0, 8, 4}, {0, 5, 5},
    {0, 4, 6}, {0, 5, 6}, {0, 3, 7}, {0, 3, 8}, {0, 2, 10}, {0, 2, 11}, {0, 1, 12}, {0, 1, 13},
    {0, 0, 24}, {0, 0, 25}, {0, 0, 26}, {1, 0, 5}, {1, 1, 4}, {1, 10, 2}, {1, 11, 2}, {1, 12, 2},
    {1, 38, 1}, {1, 39, 1}, {1, 40, 1}, {0, 0, 27}, {0, 3, 9}, {0, 6, 5}, {0, 7, 5}, {0, 9, 4},
    {0, 12, 2}, {0, 19, 1}, {1, 1, 5}, {1, 2, 3}, {1, 13, 2}, {1, 41, 1}, {1, 42, 1}, {1, 43, 1},
    {1, 44, 1},
};

// clang-format on

// The code words of length n, 3 or more, are 0 1..1 0 1..1 0 x with n - 4 ones in all, the first
// group growing from word to word, and then 1 0..0 1 x. The sign follows. The word 0000 is the
// escape's, with a sign of 1; the events have the others in order.
constexpr TcoefEntry reversible_event(unsigned bits) {
    const auto zeros_behind = [&](unsigned n) {
        return static_cast<unsigned>(std::countl_zero(static_cast<uint16_t>(bits << n)));
    };
    const auto ones_behind = [&](unsigned n) {
        return static_cast<unsigned>(std::countl_one(static_cast<uint16_t>(bits << n)));
    };
    unsigned length = 0;
    unsigned index = 0;  // among the words of this length
    if (bits >> 15) {
        length = zeros_behind(1) + 3;
        index = 2 * (length - 3);
    } else {
        const unsigned ones = ones_behind(1);
        length = ones + ones_behind(ones + 2) + 4;
        index = 2 * ones;
    }
    constexpr TcoefEntry kInvalid = {0, kTcoefInvalid, 0};
    if (length > 15) return kInvalid;
    index += bits >> (16 - length) & 1;
    const bool is_negative = bits >> (15 - length) & 1;
    if (length == 4 && index == 0) return is_negative ? TcoefEntry{0, kTcoefEscape, 5} : kInvalid;
    const unsigned shorter_words = (length - 3) * (length - 2) - (length >= 4 ? 1 : 0);
    if (shorter_words + index >= std::size(kReversibleEvents)) return kInvalid;
    const auto& [last, run, level] = kReversibleEvents[shorter_words + index];
    return {is_negative ? -level : level, run + 1 + (last ? kTcoefLast : 0), length + 1};
}

struct ReversibleLookup {
    TcoefEntry primary[1 << kTcoefPrimaryBits];

    constexpr ReversibleLookup() : primary() {
        for (unsigned code = 0; code < 1u << kTcoefPrimaryBits; ++code) {
            const TcoefEntry entry = reversible_event(code << (16 - kTcoefPrimaryBits));
            const bool is_long =
                entry.length() == 0 || entry.length() > static_cast<int>(kTcoefPrimaryBits);
            primary[code] = is_long ? TcoefEntry{0, kTcoefEscape, 0} : entry;
        }
    }
};

constexpr auto kIntraLookup = build<kTcoefPrimaryBits>(kIntraLevels, kIntraCodes);
constexpr auto kAicLookup = build<kTcoefPrimaryBits>(kAicLevels, kAicCodes);
constexpr PairLookup kH263Lookup(build<kTcoefPairBits>(kH263Levels, kH263Codes));
constexpr ReversibleLookup kReversibleLookup;

constexpr RunLimits kIntraRuns = run_limits(kIntraLevels);

constexpr TcoefTable h263_table(TcoefEscapes escapes) {
    return {nullptr, kH263Lookup.pairs, kH263Lookup.secondary, {}, {}, escapes};
}

constexpr TcoefTable aic_table(TcoefEscapes escapes) {
    return {kAicLookup.primary, nullptr, kAicLookup.secondary, {}, {}, escapes};
}

}  // namespace

const TcoefTable kTcoefIntra = {kIntraLookup.primary,
                                nullptr,
                                kIntraLookup.secondary,
                                {kIntraLevels.of[0], kIntraLevels.of[1]},
                                {kIntraRuns.of[0], kIntraRuns.of[1]},
                                TcoefEscapes::kMpeg4};
const TcoefTable kTcoefReversible = {kReversibleLookup.primary, nullptr, nullptr, {}, {},
                                     TcoefEscapes::kReversible};
const TcoefTable kTcoefH263 = h263_table(TcoefEscapes::kH263);
const TcoefTable kTcoefH263Extended = h263_table(TcoefEscapes::kH263Extended);
const TcoefTable kTcoefAic = aic_table(TcoefEscapes::kH263);
const TcoefTable kTcoefAicExtended = aic_table(TcoefEscapes::kH263Extended);

TcoefEntry m4v_reversible_event(unsigned bits) { return reversible_event(bits); }

// clang-format off

// ISO/IEC 14496-2 table B-6, H.263 table 7.
const ShortCode kMcbpcIntra[1 << kMcbpcBits] = {
    {16, 0}, {5, 6}, {6, 6}, {7, 6}, {4, 4}, {4, 4}, {4, 4}, {4, 4},
    {1, 3}, {1, 3}, {1, 3}, {1, 3}, {1, 3}, {1, 3}, {1, 3}, {1, 3},
    {2, 3}, {2, 3}, {2, 3}, {2, 3}, {2, 3}, {2, 3}, {2, 3}, {2, 3},
    {3, 3}, {3, 3}, {3, 3}, {3, 3}, {3, 3}, {3, 3}, {3, 3}, {3, 3},
    {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1},
    {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1},
    {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1},
    {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1},
};

// ISO/IEC 14496-2 table B-8, H.263 table 13, intra columns.
const ShortCode kCbpyIntra[1 << kCbpyBits] = {
    {16, 0}, {16, 0}, {6, 6}, {9, 6}, {8, 5}, {8, 5}, {4, 5}, {4, 5},
    {2, 5}, {2, 5}, {1, 5}, {1, 5}, {0, 4}, {0, 4}, {0, 4}, {0, 4},
    {12, 4}, {12, 4}, {12, 4}, {12, 4}, {10, 4}, {10, 4}, {10, 4}, {10, 4},
    {14, 4}, {14, 4}, {14, 4}, {14, 4}, {5, 4}, {5, 4}, {5, 4}, {5, 4},
    {13, 4}, {13, 4}, {13, 4}, {13, 4}, {3, 4}, {3, 4}, {3, 4}, {3, 4},
    {11, 4}, {11, 4}, {11, 4}, {11, 4}, {7, 4}, {7, 4}, {7, 4}, {7, 4},
    {15, 2}, {15, 2}, {15, 2}, {15, 2}, {15, 2}, {15, 2}, {15, 2}, {15, 2},
    {15, 2}, {15, 2}, {15, 2}, {15, 2}, {15, 2}, {15, 2}, {15, 2}, {15, 2},
};

// clang-format on
