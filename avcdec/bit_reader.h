// SPDX-License-Identifier: BSD-2-Clause
// Reads the syntax elements of one NAL unit, MSB first (H.264 7.2, 9.1).
//
// The cache holds at least kBitsGuaranteed unread bits after a refill, so a caller that looks at
// several short fields refills once. Bits behind the end of the NAL unit read as 0 and are counted:
// bits_overrun tells afterwards that there were fewer than were used.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "runtime/byte_order.h"

// The machine word: 64 bits on x86-64, 32 bits on ARM, where wider shifts cost several
// instructions.
using BitWord = uintptr_t;
constexpr int kBitWordSize = sizeof(BitWord) * 8;
constexpr int kBitsGuaranteed = kBitWordSize - 7;

// What every read needs. Where many follow each other it is copied into a local, whose address is
// handed to nothing that is not inlined, so that it stays in registers.
struct BitWindow {
    BitWord cache;  // the next unread bits, in the top bits
    int available;  // unread bits in cache that count
};

struct AvcBitReader : BitWindow {
    const uint8_t* next;  // the next byte to load
    const uint8_t* end;   // one past the last byte of the NAL unit
    uint8_t* start;       // first byte of the NAL unit
    size_t padding_bits;  // zero bits supplied behind the end
};

// Primes the reader on length bytes. They stay the caller's, and nal_read_header changes them.
void bits_init(AvcBitReader* r, uint8_t* buffer, uint32_t length);

// Loads bytewise; pads with zero bytes behind the end.
void bits_refill_near_end(AvcBitReader* r);

inline BitWord bits_load_word(const uint8_t* p) {
    if constexpr (kBitWordSize == 64) return static_cast<BitWord>(load_be64(p));
    return static_cast<BitWord>(load_be32(p));
}

// Fills the window, the reader's own or a copy of it, to at least kBitsGuaranteed bits.
[[gnu::always_inline]] inline void bits_refill(BitWindow* w, AvcBitReader* r) {
    const uint8_t* const next = r->next;
    if (r->end - next >= static_cast<ptrdiff_t>(sizeof(BitWord))) [[likely]] {
        // The part of a byte that does not fit is loaded again next time, to the same place.
        w->cache |= bits_load_word(next) >> w->available;
        r->next = next + ((kBitWordSize - 1 - w->available) >> 3);
        w->available |= kBitWordSize - 8;
    } else {
        r->cache = w->cache;
        r->available = w->available;
        bits_refill_near_end(r);
        *w = *r;
    }
}

[[gnu::always_inline]] inline void bits_need(BitWindow* w, AvcBitReader* r, int n) {
    if (w->available < n) bits_refill(w, r);
}

inline void bits_need(AvcBitReader* r, int n) { bits_need(r, r, n); }

// The next n bits (1 to kBitsGuaranteed), of which the cache must hold enough.
inline uint32_t bits_cached(const BitWindow* w, int n) {
    return static_cast<uint32_t>(w->cache >> (kBitWordSize - n));
}

// Consumes n bits (0 to kBitsGuaranteed) that the cache holds.
inline void bits_drop(BitWindow* w, int n) {
    w->cache <<= n;
    w->available -= n;
}

// The next n bits (0 to 16) without consuming them.
uint32_t bits_peek(AvcBitReader* r, int n);

// The next n bits (0 to 16) as a number.
uint32_t bits_read(AvcBitReader* r, int n);

uint32_t bits_read_1(AvcBitReader* r);

// n is 17 to 32.
uint32_t bits_read_long(AvcBitReader* r, int n);

void bits_skip(AvcBitReader* r, uint32_t n);

// Bits consumed since the start of the NAL unit, counting those behind its end.
inline size_t bits_position(const AvcBitReader* r) {
    return static_cast<size_t>(r->next - r->start) * 8 + r->padding_bits -
           static_cast<size_t>(r->available);
}

// True when more bits were consumed than the NAL unit holds.
inline bool bits_overrun(const AvcBitReader* r) {
    return bits_position(r) > static_cast<size_t>(r->end - r->start) * 8;
}

// Moves to an absolute bit position, at most the end of the NAL unit.
void bits_seek(AvcBitReader* r, size_t position);

// Skips to the next byte boundary; nothing when the reader stands on one.
void bits_align(AvcBitReader* r);

// rbsp_trailing_bits read over: 1 to 8 bits, a whole byte on a byte boundary.
void bits_skip_trailing(AvcBitReader* r);

// more_rbsp_data (H.264 7.2), except that zero bytes behind the stop bit's byte count as data.
// *overrun becomes 1 when the position lies behind the last byte.
int bits_more_rbsp_data(const AvcBitReader* r, int* overrun);

// 1 when only the stop bit, the zeros of its byte and at least one zero byte are left (of which at
// most three are looked at). Consumes bits.
int bits_trailing_check(AvcBitReader* r);

// ue(v), H.264 9.1. Code words of up to 15 leading zeros: 0 to 65534.
uint32_t bits_ue(AvcBitReader* r);

// se(v), H.264 9.1.1, with the same limit.
int32_t bits_se(AvcBitReader* r);

// se(v) for code words with up to 45 leading zeros; the value is kept in 32 bits.
int32_t bits_se_long(AvcBitReader* r);
