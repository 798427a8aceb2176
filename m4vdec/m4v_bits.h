// SPDX-License-Identifier: BSD-2-Clause
// Bit reader over a block of memory. It never reads past the end: behind the last byte it
// delivers zeros for ever, and `overrun` tells afterwards that some of those were taken. A parser
// therefore reads a whole unit and tests once.
#pragma once

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "runtime/byte_order.h"

// The part of a reader that a loop keeps in registers. Word is the cache, as wide as the
// processor's registers. After a refill at least kMinBits bits can be peeked and skipped without
// another one.
template <typename Word>
struct M4vBitWindowT {
    static constexpr unsigned kWordBits = 8 * sizeof(Word);
    static constexpr unsigned kMinBits = kWordBits - 8;

    const uint8_t* next;  // first byte that is not counted in the cache
    Word cache;           // the next bits, first bit at the top
    unsigned count;       // valid bits in the cache, below kWordBits; data may lie behind them

    // For a whole word of data at `next`.
    void refill_word() {
        // Whole bytes are counted; the rest of the word comes again with the next refill.
        cache |= load_word(next) >> count;
        next += (kWordBits - 1 - count) >> 3;
        count |= kMinBits;
    }

    // 1 <= n <= kMinBits, behind a refill.
    unsigned peek(unsigned n) const {
        assert(n >= 1 && n <= kMinBits && n <= count);
        return static_cast<unsigned>(cache >> (kWordBits - n));
    }
    void skip(unsigned n) {
        assert(n <= count);
        cache <<= n;
        count -= n;
    }
    unsigned take(unsigned n) {
        const unsigned value = peek(n);
        skip(n);
        return value;
    }

 private:
    static Word load_word(const uint8_t* p) {
        if constexpr (sizeof(Word) == 8) return load_be64(p);
        return static_cast<Word>(load_be32(p));
    }
};

template <typename Word>
struct M4vBitsT : M4vBitWindowT<Word> {
    using Window = M4vBitWindowT<Word>;
    using Window::cache, Window::count, Window::next;
    using Window::kMinBits, Window::kWordBits;
    static constexpr unsigned kMaxRead = 24;  // of one read(), whatever the word

    const uint8_t* end;
    unsigned padding;  // zero bits that were appended behind the data

    void start(const uint8_t* data, size_t length) {
        next = data;
        end = data + length;
        cache = 0;
        count = 0;
        padding = 0;
    }

    Window& window() { return *this; }
    // Refills a window of this reader's, which may be a copy.
    void refill(Window* w) {
        if (static_cast<size_t>(end - w->next) >= sizeof(Word)) return w->refill_word();
        window() = *w;
        refill_at_end();
        *w = window();
    }
    void refill() {
        if (static_cast<size_t>(end - next) >= sizeof(Word)) return this->refill_word();
        refill_at_end();
    }

    // 1 <= n <= kMaxRead. A call, for headers, which read much and seldom.
    __attribute__((noinline)) unsigned read(unsigned n) {
        refill();
        return this->take(n);
    }
    bool flag() { return read(1) != 0; }
    void skip_long(unsigned n) {
        for (; n > kMaxRead; n -= kMaxRead) read(kMaxRead);
        if (n) read(n);
    }

    // Bits that were taken from behind the end of the data.
    bool overrun() const { return count < padding; }
    // Whether what is left is too short for the longest code: one that was not found was cut off.
    bool is_near_end() const { return next == end && count < padding + kMaxRead; }
    // Bits up to the next byte boundary, 0 to 7.
    unsigned bits_to_alignment() const { return count & 7; }
    void align() { this->skip(bits_to_alignment()); }
    // The byte that holds the next bit; not to be asked for after an overrun.
    const uint8_t* position() const { return next - (count - padding + 7) / 8; }

 private:
    __attribute__((noinline)) void refill_at_end() {
        while (count < kMinBits) {
            if (next < end) {
                cache |= static_cast<Word>(*next++) << (kWordBits - 8 - count);
            } else if (padding < (1u << 30)) {
                padding += 8;
            }
            count += 8;
        }
    }
};

using M4vBits = M4vBitsT<size_t>;
using M4vBitWindow = M4vBitWindowT<size_t>;
