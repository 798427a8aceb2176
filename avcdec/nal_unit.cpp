// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/nal_unit.h"

#include <string.h>

// Position of the next 00 00 03 at or after from, or length.
static uint32_t find_emulation(const uint8_t* data, uint32_t from, uint32_t length) {
    uint32_t i = from;
    while (length - i > 2) {
        if (data[i + 2] > 3) {
            i += 3;  // no 00 00 03 can begin at any of the three
        } else if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 3) {
            return i;
        } else {
            ++i;
        }
    }
    return length;
}

// Drops the 03 of every 00 00 03 and returns the new length.
static uint32_t unescape(uint8_t* data, uint32_t length) {
    uint32_t from = 0;
    uint32_t to = 0;
    for (;;) {
        const uint32_t found = find_emulation(data, from, length);
        const uint32_t run = (found == length ? length : found + 2) - from;
        if (to != from) memmove(data + to, data + from, run);
        to += run;
        if (found == length) return to;
        from = found + 3;  // the zero count begins anew after the 03
    }
}

static bool skip_start_code(AvcBitReader* r) {
    uint32_t zeros = 0;
    for (;;) {
        const uint32_t byte = bits_read(r, 8);
        int overrun = 0;
        bits_more_rbsp_data(r, &overrun);
        if (overrun) return false;
        if (byte != 0) return byte == 1 && zeros >= 2;
        ++zeros;
    }
}

uint8_t nal_read_header(AvcBitReader* r, uint32_t length, uint8_t* nal_ref_idc, bool start_code) {
    if (length == 0) return kNalPrefix;
    uint8_t primed[4];
    uint32_t primed_length = reinterpret_cast<uintptr_t>(r->start) & 1 ? 3 : 4;
    if (primed_length > length) primed_length = length;
    memcpy(primed, r->start, primed_length);
    const uint32_t kept = unescape(r->start, length);
    memcpy(r->start, primed, primed_length < kept ? primed_length : kept);
    bits_init(r, r->start, kept);

    if (start_code && !skip_start_code(r)) return kNalBadStartCode;
    const uint32_t header = bits_read(r, 8);
    *nal_ref_idc = header >> 5 & 3;
    return header & 31;
}
