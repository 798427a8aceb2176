// SPDX-License-Identifier: BSD-2-Clause
#include "runtime/bits.h"

void bits_refill_near_end(BitReader* r) {
    while (r->available <= kBitWordSize - 8) {
        BitWord byte = 0;
        if (r->next < r->end) {
            byte = *r->next++;
        } else {
            r->padding_bits += 8;
        }
        r->cache |= byte << (kBitWordSize - 8 - r->available);
        r->available += 8;
    }
    if (r->next < r->end) r->cache |= BitWord{*r->next} >> (r->available - (kBitWordSize - 8));
}

uint32_t bits_read(BitReader* r, int n) {
    assert(n >= 0 && n <= kMostBitsRead);
    bits_need(r, n);
    return n == 0 ? 0 : bits_take(r, n);
}

uint32_t bits_read_1(BitReader* r) { return bits_read(r, 1); }

void bits_skip(BitReader* r, uint32_t n) {
    for (; n > kMostBitsRead; n -= kMostBitsRead) bits_read(r, kMostBitsRead);
    bits_read(r, static_cast<int>(n));
}
