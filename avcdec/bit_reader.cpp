// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/bit_reader.h"

#include <assert.h>

void bits_init(AvcBitReader* r, uint8_t* buffer, uint32_t length) {
    static_cast<BitReader&>(*r) = bits_start(buffer, length);
    r->start = buffer;
}

uint32_t bits_peek(AvcBitReader* r, int n) {
    assert(n >= 0 && n <= 16);
    bits_need(r, n);
    return n == 0 ? 0 : bits_cached(r, n);
}

uint32_t bits_read_long(AvcBitReader* r, int n) {
    assert(n >= 17 && n <= 32);
    const uint32_t high = bits_read(r, 16);
    return high << (n - 16) | bits_read(r, n - 16);
}

void bits_seek(AvcBitReader* r, size_t position) {
    assert(position <= static_cast<size_t>(r->end - r->start) * 8);
    static_cast<BitWindow&>(*r) = {r->start + position / 8, 0, 0};
    r->padding_bits = 0;
    bits_skip(r, position % 8);
}

void bits_skip_trailing(AvcBitReader* r) { bits_skip(r, 8 - bits_position(r) % 8); }

int bits_more_rbsp_data(const AvcBitReader* r, int* overrun) {
    const size_t position = bits_position(r);
    const size_t byte = position / 8;
    const size_t length = static_cast<size_t>(r->end - r->start);
    if (byte + 1 < length) return 1;
    if (byte >= length) {
        *overrun = 1;
        return 0;
    }
    const uint32_t unread = r->start[byte] & (0xffU >> position % 8);
    return unread != 0x80U >> position % 8;
}

int bits_trailing_check(AvcBitReader* r) {
    const size_t position = bits_position(r);
    const ptrdiff_t left = r->end - r->start - 1 - static_cast<ptrdiff_t>(position / 8);
    if (left < 1) return 0;
    const int used = static_cast<int>(position & 7);
    if (bits_read(r, 8 - used) != 0x80U >> used) return 0;
    for (int i = 0; i < left && i < 3; ++i) {
        if (bits_read(r, 8) != 0) return 0;
    }
    return 1;
}

uint32_t bits_ue(AvcBitReader* r) {
    bits_need(r, 15);
    const uint32_t window = bits_cached(r, 15);
    if (window & 0x4000) {
        bits_drop(r, 1);
        return 0;
    }
    if (window == 0) {
        bits_drop(r, 15);
        return bits_read(r, 16) - 1;
    }
    const int zeros = __builtin_clz(window) - 17;
    if (zeros < 8) {
        const uint32_t value = window >> (14 - 2 * zeros);
        bits_drop(r, 2 * zeros + 1);
        return value - 1;
    }
    bits_drop(r, zeros);
    return bits_read(r, zeros + 1) - 1;
}

int32_t bits_se(AvcBitReader* r) {
    const uint32_t k = bits_ue(r) + 1;
    const int32_t magnitude = static_cast<int32_t>(k >> 1);
    return k & 1 ? -magnitude : magnitude;
}

// Counts the zeros of up to three windows of 15 bits in front of the leading 1.
static int long_code_zeros(AvcBitReader* r) {
    int zeros = 0;
    while (zeros < 45) {
        const uint32_t window = bits_peek(r, 15);
        if (window != 0) {
            const int more = __builtin_clz(window) - 17;
            bits_skip(r, static_cast<uint32_t>(more));
            return zeros + more;
        }
        bits_skip(r, 15);
        zeros += 15;
    }
    return zeros;
}

int32_t bits_se_long(AvcBitReader* r) {
    const int zeros = long_code_zeros(r);
    // The leading 1 and the information bits but the last, which is the sign. Magnitudes of more
    // than 32 bits keep the low ones.
    uint32_t magnitude = 0;
    for (int left = zeros; left > 0;) {
        const int n = left < 16 ? left : 16;
        magnitude = magnitude << n | bits_read(r, n);
        left -= n;
    }
    const uint32_t negative = bits_read_1(r);
    if (zeros == 0) return 0;  // the code word is the single bit 1
    return static_cast<int32_t>(negative ? 0 - magnitude : magnitude);
}
