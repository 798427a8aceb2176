// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/cabac_engine.h"

#include "avcdec/avc_decoder.h"

// As long as eight bytes are left they are loaded in one piece; here they come one at a time, up
// to the same number of bits, with zeros behind the end.
void cabac_refill_near_end(CabacEngine* e) {
    for (int i = 0; i < kCabacRefillBits / 8; ++i) {
        BitWord byte = 0;
        if (e->next < e->end) {
            byte = *e->next++;
        } else {
            e->padding_bits += 8;
        }
        e->value = e->value << 8 | byte;
        e->lookahead += 8;
    }
}

uint32_t cabac_decode_decisions(CabacEngine* e, uint8_t* const* contexts, int count) {
    CabacEngine engine = *e;
    uint32_t bins = 0;
    for (int i = 0; i < count; ++i) bins = bins << 1 | cabac_decode_decision(&engine, contexts[i]);
    *e = engine;
    return bins;
}

void cabac_init_contexts(const int8_t (*pairs)[2], uint8_t* contexts, int32_t slice_qp, int count) {
    for (int i = 0; i < count; ++i) {
        const int state = clip3(1, 126, ((pairs[i][0] * slice_qp) >> 4) + pairs[i][1]);
        contexts[i] = static_cast<uint8_t>(state <= 63 ? (63 - state) * 2 : (state - 64) * 2 + 1);
    }
}

void cabac_start(CabacEngine* e, const uint8_t* data, const uint8_t* end) {
    *e = CabacEngine{0, 510, -9, data, end, 0};
    while (e->lookahead < kCabacMinLookahead) cabac_refill(e);
}

void cabac_init_engine(AvcDecoder* d) {
    const size_t length = static_cast<size_t>(d->bits.end - d->bits.start);
    const size_t position = bits_position(&d->bits) / 8;
    cabac_start(&d->cabac, d->bits.start + (position < length ? position : length), d->bits.end);
}

void cabac_init_slice(AvcDecoder* d) {
    cabac_init_contexts(kCabacInitI, d->contexts, d->slice_qp, kCabacContexts);
    cabac_init_engine(d);
}
