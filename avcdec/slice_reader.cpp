// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/slice_reader.h"

#include <assert.h>
#include <string.h>

#include "avcdec/intra_modes.h"
#include "runtime/owned.h"

int slice_reader_allocate(AvcSliceReader* s, uint32_t width_mbs, bool is_444) {
    assert(width_mbs != 0 && !s->columns && !s->chroma_444);
    s->columns = owned_calloc<MbNeighbour>(width_mbs).release();
    if (is_444) s->chroma_444 = chroma_444_create(width_mbs);
    return s->columns && (!is_444 || s->chroma_444) ? 0 : 1;
}

void slice_reader_release(AvcSliceReader* s) {
    if (s->columns) upnp_free(s->columns);
    s->columns = nullptr;
    if (s->chroma_444) upnp_free(s->chroma_444);
    s->chroma_444 = nullptr;
}

void slice_reader_start_cabac(AvcSliceReader* s) {
    const size_t length = static_cast<size_t>(s->bits.end - s->bits.start);
    const size_t position = bits_position(&s->bits) / 8;
    const uint8_t* const first = s->bits.start + (position < length ? position : length);
    s->cabac_bytes = {first, s->bits.end, 0};
    cabac_start(&s->cabac, &s->cabac_bytes);
}

void mb_set_modes(AvcSliceReader* s, const int8_t* fields) {
    MbNeighbour* const top = s->top;
    if (s->mb.kind == MbKind::kIntra8x8) {
        derive_intra8x8_modes(&s->mb, fields, top, &s->left);
    } else {
        derive_intra4x4_modes(&s->mb, fields, top, &s->left);
    }
}

void mb_set_intra16(AvcSliceReader* s, uint32_t mb_type) {
    assert(mb_type >= 1 && mb_type <= 24);  // H.264 Table 7-11
    AvcMacroblock* const mb = &s->mb;
    const uint32_t t = mb_type - 1;
    mb->kind = MbKind::kIntra16x16;
    mb->intra16_mode = intra16_table_mode(t & 3, mb->available);
    const uint32_t chroma = s->monochrome ? 0 : (t >> 2) % 3 << 4;
    mb->cbp = static_cast<uint8_t>(chroma | (t < 12 ? 0 : 15));
    memset(s->top->modes, kIntraDc, 4);
    memset(s->left.modes, kIntraDc, 4);
}
