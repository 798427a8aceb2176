// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/macroblock.h"

#include <string.h>

#include <algorithm>
#include <initializer_list>

#include "avcdec/avc_decoder.h"
#include "avcdec/intra_modes.h"
#include "avcdec/reconstruct.h"
#include "avcdec/transform.h"

// What blocks see of a macroblock that is not there. For CABAC its blocks count as coded, its luma
// pattern as full and everything else as 0 (H.264 9.3.3.1.1).
static constexpr MbNeighbour kMissingCavlc = {
    {-1, -1, -1, -1},
    {kCountMissing, kCountMissing, kCountMissing, kCountMissing, kCountMissing, kCountMissing,
     kCountMissing, kCountMissing},
    0x0f,
    0,
};
static constexpr MbNeighbour kMissingCabac = {
    {-1, -1, -1, -1},
    {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
    0x0f,
    0,
};

void mb_set_modes(AvcDecoder* d, const int8_t* fields) {
    MbNeighbour* const top = &d->columns[d->mb.x];
    if (d->mb.kind == kMbIntra8x8) {
        derive_intra8x8_modes(&d->mb, fields, top, &d->left);
    } else {
        derive_intra4x4_modes(&d->mb, fields, top, &d->left);
    }
}

void mb_set_intra16(AvcDecoder* d, uint32_t mb_type) {
    AvcMacroblock* const mb = &d->mb;
    const uint32_t t = mb_type - 1;
    mb->kind = kMbIntra16x16;
    mb->intra16_mode = intra16_table_mode(t & 3, mb->available);
    const uint32_t chroma = d->sets.monochrome ? 0 : (t >> 2) % 3 << 4;
    mb->cbp = static_cast<uint8_t>(chroma | (t < 12 ? 0 : 15));
    memset(d->columns[mb->x].modes, kIntraDc, 4);
    memset(d->left.modes, kIntraDc, 4);
}

uint32_t mb_coded_groups(const AvcMacroblock& mb) {
    uint32_t groups = (mb.cbp & 15U) << kGroupQuadrants;
    if (mb.kind == kMbIntra16x16) groups |= 1;
    if (mb.cbp & 0x30) groups |= 3U << kGroupCbDc;
    if (mb.cbp & 0x20) groups |= 3U << kGroupCb;
    return groups;
}

void mb_set_group(AvcDecoder* d, const BlockGroup& group, uint8_t value) {
    uint8_t* const left = d->left.blocks + group.left;
    uint8_t* const top = d->columns[d->mb.x].blocks + group.top;
    left[0] = top[0] = value;
    if (group.count > 1) left[1] = top[1] = value;
}

static void set_luma_dc(AvcDecoder* d, const int16_t* levels) {
    AvcMacroblock* const mb = &d->mb;
    int32_t dc[16];
    transform_luma_dc(levels, dc);
    const AvcScale& scale = d->quantiser.luma_dc;
    for (int b = 0; b < 16; ++b) {
        const int32_t value = dc[block_y(b) * 4 + block_x(b)];
        mb->coefficients[b * 16] = scale_level(value, scale.factors[0], scale);
    }
    mb->coded_mask |= kLumaMask;
}

static void set_chroma_dc(AvcDecoder* d, int c, const int16_t* levels) {
    AvcMacroblock* const mb = &d->mb;
    int32_t dc[4];
    transform_chroma_dc(levels, dc);
    const AvcScale& scale = d->quantiser.chroma_dc[c];
    for (int b = 0; b < 4; ++b) {
        mb->coefficients[(16 + 4 * c + b) * 16] = scale_level(dc[b], scale.factors[0], scale);
    }
    mb->coded_mask |= kCbMask >> 4 * c;
}

void mb_set_dc(AvcDecoder* d) {
    AvcMacroblock* const mb = &d->mb;
    int16_t* const levels = mb->coefficients + kDcBlock * 16;
    if (mb->coded_mask & block_bit(kDcBlock)) {
        set_luma_dc(d, levels);
        memset(levels, 0, 16 * sizeof *levels);
    }
    for (int c = 0; c < 2; ++c) {
        if (!(mb->coded_mask & block_bit(kDcBlock + 1 + c))) continue;
        int16_t* const chroma_levels = levels + 16 * (1 + c);
        set_chroma_dc(d, c, chroma_levels);
        memset(chroma_levels, 0, 4 * sizeof *levels);
    }
}

static void set_counts(AvcDecoder* d, uint8_t count) {
    memset(d->columns[d->mb.x].blocks, count, sizeof d->left.blocks);
    memset(d->left.blocks, count, sizeof d->left.blocks);
}

static bool is_last_of_picture(const AvcDecoder* d) {
    return d->next_mb + 1 == d->sets.active_sps->pic_size_in_mbs;
}

// Copies the samples of an I_PCM macroblock from the stream and starts the entropy coder behind
// them. A monochrome macroblock has luma samples only.
static void read_pcm(AvcDecoder* d) {
    AvcMacroblock* const mb = &d->mb;
    const size_t position =
        d->is_cabac ? cabac_position(&d->cabac, d->bits.start) : bits_position(&d->bits);
    const size_t from = (position + 7) / 8;
    const size_t length = static_cast<size_t>(d->bits.end - d->bits.start);
    const size_t size = d->sets.monochrome ? 256 : 384;
    mb->kind = kMbPcm;
    const size_t first = std::min(from, length);
    const size_t there = std::min(length - first, size);
    uint8_t padded[384] = {};
    if (there < size) memcpy(padded, d->bits.start + first, there);
    reconstruct_pcm(d, there < size ? padded : d->bits.start + first);
    bits_seek(&d->bits, (first + there) * 8);
    bits_skip(&d->bits, static_cast<uint32_t>(size - there) * 8);  // counts as read
    if (d->is_cabac) cabac_init_engine(d);
    memset(d->columns[mb->x].modes, kIntraDc, 4);
    memset(d->left.modes, kIntraDc, 4);
    set_counts(d, d->is_cabac ? 1 : 16);
    mb->cbp = 0x2f;
    mb->flags = 0;
    mb->qp_delta_coded = 0;
}

static void read_macroblock(AvcDecoder* d) {
    AvcMacroblock* const mb = &d->mb;
    const uint32_t mb_type = (d->is_cabac ? cabac_read_prediction : cavlc_read_prediction)(d);
    if (mb_type == kMbTypePcm) {
        read_pcm(d);
    } else if (mb->cbp == 0 && mb->kind != kMbIntra16x16) {
        set_counts(d, 0);
        mb->qp_delta_coded = 0;
        reconstruct_macroblock(d);
    } else {
        (d->is_cabac ? cabac_read_residual : cavlc_read_residual)(d);
        reconstruct_macroblock(d);
    }
    if (mb->kind == kMbIntra16x16 || mb->kind == kMbPcm) mb->flags |= kNotINxN;
    if (mb->kind == kMbIntra8x8) mb->flags |= kTransform8x8;
    for (MbNeighbour* const n : {&d->columns[mb->x], &d->left}) {
        n->cbp = mb->cbp;
        n->flags = mb->flags;
    }
}

// Slices are runs of consecutive addresses, so a neighbour is in the slice when its address is.
static uint8_t find_available(const AvcDecoder* d) {
    const uint32_t width = d->picture.width_mbs;
    const uint32_t x = d->mb.x;
    // Macroblocks of the slice before this one.
    const uint32_t since = d->next_mb - d->slice.first_mb_in_slice;
    uint8_t available = 0;
    if (x > 0 && since >= 1) available |= kHasLeft;
    if (since >= width) available |= kHasTop;
    if (x + 1 < width && since + 1 >= width) available |= kHasTopRight;
    if (x > 0 && since >= width + 1) available |= kHasTopLeft;
    return available;
}

static void begin_macroblock(AvcDecoder* d) {
    AvcMacroblock* const mb = &d->mb;
    mb->available = find_available(d);
    mb->cbp = 0;
    mb->flags = 0;
    mb->coded_mask = 0;
    mb->ac_mask = 0;
    const MbNeighbour& missing = d->is_cabac ? kMissingCabac : kMissingCavlc;
    if (!(mb->available & kHasLeft)) d->left = missing;
    if (!(mb->available & kHasTop)) d->columns[mb->x] = missing;
}

static uint8_t deblock_flags(const AvcDecoder* d) {
    const uint8_t idc = d->slice.disable_deblocking_filter_idc;
    uint8_t flags = kDeblockDecoded;
    if (d->mb.kind == kMbIntra8x8) flags |= kDeblockTransform8x8;
    if (d->sets.monochrome) flags |= kDeblockMonochrome;
    if (idc == 1) return flags;
    flags |= kDeblockInner;
    if (idc == 0 || d->mb.available & kHasLeft) flags |= kDeblockLeft;
    if (idc == 0 || d->mb.available & kHasTop) flags |= kDeblockTop;
    return flags;
}

static void note_for_deblocking(const AvcDecoder* d, DeblockRecord* record) {
    const AvcSliceHeader& slice = d->slice;
    record->qp = d->mb.kind == kMbPcm ? 0 : d->quantiser.qp;
    record->flags = deblock_flags(d);
    record->offset_a = static_cast<int8_t>(slice.slice_alpha_c0_offset_div2 * 2);
    record->offset_b = static_cast<int8_t>(slice.slice_beta_offset_div2 * 2);
    record->chroma_offset[0] = d->quantiser.chroma_offset[0];
    record->chroma_offset[1] = d->quantiser.chroma_offset[1];
}

// True when the reader has used bits that the slice does not have.
static bool is_overrun(const AvcDecoder* d) {
    if (!d->is_cabac) return bits_overrun(&d->bits);
    const size_t length = static_cast<size_t>(d->bits.end - d->bits.start);
    return cabac_position(&d->cabac, d->bits.start) > length * 8;
}

// Whether another macroblock follows in the slice.
static bool has_more_macroblocks(AvcDecoder* d, int* overrun) {
    if (d->is_cabac) return cabac_decode_terminate(&d->cabac);
    return bits_more_rbsp_data(&d->bits, overrun);
}

static int refuse(AvcDecoder* d, bool is_cut_off) {
    memset(d->mb.coefficients, 0, sizeof d->mb.coefficients);  // a bad block may have left some
    d->refused = {is_cut_off ? AvcRefusal::kSliceCutOff : AvcRefusal::kSliceData};
    return 1;
}

int avc_decode_slice_data(AvcDecoder* d) {
    const uint32_t size = d->sets.active_sps->pic_size_in_mbs;
    picture_skip_to(d, d->slice.first_mb_in_slice);
    if (d->is_cabac) {
        bits_align(&d->bits);
        cabac_init_slice(d);
    }
    d->mb.has_error = 0;
    d->mb.qp_delta_coded = 0;
    for (;;) {
        begin_macroblock(d);
        read_macroblock(d);
        // What the last macroblock lacks reads as zeros; before it, the slice is cut off.
        if (d->mb.has_error || (is_overrun(d) && !is_last_of_picture(d))) {
            return refuse(d, is_overrun(d));
        }
        note_for_deblocking(d, picture_record(d));
        picture_macroblock_done(d);
        if (d->next_mb == size) return 0;
        int overrun = 0;
        if (!has_more_macroblocks(d, &overrun)) return overrun ? refuse(d, true) : 0;
    }
}
