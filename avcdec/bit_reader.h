// SPDX-License-Identifier: BSD-2-Clause
// Reads the syntax elements of one NAL unit (H.264 7.2, 9.1), with the functions of runtime/bits.h
// and these.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "runtime/bits.h"

struct AvcBitReader : BitReader {
    uint8_t* start;  // first byte of the NAL unit
};

// Primes the reader on length bytes. They stay the caller's, and nal_read_header changes them.
void bits_init(AvcBitReader* r, uint8_t* buffer, uint32_t length);

// The next n bits (0 to 16) without consuming them.
uint32_t bits_peek(AvcBitReader* r, int n);

// n is 17 to 32.
uint32_t bits_read_long(AvcBitReader* r, int n);

// Bits consumed since the start of the NAL unit, counting those after its end.
inline size_t bits_position(const AvcBitReader* r) {
    return static_cast<size_t>(r->next - r->start) * 8 + r->padding_bits -
           static_cast<size_t>(r->available);
}

// Moves to an absolute bit position, at most the end of the NAL unit.
void bits_seek(AvcBitReader* r, size_t position);

// rbsp_trailing_bits read over: 1 to 8 bits, a whole byte on a byte boundary.
void bits_skip_trailing(AvcBitReader* r);

// more_rbsp_data (H.264 7.2), except that zero bytes after the stop bit's byte count as data.
// *overrun becomes 1 when the position lies after the last byte.
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
