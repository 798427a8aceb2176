// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/mb_cabac.h"

#include "avcdec/intra_modes.h"

// The engine is in registers while a macroblock's prediction is read: whatever takes its address is
// inlined.
#define KS_INLINE [[gnu::always_inline]] static inline

// ctxIdxInc of an element whose context depends on one flag of the left and the top neighbour.
KS_INLINE int count_flags(const AvcSliceReader* s, uint8_t flag) {
    const MbNeighbour& top = *s->top;
    return !!(s->left.flags & flag) + !!(top.flags & flag);
}

// H.264 9.3.2.5, Table 9-36.
KS_INLINE uint32_t read_mb_type(CabacEngine* e, AvcSliceReader* s) {
    CabacContext* const contexts = s->contexts + kCtxMbType;
    if (!cabac_decode_branch(e, contexts + count_flags(s, kNotINxN))) return 0;
    if (!cabac_decode_terminate(e)) return kMbTypePcm;
    uint32_t mb_type = 1 + 12 * cabac_decode_decision(e, contexts + 3);
    if (cabac_decode_branch(e, contexts + 4)) {
        mb_type += 4 + 4 * cabac_decode_decision(e, contexts + 5);
    }
    mb_type += 2 * cabac_decode_decision(e, contexts + 6);
    return mb_type + cabac_decode_decision(e, contexts + 7);
}

// Copies of the decision that reads a bit of rem_intra_pred_mode.
#if defined(__x86_64__)
constexpr int kRemCopies = 1;  // for size: more are not faster
#else
constexpr int kRemCopies = 3;
#endif

// The mode fields of a macroblock, which follow each other.
KS_INLINE void read_mode_fields(CabacEngine* e, CabacContext* contexts, ModeField* fields,
                                int count) {
    CabacContext flag = contexts[0];
    CabacContext remaining = contexts[1];
    for (int b = 0; b < count; ++b) {
        fields[b] = -1;
        if (cabac_decode_branch(e, &flag)) continue;
        uint32_t rem = 0;
#pragma GCC unroll kRemCopies
        for (int i = 0; i < 3; ++i) rem |= cabac_decode_decision(e, &remaining) << i;
        fields[b] = static_cast<ModeField>(rem);
    }
    contexts[0] = flag;
    contexts[1] = remaining;
}

// H.264 9.3.2.2: truncated unary, up to 3.
KS_INLINE uint32_t read_chroma_mode(CabacEngine* e, AvcSliceReader* s) {
    CabacContext* const contexts = s->contexts + kCtxChromaMode;
    CabacContext* context = contexts + count_flags(s, kChromaModeNonzero);
    uint32_t mode = 0;
    while (mode < 3 && cabac_decode_branch(e, context)) {
        ++mode;
        context = contexts + 3;
    }
    return mode;
}

// H.264 9.3.3.1.1.4. A neighbour's missing luma bit counts, a missing neighbour does not.
KS_INLINE uint8_t read_coded_block_pattern(CabacEngine* e, AvcSliceReader* s) {
    CabacContext* const contexts = s->contexts + kCtxCodedBlockPattern;
    const uint32_t left = s->left.cbp;
    const uint32_t top = s->top->cbp;
    uint32_t cbp = 0;
    for (int q = 0; q < 4; ++q) {
        const uint32_t a = (q & 1 ? cbp >> (q - 1) : left >> (q + 1)) & 1;
        const uint32_t b = (q & 2 ? cbp >> (q - 2) : top >> (q + 2)) & 1;
        cbp |= cabac_decode_decision(e, contexts + ((a ^ 1) + 2 * (b ^ 1))) << q;
    }
    if (s->monochrome) return static_cast<uint8_t>(cbp);
    if (cabac_decode_branch(e, contexts + 4 + !!(left & 0x30) + 2 * !!(top & 0x30))) {
        CabacContext* const context = contexts + 8 + (left >> 5 & 1) + 2 * (top >> 5 & 1);
        cbp |= 0x10U << cabac_decode_decision(e, context);
    }
    return static_cast<uint8_t>(cbp);
}

uint32_t cabac_read_prediction(AvcSliceReader* s) {
    AvcMacroblock* const mb = &s->mb;
    CabacEngine e = s->cabac;
    const uint32_t mb_type = read_mb_type(&e, s);
    if (mb_type == 0) {
        CabacContext* const transform =
            s->contexts + kCtxTransform8x8 + count_flags(s, kTransform8x8);
        const bool is_8x8 = s->transform_8x8_mode && cabac_decode_branch(&e, transform);
        mb->kind = is_8x8 ? MbKind::kIntra8x8 : MbKind::kIntra4x4;
        __attribute__((uninitialized)) ModeField fields[16];
        read_mode_fields(&e, s->contexts + kCtxIntraMode, fields, mode_field_count(mb->kind));
        mb_set_modes(s, fields);
    } else if (mb_type != kMbTypePcm) {
        mb_set_intra16(s, mb_type);
    }
    if (mb_type != kMbTypePcm) {
        uint32_t mode = 1;
        if (!s->monochrome) mode = read_chroma_mode(&e, s);
        if (mode != 0) mb->flags |= kChromaModeNonzero;
        mb->chroma_mode =
            s->monochrome ? uint8_t{kIntraChromaNone} : chroma_table_mode(mode, mb->available);
    }
    if (mb_type == 0) mb->cbp = read_coded_block_pattern(&e, s);
    s->cabac = e;
    return mb_type;
}
