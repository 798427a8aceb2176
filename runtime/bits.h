// SPDX-License-Identifier: BSD-2-Clause
// Bits of a block of memory, MSB first, for both decoders. Nothing past the end is read: bits after
// the last byte are 0 for ever, and bits_overrun tells afterwards that some of those were taken. A
// parser therefore reads a whole unit and tests once.
#pragma once

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "runtime/byte_order.h"

// The machine word: 64 bits on x86-64, 32 bits on ARM, where wider shifts cost several
// instructions.
using BitWord = uintptr_t;
constexpr int kBitWordSize = sizeof(BitWord) * 8;

// Unread bits in the cache after a refill, at least. A caller that looks at several short fields
// refills once.
constexpr int kBitsGuaranteed = kBitWordSize - 8;
constexpr int kMostBitsRead = 24;  // by one bits_read, whatever the word
static_assert(kMostBitsRead <= kBitsGuaranteed);

// The part of a reader that every read needs. Where many follow each other it is copied into a
// local, whose address is handed to nothing that is not inlined, so that it stays in registers.
struct BitWindow {
    const uint8_t* next;  // first byte that available does not count
    BitWord cache;        // the next unread bits, in the top bits; after a refill all are right
    int available;        // unread bits in cache that count
};

struct BitReader : BitWindow {
    const uint8_t* end;   // one past the last byte
    size_t padding_bits;  // zero bits supplied after the end
};

// A reader's window, and its return. By members, since a copy of the whole, gap included, would
// keep the local one in memory.
inline BitWindow bits_window(const BitReader& r) { return {r.next, r.cache, r.available}; }
inline void bits_return(BitReader* r, const BitWindow& w) {
    r->next = w.next;
    r->cache = w.cache;
    r->available = w.available;
}

inline BitReader bits_start(const uint8_t* data, size_t length) {
    return {{data, 0, 0}, data + length, 0};
}

// Loads bytewise; pads with zero bytes after the end.
void bits_refill_near_end(BitReader* r);

inline BitWord bits_load_word(const uint8_t* p) {
    if constexpr (kBitWordSize == 64) return static_cast<BitWord>(load_be64(p));
    return static_cast<BitWord>(load_be32(p));
}

// Fills the window, the reader's own or a copy of it, to at least kBitsGuaranteed bits.
[[gnu::always_inline]] inline void bits_refill(BitWindow* w, BitReader* r) {
    if (r->end - w->next >= static_cast<ptrdiff_t>(sizeof(BitWord))) [[likely]] {
        // The part of a byte that does not fit is loaded again next time, to the same place.
        w->cache |= bits_load_word(w->next) >> w->available;
        w->next += (kBitWordSize - 1 - w->available) >> 3;
        w->available |= kBitWordSize - 8;
    } else {
        bits_return(r, *w);
        bits_refill_near_end(r);
        w->next = r->next;
        w->cache = r->cache;
        w->available = r->available;
    }
}

[[gnu::always_inline]] inline void bits_need(BitWindow* w, BitReader* r, int n) {
    if (w->available < n) bits_refill(w, r);
}

inline void bits_refill(BitReader* r) { bits_refill(r, r); }
inline void bits_need(BitReader* r, int n) { bits_need(r, r, n); }

// The next n bits (1 to kBitsGuaranteed), of which the cache must hold enough.
inline uint32_t bits_cached(const BitWindow* w, int n) {
    assert(n >= 1 && n <= w->available);
    return static_cast<uint32_t>(w->cache >> (kBitWordSize - n));
}

// Consumes n bits (0 to kBitsGuaranteed) that the cache holds.
inline void bits_drop(BitWindow* w, int n) {
    assert(n >= 0 && n <= w->available && n < kBitWordSize);
    w->cache <<= n;
    w->available -= n;
}

// Both: the next n bits (1 to kBitsGuaranteed), consumed.
inline uint32_t bits_take(BitWindow* w, int n) {
    const uint32_t value = bits_cached(w, n);
    bits_drop(w, n);
    return value;
}

// The next n bits (0 to kMostBitsRead) as a number. A call, for headers, which read much and
// seldom.
uint32_t bits_read(BitReader* r, int n);
uint32_t bits_read_1(BitReader* r);
void bits_skip(BitReader* r, uint32_t n);

// Bits up to the next byte boundary, 0 to 7.
inline int bits_to_alignment(const BitReader* r) { return r->available & 7; }
// Skips to the next byte boundary; nothing when the reader stands on one.
inline void bits_align(BitReader* r) { bits_drop(r, bits_to_alignment(r)); }

// True when more bits were consumed than there are.
inline bool bits_overrun(const BitReader* r) {
    return static_cast<size_t>(r->available) < r->padding_bits;
}
