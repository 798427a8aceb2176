// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/slice_data.h"

#include <string.h>

#include <algorithm>

#include "avcdec/intra_modes.h"
#include "avcdec/mb_cabac.h"
#include "avcdec/mb_cavlc.h"
#include "avcdec/reconstruct.h"
#include "avcdec/residual_cabac.h"
#include "avcdec/residual_cavlc.h"

// What blocks see of a macroblock that is not there. For CABAC its blocks count as coded, its luma
// pattern as full and everything else as 0 (H.264 9.3.3.1.1).
static constexpr MbNeighbour kMissing = {
    ~CodedGrid{0},
    {-1, -1, -1, -1},
    {kCountMissing, kCountMissing, kCountMissing, kCountMissing, kCountMissing, kCountMissing,
     kCountMissing, kCountMissing},
    0x0f,
    0,
};

// For macroblocks without coded blocks, or without any syntax of blocks.
static void set_blocks(AvcSliceReader* s, bool is_coded, uint8_t count) {
    for (MbNeighbour* const side : {s->top, &s->left}) {
        side->coded = is_coded ? ~CodedGrid{0} : 0;
        memset(side->counts, count, sizeof side->counts);
    }
}

static bool is_at_last(const AvcPictureInProgress& picture) {
    return picture.next_mb + 1 == picture_size(picture);
}

// Both planes of chroma of 4:4:4 leave behind what luma has left.
static void set_blocks_of_planes(AvcSliceReader* s, uint32_t column) {
    chroma_444_set_left(s->chroma_444, s->left);
    chroma_444_set_top(s->chroma_444, column, *s->top);
}

// Copies the samples of an I_PCM macroblock from the stream and starts the entropy coder after
// them. A monochrome macroblock has luma samples only, one of 4:4:4 as many of chroma.
static void read_pcm(AvcSliceReader* s, const AvcPictureInProgress& picture) {
    AvcMacroblock* const mb = &s->mb;
    const size_t position =
        s->is_cabac ? cabac_position(&s->cabac, s->bits.start) : bits_position(&s->bits);
    const size_t from = (position + 7) / 8;
    const size_t length = static_cast<size_t>(s->bits.end - s->bits.start);
    const size_t size = s->chroma_444 ? 768 : s->monochrome ? 256 : 384;
    mb->kind = MbKind::kPcm;
    const size_t first = std::min(from, length);
    const size_t there = std::min(length - first, size);
    uint8_t padded[768] = {};
    if (there < size) memcpy(padded, s->bits.start + first, there);
    reconstruct_pcm(picture, there < size ? padded : s->bits.start + first, s->monochrome);
    bits_seek(&s->bits, (first + there) * 8);
    bits_skip(&s->bits, static_cast<uint32_t>(size - there) * 8);  // counts as read
    if (s->is_cabac) slice_reader_start_cabac(s);
    memset(s->top->modes, kIntraDc, 4);
    memset(s->left.modes, kIntraDc, 4);
    set_blocks(s, true, 16);
    mb->cbp = 0x2f;
    mb->flags = 0;
    mb->qp_delta_coded = 0;
}

// Cb (1) or Cr (2) of a macroblock of 4:4:4.
static void read_chroma_plane(AvcSliceReader* s, const AvcPictureInProgress& picture, int plane,
                              bool has_residual) {
    const auto exchange = [&] {
        chroma_444_exchange(s->chroma_444, plane - 1, picture.x, &s->left, s->top,
                            s->is_cabac ? s->contexts : nullptr);
    };
    exchange();
    s->chroma_444->plane = plane;
    quantiser_use_plane(&s->quantiser, plane);
    s->mb.coded_mask = 0;
    s->mb.ac_mask = 0;
    if (has_residual) (s->is_cabac ? cabac_read_plane : cavlc_read_plane)(s);
    reconstruct_plane(picture, &s->mb, plane);
    exchange();
    s->chroma_444->plane = 0;
    quantiser_use_plane(&s->quantiser, 0);
}

// The planes of a macroblock of 4:4:4 come one after the other.
static void read_planes(AvcSliceReader* s, const AvcPictureInProgress& picture) {
    AvcMacroblock* const mb = &s->mb;
    const bool has_residual = mb->cbp != 0 || mb->kind == MbKind::kIntra16x16;
    if (has_residual) {
        (s->is_cabac ? cabac_read_residual : cavlc_read_residual)(s);
    } else {
        set_blocks(s, false, 0);
        set_blocks_of_planes(s, picture.x);
        mb->qp_delta_coded = 0;
    }
    reconstruct_plane(picture, mb, 0);
    for (int plane = 1; plane < 3; ++plane) read_chroma_plane(s, picture, plane, has_residual);
}

static void read_macroblock(AvcSliceReader* s, const AvcPictureInProgress& picture) {
    AvcMacroblock* const mb = &s->mb;
    const uint32_t mb_type = (s->is_cabac ? cabac_read_prediction : cavlc_read_prediction)(s);
    if (mb_type == kMbTypePcm) {
        read_pcm(s, picture);
        if (s->chroma_444) set_blocks_of_planes(s, picture.x);
    } else if (s->chroma_444) {
        read_planes(s, picture);
    } else if (mb->cbp == 0 && mb->kind != MbKind::kIntra16x16) {
        set_blocks(s, false, 0);
        mb->qp_delta_coded = 0;
        reconstruct_macroblock(picture, mb);
    } else {
        (s->is_cabac ? cabac_read_residual : cavlc_read_residual)(s);
        reconstruct_macroblock(picture, mb);
    }
    if (mb->kind == MbKind::kIntra16x16 || mb->kind == MbKind::kPcm) mb->flags |= kNotINxN;
    if (mb->kind == MbKind::kIntra8x8) mb->flags |= kTransform8x8;
    s->top->cbp = s->left.cbp = mb->cbp;
    s->top->flags = s->left.flags = mb->flags;
}

// Slices are runs of consecutive addresses, so a neighbour is in the slice when its address is.
static uint8_t find_available(const AvcSliceReader* s, const AvcPictureInProgress& picture) {
    const uint32_t width = picture.planes.width_mbs;
    const uint32_t x = picture.x;
    // Macroblocks of the slice before this one.
    const uint32_t since = picture.next_mb - s->header.first_mb_in_slice;
    uint8_t available = 0;
    if (x > 0 && since >= 1) available |= kHasLeft;
    if (since >= width) available |= kHasTop;
    if (x + 1 < width && since + 1 >= width) available |= kHasTopRight;
    if (x > 0 && since >= width + 1) available |= kHasTopLeft;
    return available;
}

static void begin_macroblock(AvcSliceReader* s, const AvcPictureInProgress& picture) {
    AvcMacroblock* const mb = &s->mb;
    mb->available = find_available(s, picture);
    s->top = s->columns + picture.x;
    mb->cbp = 0;
    mb->flags = 0;
    mb->coded_mask = 0;
    mb->ac_mask = 0;
    if (!(mb->available & kHasLeft)) s->left = kMissing;
    if (!(mb->available & kHasTop)) *s->top = kMissing;
    if (s->chroma_444) [[unlikely]] {
        if (!(mb->available & kHasLeft)) chroma_444_set_left(s->chroma_444, kMissing);
        if (!(mb->available & kHasTop)) chroma_444_set_top(s->chroma_444, picture.x, kMissing);
    }
}

static uint8_t deblock_flags(const AvcSliceReader* s) {
    const uint8_t idc = s->header.disable_deblocking_filter_idc;
    uint8_t flags = kDeblockDecoded;
    if (s->mb.kind == MbKind::kIntra8x8) flags |= kDeblockTransform8x8;
    if (s->monochrome) flags |= kDeblockMonochrome;
    if (idc == 1) return flags;
    flags |= kDeblockInner;
    if (idc == 0 || s->mb.available & kHasLeft) flags |= kDeblockLeft;
    if (idc == 0 || s->mb.available & kHasTop) flags |= kDeblockTop;
    return flags;
}

static void note_for_deblocking(const AvcSliceReader* s, DeblockRecord* record) {
    const AvcSliceHeader& header = s->header;
    const AvcQuantiser& q = s->quantiser;
    const bool is_pcm = s->mb.kind == MbKind::kPcm;
    record->qp[0] = is_pcm ? 0 : q.qp;
    for (int c = 0; c < 2; ++c) {
        record->qp[1 + c] = is_pcm ? quantiser_chroma_qp(&q, 0, c) : q.chroma_qp[c];
    }
    record->flags = deblock_flags(s);
    record->offset_a = static_cast<int8_t>(header.slice_alpha_c0_offset_div2 * 2);
    record->offset_b = static_cast<int8_t>(header.slice_beta_offset_div2 * 2);
}

// True when the reader has used bits that the slice does not have.
static bool is_overrun(const AvcSliceReader* s) {
    if (!s->is_cabac) return bits_overrun(&s->bits);
    const size_t length = static_cast<size_t>(s->bits.end - s->bits.start);
    return cabac_position(&s->cabac, s->bits.start) > length * 8;
}

// Whether another macroblock follows in the slice.
static bool has_more_macroblocks(AvcSliceReader* s, int* overrun) {
    if (s->is_cabac) return cabac_decode_terminate(&s->cabac);
    return bits_more_rbsp_data(&s->bits, overrun);
}

// Two readings of 8x8 blocks of 4:4:4 are in use (kAvcOldFlags). The wrong one seldom meets what is
// no syntax, but does not end where the data does.
[[gnu::cold]] static bool is_misread(const AvcSliceReader* s) {
    constexpr size_t kMostLeft = 32;  // bits: the terminating bin and what follows it
    const size_t length = static_cast<size_t>(s->bits.end - s->bits.start);
    const size_t position = cabac_position(&s->cabac, s->bits.start);
    return position > length * 8 || position + kMostLeft < length * 8;
}

// Decodes macroblocks up to the end of the slice or of the picture.
static AvcRefused decode_macroblocks(AvcSliceReader* s, AvcPictureInProgress* picture) {
    const uint32_t size = picture_size(*picture);
    for (;;) {
        begin_macroblock(s, *picture);
        read_macroblock(s, *picture);
        // What the last macroblock lacks reads as zeros; before it, the slice is cut off.
        if (s->mb.has_error || (is_overrun(s) && !is_at_last(*picture))) {
            return {is_overrun(s) ? AvcRefusal::kSliceCutOff : AvcRefusal::kSliceData};
        }
        note_for_deblocking(s, picture_record(picture));
        picture_macroblock_done(picture);
        if (picture->next_mb == size) return {};
        int overrun = 0;
        if (has_more_macroblocks(s, &overrun)) continue;
        return {overrun ? AvcRefusal::kSliceCutOff : AvcRefusal::kNone};
    }
}

AvcRefused avc_decode_slice_data(AvcSliceReader* s, AvcPictureInProgress* picture) {
    picture_skip_to(picture, s->header.first_mb_in_slice);
    s->mb.dc_scales = s->quantiser.dc;
    s->mb.has_error = 0;
    s->mb.qp_delta_coded = 0;
    AvcRefused refused = decode_macroblocks(s, picture);
    if (!refused && s->chroma_444 && s->is_cabac && s->transform_8x8_mode && is_misread(s)) {
        refused = {AvcRefusal::kSliceData};
    }
    // A bad block may have left some.
    if (refused) memset(s->mb.coefficients, 0, sizeof s->mb.coefficients);
    return refused;
}
