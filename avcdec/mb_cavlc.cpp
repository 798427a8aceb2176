// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/mb_cavlc.h"

#include "avcdec/intra_modes.h"

// coded_block_pattern of intra macroblocks by its code (H.264 Table 9-4); codes that the standard
// does not define stand for 0.
// clang-format off
static constexpr uint8_t kCodedBlockPattern[64] = {
    47, 31, 15,  0, 23, 27, 29, 30,  7, 11, 13, 14, 39, 43, 45, 46,
    16,  3,  5, 10, 12, 19, 21, 26, 28, 35, 37, 42, 44,  1,  2,  4,
     8, 17, 18, 20, 24,  6,  9, 22, 25, 32, 33, 34, 36, 40, 38, 41,
};
static constexpr uint8_t kCodedBlockPatternMono[16] = {
    15, 0, 7, 11, 13, 14, 3, 5, 10, 12, 1, 2, 4, 8, 6, 9,
};
// clang-format on

static ModeField read_mode_field(AvcBitReader* r) {
    bits_need(r, 4);
    const uint32_t field = bits_cached(r, 4);
    const bool prev_intra_pred_mode_flag = field & 8;
    bits_drop(r, prev_intra_pred_mode_flag ? 1 : 4);
    return prev_intra_pred_mode_flag ? ModeField{-1} : static_cast<ModeField>(field);
}

uint32_t cavlc_read_prediction(AvcSliceReader* s) {
    AvcMacroblock* const mb = &s->mb;
    AvcBitReader* const r = &s->bits;
    const uint32_t mb_type = bits_ue(r);
    if (mb_type >= kMbTypePcm) return kMbTypePcm;
    if (mb_type == 0) {
        mb->kind = s->transform_8x8_mode && bits_read_1(r) ? MbKind::kIntra8x8 : MbKind::kIntra4x4;
        __attribute__((uninitialized)) ModeField fields[16];
        for (int b = 0; b < mode_field_count(mb->kind); ++b) fields[b] = read_mode_field(r);
        mb_set_modes(s, fields);
    } else {
        mb_set_intra16(s, mb_type);
    }
    if (s->monochrome) {
        mb->chroma_mode = kIntraChromaNone;
    } else {
        const uint32_t mode = bits_ue(r);
        if (mode > kIntraChromaNone) mb->has_error = 1;
        mb->chroma_mode = chroma_table_mode(mode & 7, mb->available);
    }
    if (mb_type == 0) {
        const uint32_t code = bits_ue(r);
        mb->cbp = s->monochrome ? kCodedBlockPatternMono[code % 16] : kCodedBlockPattern[code % 64];
    }
    return mb_type;
}
