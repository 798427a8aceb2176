// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_vlc.h"

static int sign_extend(unsigned value, unsigned bits) {
    const unsigned sign = 1u << (bits - 1);
    return static_cast<int>(value ^ sign) - static_cast<int>(sign);
}

static constexpr TcoefEntry kInvalidEvent = {0, kTcoefInvalid, 0};

static TcoefEntry make_event(bool last, unsigned run, int level) {
    if (level == 0 || run > 63) return kInvalidEvent;
    const unsigned step = run + 1 + (last ? kTcoefLast : 0);
    return {static_cast<int16_t>(level), static_cast<uint8_t>(step), 0};
}

// ISO/IEC 14496-2 7.4.1.3: a code of the table follows, whose level or run is to be raised above
// what the table has, or all three with fixed lengths.
static TcoefEntry read_mpeg4_escape(BitReader* bits, const TcoefTable& table) {
    BitWindow window = *bits;
    bits_need(&window, bits, 2);
    const bool is_level_offset = bits_take(&window, 1) == 0;
    const bool is_fixed_length = !is_level_offset && bits_take(&window, 1) != 0;
    bits_refill(&window, bits);
    if (is_fixed_length) {
        const unsigned fields =
            bits_take(&window, 21);  // last 1, run 6, marker 1, level 12, marker 1
        static_cast<BitWindow&>(*bits) = window;
        if ((fields & 0x2001) != 0x2001) return kInvalidEvent;
        return make_event(fields >> 20, fields >> 14 & 63, sign_extend(fields >> 1 & 0xfff, 12));
    }
    const TcoefEntry* entry = &table.primary[bits_cached(&window, kTcoefPrimaryBits)];
    if (entry->step == kTcoefLong) entry = m4v_long_event(window, table, *entry);
    bits_drop(&window, entry->length);
    static_cast<BitWindow&>(*bits) = window;
    if (entry->step >= kTcoefLong) return kInvalidEvent;
    const bool last = entry->step >= kTcoefLast;
    unsigned run = (entry->step & (kTcoefLast - 1)) - 1;
    const int sign = entry->level >> 15;
    int magnitude = (entry->level ^ sign) - sign;
    if (is_level_offset) {
        magnitude += table.max_level[last][run];
    } else {
        run += table.max_run[last][magnitude] + 1u;
    }
    return make_event(last, run, (magnitude ^ sign) - sign);
}

// ISO/IEC 14496-2 tables B-24, B-25: last 1, run 6, marker 1, level 11, marker 1, 0000, sign.
static TcoefEntry read_reversible_escape(BitReader* bits) {
    const unsigned head = bits_read(bits, 8);
    const unsigned tail = bits_read(bits, 17);
    if ((head & 1) == 0 || (tail >> 1 & 31) != 16) return kInvalidEvent;
    const int level = static_cast<int>(tail >> 6);
    return make_event(head >> 7, head >> 1 & 63, tail & 1 ? -level : level);
}

static TcoefEntry read_long_reversible(BitReader* bits) {
    bits_refill(bits);
    TcoefEntry entry = m4v_reversible_event(bits_cached(bits, 16));
    if (entry.step >= kTcoefLong) return kInvalidEvent;
    bits_drop(bits, entry.length);
    return entry;
}

// H.263 5.4.2: last 1, run 6, level 8. T.4: level -128 announces one of 11 bits that are rotated by
// five positions.
static TcoefEntry read_h263_escape(BitReader* bits, bool is_extended) {
    bits_refill(bits);
    const unsigned fields = bits_take(bits, 15);
    int level = sign_extend(fields & 255, 8);
    if (level == -128) {
        if (!is_extended) return kInvalidEvent;
        const unsigned rotated = bits_read(bits, 11);
        level = sign_extend((rotated & 63) << 5 | rotated >> 6, 11);
    }
    return make_event(fields >> 14, fields >> 8 & 63, level);
}

TcoefEntry m4v_read_escaped_event(BitReader* bits, const TcoefTable& table, TcoefEntry entry) {
    if (entry.step == kTcoefInvalid) return kInvalidEvent;
    bits_drop(bits, entry.length);
    switch (table.escapes) {
        case TcoefEscapes::kMpeg4:
            return read_mpeg4_escape(bits, table);
        case TcoefEscapes::kReversible:
            return entry.length == 0 ? read_long_reversible(bits) : read_reversible_escape(bits);
        case TcoefEscapes::kH263:
        case TcoefEscapes::kH263Extended:
            return read_h263_escape(bits, table.escapes == TcoefEscapes::kH263Extended);
    }
    return kInvalidEvent;
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
