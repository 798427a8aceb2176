// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_vlc.h"

static int sign_extend(unsigned value, unsigned bits) {
    const unsigned sign = 1u << (bits - 1);
    return static_cast<int>(value ^ sign) - static_cast<int>(sign);
}

// n bits (1 up) after the first `at` ones.
static unsigned field(BitWord bits, unsigned at, unsigned n) {
    return static_cast<unsigned>(bits << at >> (kBitWordSize - static_cast<int>(n)));
}

static TcoefEntry invalid_event(unsigned length) { return {0, kTcoefInvalid, length}; }

// Level 0 says that the event is not valid.
static TcoefEntry make_event(bool last, unsigned run, int level, unsigned length) {
    if (level == 0) return invalid_event(length);
    return {level, run + 1 + (last ? kTcoefLast : 0), length};
}

// ISO/IEC 14496-2 7.4.1.3: a code of the table follows, whose level or run is to be raised above
// what the table has, or all three with fixed lengths.
static TcoefEntry mpeg4_escaped_event(BitWord bits, const TcoefTable& table) {
    if (field(bits, 0, 2) == 3) {
        const unsigned fields = field(bits, 2, 21);  // last 1, run 6, marker 1, level 12, marker 1
        const bool has_markers = (fields & 0x2001) == 0x2001;
        const int level = has_markers ? sign_extend(fields >> 1 & 0xfff, 12) : 0;
        return make_event(fields >> 20, fields >> 14 & 63, level, 23);
    }
    const bool is_run_offset = field(bits, 0, 1);
    const unsigned kind_bits = is_run_offset ? 2 : 1;
    bits <<= kind_bits;
    const TcoefEntry event = m4v_whole_entry<kTcoefPrimaryBits>(
        bits, table, table.primary[field(bits, 0, kTcoefPrimaryBits)]);
    const unsigned length = static_cast<unsigned>(event.length()) + kind_bits;
    if (event.step() >= kTcoefLong) return invalid_event(length);
    const bool last = event.step() >= kTcoefLast;
    const int sign = event.level() < 0 ? -1 : 1;
    if (is_run_offset) {
        const unsigned offset = table.max_run[last][event.level() * sign] + 1u;
        return {event.level(), event.step() + offset, length};
    }
    const int offset = table.max_level[last][(event.step() & (kTcoefLast - 1)) - 1];
    return {event.level() + sign * offset, event.step(), length};
}

// ISO/IEC 14496-2 tables B-24, B-25: last 1, run 6, marker 1, level 11, marker 1, 0000, sign.
static TcoefEntry reversible_escaped_event(BitWord bits) {
    const bool is_valid = field(bits, 7, 1) && field(bits, 19, 5) == 16;
    const int level = is_valid ? static_cast<int>(field(bits, 8, 11)) : 0;
    const bool is_negative = field(bits, 24, 1);
    return make_event(field(bits, 0, 1), field(bits, 1, 6), is_negative ? -level : level, 25);
}

static TcoefEntry long_reversible_event(BitWord bits) {
    const TcoefEntry event = m4v_reversible_event(field(bits, 0, 16));
    return event.step() < kTcoefLong ? event : invalid_event(0);
}

// H.263 5.4.2: last 1, run 6, level 8. T.4: level -128 announces one of 11 bits that are rotated by
// five positions.
static TcoefEntry h263_escaped_event(BitWord bits, bool is_extended) {
    unsigned length = 15;
    int level = sign_extend(field(bits, 7, 8), 8);
    if (level == -128) {
        const unsigned rotated = field(bits, 15, 11);
        level = is_extended ? sign_extend((rotated & 63) << 5 | rotated >> 6, 11) : 0;
        length = is_extended ? 26 : 15;
    }
    return make_event(field(bits, 0, 1), field(bits, 1, 6), level, length);
}

TcoefEntry m4v_escaped_event(BitWord bits, const TcoefTable& table, TcoefEntry entry) {
    if (entry.step() == kTcoefInvalid) return invalid_event(0);
    switch (table.escapes) {
        case TcoefEscapes::kMpeg4:
            return mpeg4_escaped_event(bits, table);
        case TcoefEscapes::kReversible:
            return entry.length() == 0 ? long_reversible_event(bits)
                                       : reversible_escaped_event(bits);
        case TcoefEscapes::kH263:
        case TcoefEscapes::kH263Extended:
            return h263_escaped_event(bits, table.escapes == TcoefEscapes::kH263Extended);
    }
    return invalid_event(0);
}

namespace {

// The size, 0 to 12, after `zeros` zero bits and a one, whose next bit is `bit`; *length is that
// of the code. 13 when there is none.
constexpr unsigned dc_size(bool is_chroma, unsigned zeros, unsigned bit, unsigned* length) {
    if (is_chroma) {
        *length = zeros == 0 ? 2 : zeros + 1;
        return zeros == 0 ? 1 - bit : zeros + 1;
    }
    *length = zeros == 0 ? 2 : zeros == 1 ? 3 : zeros + 1;
    return zeros == 0 ? 2 - bit : zeros == 1 ? (bit ? 0 : 3) : zeros + 2;
}

constexpr int dc_value(unsigned size, unsigned code) {
    if (size == 0) return 0;
    const bool is_positive = code >> (size - 1) & 1;
    return static_cast<int>(code) - (is_positive ? 0 : (1 << size) - 1);
}

// Small differences, which are nearly all of them, by one lookup.
constexpr struct DcTables {
    M4vDcEntry of[2][1 << kM4vDcBits];
    constexpr DcTables() : of() {
        for (unsigned chroma = 0; chroma < 2; ++chroma) {
            for (unsigned code = 1; code < 1u << kM4vDcBits; ++code) {
                of[chroma][code] = entry(chroma != 0, code);
            }
        }
    }
    static constexpr M4vDcEntry entry(bool is_chroma, unsigned code) {
        unsigned zeros = 0;
        while ((code >> (kM4vDcBits - 1 - zeros) & 1) == 0) ++zeros;
        if (zeros + 2 > kM4vDcBits) return {0, 0};
        unsigned length = 0;
        const unsigned size =
            dc_size(is_chroma, zeros, code >> (kM4vDcBits - 2 - zeros) & 1, &length);
        if (length + size > kM4vDcBits) return {0, 0};
        const unsigned low = code >> (kM4vDcBits - length - size) & ((1u << size) - 1);
        return {static_cast<int16_t>(dc_value(size, low)), static_cast<uint16_t>(length + size)};
    }
} kDcTables;

}  // namespace

const M4vDcEntry* const kM4vDcDifference[2] = {kDcTables.of[0], kDcTables.of[1]};

int m4v_read_long_dc_difference(BitReader* bits, bool is_chroma) {
    bits_refill(bits);
    const unsigned window = bits_cached(bits, 13);
    if (window < 2) return kM4vNoDc;  // twelve zeros
    const unsigned zeros = static_cast<unsigned>(__builtin_clz(window)) - 19;
    unsigned length = 0;
    const unsigned size = dc_size(is_chroma, zeros, window >> (11 - zeros) & 1, &length);
    if (size > 12) return kM4vNoDc;
    bits_drop(bits, length);
    const int difference =
        dc_value(size, bits_take(bits, size));  // up to 11 + 12 bits after the refill
    return size > 8 && !bits_read_1(bits) ? kM4vNoDc : difference;
}
