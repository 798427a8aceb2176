// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/cabac_engine.h"

// As long as four bytes are left they are loaded in one piece; here they come one at a time, with
// zeros past the end.
[[gnu::cold]] BitWord cabac_bits_near_end(CabacBytes* bytes) {
    BitWord bits = 0;
    for (int i = 0; i < kCabacRefillBits / 8; ++i) {
        BitWord byte = 0;
        if (bytes->next < bytes->end) {
            byte = *bytes->next++;
        } else {
            bytes->padding_bits += 8;
        }
        bits = bits << 8 | byte;
    }
    return bits;
}

void cabac_init_contexts(const int8_t (*pairs)[2], CabacContext* contexts, int32_t slice_qp,
                         int count) {
    for (int i = 0; i < count; ++i) {
        const int state = clip3(1, 126, ((pairs[i][0] * slice_qp) >> 4) + pairs[i][1]);
        contexts[i] = kCabacContextOf[state <= 63 ? (63 - state) * 2 : (state - 64) * 2 + 1];
    }
}

void cabac_start(CabacEngine* e, CabacBytes* bytes) {
    // A refill away from the distance that codIOffset has to 0.
    *e = CabacEngine{BitWord{1} << (kBitWordSize - 1), BitWord{510} << kCabacUnit, bytes};
    cabac_keep_lookahead(e);
    const BitWord offset = -e->distance;
    // No codIOffset may begin as 510 or 511 (H.264 9.3.1.2). Either makes every decision an LPS, as
    // next to no distance does, so that an I_PCM macroblock comes first.
    e->distance = offset >> kCabacUnit < 510 ? e->range - offset : offset & -offset;
}
