// SPDX-License-Identifier: BSD-2-Clause
// Macroblock syntax in CABAC (H.264 7.3.5 with the binarisations and context choices of 9.3).
#include "avcdec/avc_decoder.h"
#include "avcdec/intra_modes.h"
#include "avcdec/quant_tables.h"
#include "avcdec/residual_cabac.h"

// Out of line: inlined into every element it is three times the code, at the same speed.
[[gnu::noinline]] static uint32_t decide(AvcDecoder* d, int context) {
    return cabac_decode_decision(&d->cabac, d->contexts + context);
}

// ctxIdxInc of an element whose context depends on one flag of the left and the top neighbour.
static int count_flags(const AvcDecoder* d, uint8_t flag) {
    const MbNeighbour& top = d->columns[d->mb.x];
    return !!(d->left.flags & flag) + !!(top.flags & flag);
}

// H.264 9.3.2.5, Table 9-36.
uint32_t cabac_read_mb_type(AvcDecoder* d) {
    if (!decide(d, kCtxMbType + count_flags(d, kNotINxN))) return 0;
    if (!cabac_decode_terminate(&d->cabac)) return 25;  // I_PCM
    uint32_t mb_type = 1 + 12 * decide(d, kCtxMbType + 3);
    if (decide(d, kCtxMbType + 4)) mb_type += 4 + 4 * decide(d, kCtxMbType + 5);
    mb_type += 2 * decide(d, kCtxMbType + 6);
    return mb_type + decide(d, kCtxMbType + 7);
}

// The mode fields of a macroblock, which follow each other.
static void read_mode_fields(AvcDecoder* d, ModeField* fields, int count) {
    CabacEngine e = d->cabac;  // in registers for all fields
    uint8_t* const contexts = d->contexts + kCtxIntraMode;
    for (int b = 0; b < count; ++b) {
        fields[b] = -1;
        if (cabac_decode_branch(&e, contexts)) continue;
        uint32_t rem = 0;
        for (int bit = 0; bit < 3; ++bit) rem |= cabac_decode_decision(&e, contexts + 1) << bit;
        fields[b] = static_cast<ModeField>(rem);
    }
    d->cabac = e;
}

static uint32_t read_chroma_mode(AvcDecoder* d) {
    if (!decide(d, kCtxChromaMode + count_flags(d, kChromaModeNonzero))) return 0;
    if (!decide(d, kCtxChromaMode + 3)) return 1;
    return 2 + decide(d, kCtxChromaMode + 3);
}

// H.264 9.3.3.1.1.4. A neighbour's missing luma bit counts, a missing neighbour does not.
static uint8_t read_coded_block_pattern(AvcDecoder* d) {
    const uint32_t left = d->left.cbp;
    const uint32_t top = d->columns[d->mb.x].cbp;
    uint32_t cbp = 0;
    const auto luma = [&](uint32_t a, uint32_t b) {
        return decide(d, kCtxCodedBlockPattern + static_cast<int>((a ^ 1) + 2 * (b ^ 1)));
    };
    cbp |= luma(left >> 1 & 1, top >> 2 & 1);
    cbp |= luma(cbp & 1, top >> 3 & 1) << 1;
    cbp |= luma(left >> 3 & 1, cbp & 1) << 2;
    cbp |= luma(cbp >> 2 & 1, cbp >> 1 & 1) << 3;
    if (d->sets.monochrome) return static_cast<uint8_t>(cbp);
    const int base = kCtxCodedBlockPattern + 4;
    if (decide(d, base + !!(left & 0x30) + 2 * !!(top & 0x30))) {
        cbp |= 0x10U << decide(d, base + 4 + !!(left & 0x20) + 2 * !!(top & 0x20));
    }
    return static_cast<uint8_t>(cbp);
}

void cabac_read_prediction(AvcDecoder* d, uint32_t mb_type) {
    AvcMacroblock* const mb = &d->mb;
    if (mb_type == 0) {
        mb->kind = kMbIntra4x4;
        if (d->transform_8x8_mode && decide(d, kCtxTransform8x8 + count_flags(d, kTransform8x8))) {
            mb->kind = kMbIntra8x8;
        }
        ModeField fields[16];
        read_mode_fields(d, fields, mode_field_count(mb->kind));
        mb_set_modes(d, fields);
    } else {
        mb_set_intra16(d, mb_type);
    }
    if (d->sets.monochrome) {
        mb->chroma_mode = kIntraChromaNone;
        mb->flags |= kChromaModeNonzero;
    } else {
        const uint32_t mode = read_chroma_mode(d);
        if (mode != 0) mb->flags |= kChromaModeNonzero;
        mb->chroma_mode = chroma_table_mode(mode, mb->available);
    }
    if (mb_type == 0) mb->cbp = read_coded_block_pattern(d);
}

// H.264 9.3.2.7. A magnitude above 104 is far outside -26 to 25: the stream is broken.
static int32_t read_qp_delta(AvcDecoder* d) {
    int context = kCtxQpDelta + d->mb.qp_delta_coded;
    int32_t k = 0;
    while (decide(d, context)) {
        context = k == 0 ? kCtxQpDelta + 2 : kCtxQpDelta + 3;
        if (++k > 104) {
            d->mb.has_error = 1;
            return 0;
        }
    }
    return k & 1 ? (k + 1) >> 1 : -(k >> 1);
}

// A block between its neighbours' coded_block_flags.
static ResidualCount read_coded_block(AvcDecoder* d, ResidualCategory category, bool left, bool top,
                                      const ResidualTarget& target) {
    const ResidualCount count =
        cabac_read_block(&d->cabac, d->contexts, category, left + 2 * top, target);
    if (count.total < 0) d->mb.has_error = 1;
    return count;
}

// With finer quantisers than this the maps of 8x8 blocks are too dense to be predicted. Blocks of
// 4x4 are so at any rate.
static constexpr int kDenseQp = 23;

static void read_luma_8x8(AvcDecoder* d, int quadrant) {
    AvcMacroblock* const mb = &d->mb;
    const ResidualTarget target = {kScan8x8.data(), d->quantiser.scale8x8,
                                   mb->coefficients + quadrant * 64};
    const bool is_dense = d->quantiser.qp < kDenseQp;
    const ResidualCount count = cabac_read_block_8x8(&d->cabac, d->contexts, is_dense, target);
    if (count.total < 0) mb->has_error = 1;
    mb->coded_mask |= luma_bit(4 * quadrant);
    if (count.end > 1) mb->ac_mask |= luma_bit(4 * quadrant);
    MbNeighbour* const top = &d->columns[mb->x];
    const int x = (quadrant & 1) * 2;
    const int y = quadrant & 2;
    top->luma[x] = top->luma[x + 1] = d->left.luma[y] = d->left.luma[y + 1] = 1;
}

static void read_luma_4x4(AvcDecoder* d, int block, ResidualCategory category,
                          ResidualTarget target) {
    AvcMacroblock* const mb = &d->mb;
    uint8_t* const top = &d->columns[mb->x].luma[block_x(block)];
    uint8_t* const left = &d->left.luma[block_y(block)];
    target.coefficients = mb->coefficients + block * 16;
    const ResidualCount count = read_coded_block(d, category, *left != 0, *top != 0, target);
    *top = *left = count.total != 0;
    if (count.total == 0) return;
    mb->coded_mask |= luma_bit(block);
    if (category == kCatLumaAc || count.end > 1) mb->ac_mask |= luma_bit(block);
}

static void read_luma(AvcDecoder* d) {
    AvcMacroblock* const mb = &d->mb;
    const bool is_ac = mb->kind == kMbIntra16x16;
    const AvcScale& scale = d->quantiser.scale4x4[kCompY];
    ResidualTarget target = {kScan4x4.data(), scale, nullptr};
    if (is_ac) target = {kScan4x4.data() + 1, {scale.factors + 1, scale.add, scale.shift}, nullptr};
    for (int quadrant = 0; quadrant < 4; ++quadrant) {
        if (!(mb->cbp >> quadrant & 1)) {
            mb_clear_quadrant(d, quadrant);
        } else if (mb->kind == kMbIntra8x8) {
            read_luma_8x8(d, quadrant);
        } else {
            for (int i = 0; i < 4; ++i) {
                read_luma_4x4(d, 4 * quadrant + i, is_ac ? kCatLumaAc : kCatLuma4x4, target);
            }
        }
    }
}

static void read_chroma_dc(AvcDecoder* d, int c, uint8_t flag) {
    int16_t levels[4] = {};
    const ResidualTarget target = {kRasterScan, kUnitScale, levels};
    const bool left = d->left.flags & flag;
    const bool top = d->columns[d->mb.x].flags & flag;
    if (read_coded_block(d, kCatChromaDc, left, top, target).total == 0) return;
    d->mb.flags |= flag;
    mb_set_chroma_dc(d, c, levels);
}

static void read_chroma_ac(AvcDecoder* d, int c) {
    AvcMacroblock* const mb = &d->mb;
    const AvcScale& scale = d->quantiser.scale4x4[1 + c];
    for (int b = 0; b < 4; ++b) {
        uint8_t* const top = &d->columns[mb->x].chroma[c][b & 1];
        uint8_t* const left = &d->left.chroma[c][b >> 1];
        const ResidualTarget target = {kScan4x4.data() + 1,
                                       {scale.factors + 1, scale.add, scale.shift},
                                       mb->coefficients + (16 + 4 * c + b) * 16};
        const ResidualCount count =
            read_coded_block(d, kCatChromaAc, *left != 0, *top != 0, target);
        *top = *left = count.total != 0;
        if (count.total != 0) {
            mb->coded_mask |= chroma_bit(c, b);
            mb->ac_mask |= chroma_bit(c, b);
        }
    }
}

void cabac_read_residual(AvcDecoder* d) {
    AvcMacroblock* const mb = &d->mb;
    const int32_t mb_qp_delta = read_qp_delta(d);
    mb->qp_delta_coded = mb_qp_delta != 0;
    if (mb_qp_delta != 0) quantiser_update(&d->quantiser, mb_qp_delta);
    if (mb->kind == kMbIntra16x16) {
        int16_t levels[16] = {};
        const ResidualTarget target = {kZigzag4x4.data(), kUnitScale, levels};
        const bool left = d->left.flags & kLumaDcCoded;
        const bool top = d->columns[mb->x].flags & kLumaDcCoded;
        if (read_coded_block(d, kCatLumaDc, left, top, target).total != 0) {
            mb->flags |= kLumaDcCoded;
            mb_set_luma_dc(d, levels);
        }
    }
    read_luma(d);
    if (mb->cbp & 0x30) {
        read_chroma_dc(d, 0, kCbDcCoded);
        read_chroma_dc(d, 1, kCrDcCoded);
    }
    if (mb->cbp & 0x20) {
        read_chroma_ac(d, 0);
        read_chroma_ac(d, 1);
    } else {
        mb_clear_chroma(d);
    }
}
