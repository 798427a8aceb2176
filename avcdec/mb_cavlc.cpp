// SPDX-License-Identifier: BSD-2-Clause
// Macroblock syntax in CAVLC (H.264 7.3.5, 9.1.2, 9.2).
#include "avcdec/avc_decoder.h"
#include "avcdec/intra_modes.h"
#include "avcdec/quant_tables.h"
#include "avcdec/residual_cavlc.h"

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

uint32_t cavlc_read_mb_type(AvcDecoder* d) {
    const uint32_t mb_type = bits_ue(&d->bits);
    return mb_type < 25 ? mb_type : 25;
}

static ModeField read_mode_field(AvcBitReader* r) {
    bits_need(r, 4);
    const uint32_t field = bits_cached(r, 4);
    const bool prev_intra_pred_mode_flag = field & 8;
    bits_drop(r, prev_intra_pred_mode_flag ? 1 : 4);
    return prev_intra_pred_mode_flag ? ModeField{-1} : static_cast<ModeField>(field);
}

void cavlc_read_prediction(AvcDecoder* d, uint32_t mb_type) {
    AvcMacroblock* const mb = &d->mb;
    AvcBitReader* const r = &d->bits;
    if (mb_type == 0) {
        mb->kind = d->transform_8x8_mode && bits_read_1(r) ? kMbIntra8x8 : kMbIntra4x4;
        ModeField fields[16];
        for (int b = 0; b < mode_field_count(mb->kind); ++b) fields[b] = read_mode_field(r);
        mb_set_modes(d, fields);
    } else {
        mb_set_intra16(d, mb_type);
    }
    if (d->sets.monochrome) {
        mb->chroma_mode = kIntraChromaNone;
    } else {
        const uint32_t mode = bits_ue(r);
        if (mode > kIntraChromaNone) mb->has_error = 1;
        mb->chroma_mode = chroma_table_mode(mode & 7, mb->available);
    }
    if (mb_type == 0) {
        const uint32_t code = bits_ue(r);
        mb->cbp =
            d->sets.monochrome ? kCodedBlockPatternMono[code % 16] : kCodedBlockPattern[code % 64];
    }
}

// H.264 9.2.1. Each count is 0 to 16, or kCountMissing.
static int block_nc(uint32_t left, uint32_t top) {
    const uint32_t sum = left + top;
    // With both there, the rounded mean; else the one that is there, or 0.
    return static_cast<int>(sum < kCountMissing ? (sum + 1) >> 1 : sum & 31);
}

// Reads one block between its neighbours' counts and replaces them by its own.
static ResidualCount read_block(AvcDecoder* d, uint8_t* left, uint8_t* top, int max_coefficients,
                                const ResidualTarget& target) {
    ResidualCount count =
        cavlc_read_block(&d->bits, block_nc(*left, *top), max_coefficients, target);
    if (count.total < 0) {
        d->mb.has_error = 1;
        count = {0, 0};
    }
    *left = *top = static_cast<uint8_t>(count.total);
    return count;
}

// The four blocks of a quadrant. With the 8x8 transform they are the interleaved lists of one
// block, whose scan is not the same for all.
static void read_quadrant(AvcDecoder* d, int quadrant) {
    AvcMacroblock* const mb = &d->mb;
    const bool is_ac = mb->kind == kMbIntra16x16;
    const bool is_8x8 = mb->kind == kMbIntra8x8;
    const AvcScale& scale = is_8x8 ? d->quantiser.scale8x8 : d->quantiser.scale4x4[kCompY];
    const uint8_t* const scan = is_8x8 ? kScan8x8Interleaved.data() : kScan4x4.data() + is_ac;
    for (int i = 0; i < 4; ++i) {
        const int block = 4 * quadrant + i;
        const int list = is_8x8 ? i * 16 : 0;
        const ResidualTarget target = {
            scan + list,
            {scale.factors + list + is_ac, scale.add, scale.shift},
            mb->coefficients + (is_8x8 ? quadrant * 64 : block * 16),
        };
        const ResidualCount count =
            read_block(d, &d->left.luma[block_y(block)], &d->columns[mb->x].luma[block_x(block)],
                       is_ac ? 15 : 16, target);
        if (count.total == 0) continue;
        const uint32_t bit = luma_bit(is_8x8 ? 4 * quadrant : block);
        mb->coded_mask |= bit;
        if (is_ac || list != 0 || count.end > 1) mb->ac_mask |= bit;
    }
}

static void read_chroma_dc(AvcDecoder* d, int c) {
    int16_t levels[4] = {};
    const ResidualTarget target = {kRasterScan, kUnitScale, levels};
    const ResidualCount count = cavlc_read_block(&d->bits, kChromaDcNc, 4, target);
    if (count.total < 0) d->mb.has_error = 1;
    if (count.total > 0) mb_set_chroma_dc(d, c, levels);
}

static void read_chroma_ac(AvcDecoder* d, int c) {
    AvcMacroblock* const mb = &d->mb;
    const AvcScale& scale = d->quantiser.scale4x4[1 + c];
    for (int b = 0; b < 4; ++b) {
        const ResidualTarget target = {kScan4x4.data() + 1,
                                       {scale.factors + 1, scale.add, scale.shift},
                                       mb->coefficients + (16 + 4 * c + b) * 16};
        const ResidualCount count = read_block(d, &d->left.chroma[c][b >> 1],
                                               &d->columns[mb->x].chroma[c][b & 1], 15, target);
        if (count.total == 0) continue;
        mb->coded_mask |= chroma_bit(c, b);
        mb->ac_mask |= chroma_bit(c, b);
    }
}

void cavlc_read_residual(AvcDecoder* d) {
    AvcMacroblock* const mb = &d->mb;
    const int32_t mb_qp_delta = bits_se(&d->bits);
    if (mb_qp_delta != 0) quantiser_update(&d->quantiser, mb_qp_delta);
    if (mb->kind == kMbIntra16x16) {
        int16_t levels[16] = {};
        const ResidualTarget target = {kZigzag4x4.data(), kUnitScale, levels};
        const int nc = block_nc(d->left.luma[0], d->columns[mb->x].luma[0]);
        const ResidualCount count = cavlc_read_block(&d->bits, nc, 16, target);
        if (count.total < 0) mb->has_error = 1;
        if (count.total > 0) mb_set_luma_dc(d, levels);
    }
    for (int quadrant = 0; quadrant < 4; ++quadrant) {
        if (mb->cbp >> quadrant & 1) {
            read_quadrant(d, quadrant);
        } else {
            mb_clear_quadrant(d, quadrant);
        }
    }
    if (mb->cbp & 0x30) {
        read_chroma_dc(d, 0);
        read_chroma_dc(d, 1);
    }
    if (mb->cbp & 0x20) {
        read_chroma_ac(d, 0);
        read_chroma_ac(d, 1);
    } else {
        mb_clear_chroma(d);
    }
}
