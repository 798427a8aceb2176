// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/cabac_engine.h"

// As long as eight bytes are left they are loaded in one piece; here they come one at a time, up
// to the same number of bits, with zeros past the end.
[[gnu::cold]] BitWord cabac_refill_near_end(CabacBytes* bytes, BitWord value) {
    for (int i = 0; i < kCabacRefillBits / 8; ++i) {
        BitWord byte = 0;
        if (bytes->next < bytes->end) {
            byte = *bytes->next++;
        } else {
            bytes->padding_bits += 8;
        }
        value = value << 8 | byte;
    }
    return value;
}

void cabac_init_contexts(const int8_t (*pairs)[2], CabacContext* contexts, int32_t slice_qp,
                         int count) {
    for (int i = 0; i < count; ++i) {
        const int state = clip3(1, 126, ((pairs[i][0] * slice_qp) >> 4) + pairs[i][1]);
        contexts[i] = kCabacContextOf[state <= 63 ? (63 - state) * 2 : (state - 64) * 2 + 1];
    }
}

void cabac_start(CabacEngine* e, CabacBytes* bytes) {
    *e = CabacEngine{0, 510, -9, bytes};
    while (e->lookahead < kCabacMinLookahead) cabac_refill(e);
}
