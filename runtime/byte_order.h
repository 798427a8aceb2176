// SPDX-License-Identifier: BSD-2-Clause
// Big-endian fields of coded data, and the clamps that both decoders share.
#pragma once

#include <stdint.h>
#include <string.h>

inline uint16_t load_be16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }

inline uint32_t load_be32(const uint8_t* p) {
    uint32_t v;
    memcpy(&v, p, sizeof v);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    v = __builtin_bswap32(v);
#endif
    return v;
}

inline uint64_t load_be64(const uint8_t* p) {
    uint64_t v;
    memcpy(&v, p, sizeof v);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    v = __builtin_bswap64(v);
#endif
    return v;
}

// Clamps to the range of an 8-bit sample.
inline uint8_t clip_u8(int v) {
#if defined(__arm__)
    const int positive = v > 0 ? v : 0;  // both steps are one instruction
    v = positive < 255 ? positive : 255;
#else
    if (static_cast<unsigned>(v) > 255) v = v < 0 ? 0 : 255;
#endif
    return static_cast<uint8_t>(v);
}

inline int clip3(int low, int high, int v) { return v < low ? low : v > high ? high : v; }
