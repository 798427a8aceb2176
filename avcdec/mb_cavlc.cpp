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

static ModeField read_mode_field(AvcBitReader* r) {
    bits_need(r, 4);
    const uint32_t field = bits_cached(r, 4);
    const bool prev_intra_pred_mode_flag = field & 8;
    bits_drop(r, prev_intra_pred_mode_flag ? 1 : 4);
    return prev_intra_pred_mode_flag ? ModeField{-1} : static_cast<ModeField>(field);
}

uint32_t cavlc_read_prediction(AvcDecoder* d) {
    AvcMacroblock* const mb = &d->mb;
    AvcBitReader* const r = &d->bits;
    const uint32_t mb_type = bits_ue(r);
    if (mb_type >= kMbTypePcm) return kMbTypePcm;
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
    return mb_type;
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

// The scan and the scale of the list of a block in its group. With the 8x8 transform the blocks of
// a quadrant are the interleaved lists of one block.
static ResidualTarget target_of(AvcDecoder* d, const BlockGroup& group, int i, int first) {
    AvcMacroblock* const mb = &d->mb;
    if (group.component == kCompY && mb->kind == kMbIntra8x8) {
        const AvcScale& scale = d->quantiser.scale8x8;
        return {kScan8x8Interleaved.data() + i * 16,
                {scale.factors + i * 16, scale.add, scale.shift},
                mb->coefficients + group.block * 16};
    }
    const AvcScale& scale = d->quantiser.scale4x4[group.component];
    return {kScan4x4.data() + first,
            {scale.factors + first, scale.add, scale.shift},
            mb->coefficients + (group.block + i) * 16};
}

static void read_group(AvcDecoder* d, const BlockGroup& group) {
    AvcMacroblock* const mb = &d->mb;
    const bool is_8x8 = group.component == kCompY && mb->kind == kMbIntra8x8;
    const int first = group.component != kCompY || mb->kind == kMbIntra16x16;
    for (int i = 0; i < 4; ++i) {
        const ResidualCount count = read_block(d, &d->left.blocks[group.left + (i >> 1)],
                                               &d->columns[mb->x].blocks[group.top + (i & 1)],
                                               16 - first, target_of(d, group, i, first));
        if (count.total == 0) continue;
        const uint32_t bit = block_bit(group.block + (is_8x8 ? 0 : i));
        mb->coded_mask |= bit;
        if (first + count.end + (is_8x8 ? i : 0) > 1) mb->ac_mask |= bit;
    }
}

static void read_dc(AvcDecoder* d, const BlockGroup& group) {
    AvcMacroblock* const mb = &d->mb;
    int16_t* const levels = mb->coefficients + group.block * 16;
    const bool is_luma = group.component == kCompY;
    const int nc = is_luma ? block_nc(d->left.blocks[0], d->columns[mb->x].blocks[0]) : kChromaDcNc;
    const ResidualTarget target = {is_luma ? kZigzag4x4.data() : kRasterScan, kUnitScale, levels};
    const ResidualCount count = cavlc_read_block(&d->bits, nc, is_luma ? 16 : 4, target);
    if (count.total < 0) mb->has_error = 1;
    if (count.total > 0) mb->coded_mask |= block_bit(group.block);
}

void cavlc_read_residual(AvcDecoder* d) {
    AvcMacroblock* const mb = &d->mb;
    const int32_t mb_qp_delta = bits_se(&d->bits);
    if (mb_qp_delta != 0) quantiser_update(&d->quantiser, mb_qp_delta);
    const uint32_t groups = mb_coded_groups(*mb);
    for (int g = 0; g < kBlockGroups; ++g) {
        const BlockGroup& group = kBlockGroupTable[g];
        if (!(groups >> g & 1)) {
            mb_set_group(d, group, 0);
        } else if (group.block >= kDcBlock) {
            read_dc(d, group);
        } else {
            read_group(d, group);
        }
    }
    mb_set_dc(d);
}
