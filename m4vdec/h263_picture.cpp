// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/h263_picture.h"

#include "m4vdec/h263_headers.h"
#include "m4vdec/m4v_deblock.h"
#include "m4vdec/m4v_intra_block.h"
#include "runtime/owned.h"

namespace {

struct PictureDecoder {
    M4vBlockDecoder blocks;
    H263Picture header;
    const M4vPicture* picture;
    M4vEdgeRows edges;
    M4vNeighbours near;        // of the macroblock that is decoded, with advanced intra coding
    Owned<uint8_t> quants;     // of each macroblock; 0 until it is decoded
    Owned<uint32_t> segments;  // of each macroblock, with independent segments only
    uint32_t decoded;          // macroblocks so far
    uint32_t segment_number;   // from 1
    uint32_t x, y;             // the next macroblock
    uint32_t begin_x, end_x;   // of the rows of the segment
    int quant;                 // of luma
};

}  // namespace

static void start_segment(PictureDecoder* d, const H263Segment& segment) {
    ++d->segment_number;
    d->quant = segment.quant;
    d->x = segment.first_mb % d->picture->width_mbs;
    d->y = segment.first_mb / d->picture->width_mbs;
    d->begin_x = segment.is_rectangular ? d->x : 0;
    d->end_x = segment.is_rectangular ? d->x + segment.width_mbs : d->picture->width_mbs;
}

// DQUANT (5.3.6), or its modified form (T.2).
static int read_dquant(PictureDecoder* d) {
    static const int8_t kDquant[4] = {-1, -2, 1, 2};
    static const struct {
        int8_t last_quant;
        int8_t change[2];
    } kSmallSteps[] = {{1, {2, 1}},   {10, {-1, 1}}, {20, {-2, 2}}, {28, {-3, 3}},
                       {29, {-3, 2}}, {30, {-3, 1}}, {31, {-3, -5}}};
    BitReader* const bits = &d->blocks.bits;
    if (!d->header.has_modified_quant) {
        d->quant = clip3(1, 31, d->quant + kDquant[bits_read(bits, 2)]);
        return 0;
    }
    if (!bits_read_1(bits)) {
        d->quant = static_cast<int>(bits_read(bits, 5));
        return d->quant == 0;
    }
    const auto* step = kSmallSteps;
    while (d->quant > step->last_quant) ++step;
    d->quant += step->change[bits_read_1(bits)];
    return 0;
}

// I.2: "0", "10" and "11", after MCBPC.
static M4vAicMode read_intra_mode(BitReader* bits) {
    if (bits_take(bits, 1) == 0) return M4vAicMode::kDcOnly;
    return bits_take(bits, 1) ? M4vAicMode::kHorizontal : M4vAicMode::kVertical;
}

static int decode_blocks(PictureDecoder* d, M4vAicMode mode, unsigned cbp) {
    const int chroma_quant =
        d->header.has_modified_quant ? h263_chroma_quant(static_cast<uint8_t>(d->quant)) : d->quant;
    const bool has_advanced_intra = d->header.has_advanced_intra;
    __attribute__((uninitialized)) M4vTarget targets[6];
    d->picture->locate_blocks(d->x, d->y, false, targets);
    if (has_advanced_intra) {
        m4v_enter_macroblock(&d->edges, d->x, d->y, d->segment_number, &d->near);
    }
    for (unsigned n = 0; n < 6; ++n) {
        const bool is_coded = cbp >> (5 - n) & 1;
        d->blocks.quant = n < 4 ? d->quant : chroma_quant;
        const int failed =
            has_advanced_intra
                ? m4v_decode_aic_block(&d->blocks, d->near, mode, n, is_coded, targets[n])
                : m4v_decode_h263_block(&d->blocks, is_coded, targets[n]);
        if (failed) return 1;
    }
    return bits_overrun(&d->blocks.bits);
}

// Marks the macroblock as decoded and steps to the next one of the segment.
static int finish_macroblock(PictureDecoder* d) {
    const uint32_t address = d->y * d->picture->width_mbs + d->x;
    if (d->quants[address] != 0) return 1;  // segments overlap
    d->quants[address] = static_cast<uint8_t>(d->quant);
    if (d->segments) d->segments[address] = d->segment_number;
    ++d->decoded;
    if (++d->x == d->end_x) {
        d->x = d->begin_x;
        ++d->y;
    }
    return 0;
}

static int decode_macroblock(PictureDecoder* d) {
    BitReader* const bits = &d->blocks.bits;
    const unsigned mcbpc = m4v_read_mcbpc(bits);
    if (mcbpc == kMcbpcStuffing) return bits_overrun(bits);
    if (mcbpc == kMcbpcInvalid || d->y == d->picture->height_mbs) return 1;
    M4vAicMode mode = M4vAicMode::kDcOnly;
    if (d->header.has_advanced_intra) mode = read_intra_mode(bits);
    const unsigned cbpy = m4v_read_cbpy(bits);
    if (cbpy > 15) return 1;
    if ((mcbpc & kMcbpcQuant) && read_dquant(d)) return 1;
    return decode_blocks(d, mode, cbpy << 2 | (mcbpc & 3)) || finish_macroblock(d);
}

static int decode_segments(PictureDecoder* d) {
    const uint32_t total = d->picture->total_mbs();
    while (d->decoded < total) {
        if (h263_is_at_start_code(&d->blocks.bits)) {
            H263Segment segment;
            if (h263_parse_segment(&d->blocks.bits, d->header, &segment)) return 1;
            start_segment(d, segment);
        }
        if (decode_macroblock(d)) return 1;
    }
    return 0;
}

static void select_tables(PictureDecoder* d) {
    const bool is_extended = d->header.has_modified_quant;
    if (d->header.has_advanced_intra) {
        d->blocks.tcoef = is_extended ? &kTcoefAicExtended : &kTcoefAic;
    } else {
        d->blocks.tcoef = is_extended ? &kTcoefH263Extended : &kTcoefH263;
    }
}

static int create_buffers(PictureDecoder* d) {
    const uint32_t total = d->picture->total_mbs();
    d->quants = owned_calloc<uint8_t>(total);
    if (!d->quants || m4v_create_edge_rows(d->picture->width_mbs, &d->edges)) return 1;
    if (!d->header.has_deblocking || !d->header.has_independent_segments) return 0;
    d->segments = owned_calloc<uint32_t>(total);
    return d->segments == nullptr;
}

static M4vRefusal decode_picture(const uint8_t* data, size_t length, const M4vPicture& picture,
                                 M4vIdctFn idct, bool has_variant_slices) {
    PictureDecoder d = {};
    H263Segment first;
    d.picture = &picture;
    d.blocks.bits = bits_start(data, length);
    d.blocks.idct = idct;
    const M4vRefusal refusal = h263_parse_picture(&d.blocks.bits, &d.header);
    if (refusal != M4vRefusal::kNone) return refusal;
    if (d.header.width_mbs() != picture.width_mbs || d.header.height_mbs() != picture.height_mbs) {
        return M4vRefusal::kSizeChange;
    }
    if (has_variant_slices && !d.header.has_slices) return M4vRefusal::kDamagedData;
    d.header.has_variant_slices = has_variant_slices;
    if (h263_parse_first_segment(&d.blocks.bits, d.header, &first)) {
        return m4v_refusal_of_data(d.blocks.bits);
    }
    if (create_buffers(&d)) return M4vRefusal::kNoMemory;
    select_tables(&d);
    start_segment(&d, first);
    if (decode_segments(&d)) return m4v_refusal_of_data(d.blocks.bits);
    if (d.header.has_deblocking) {
        m4v_deblock(picture, {d.quants.get(), d.segments.get(), d.header.has_modified_quant});
    }
    return M4vRefusal::kNone;
}

M4vRefusal h263_decode_picture(const uint8_t* data, size_t length, const M4vPicture& picture,
                               M4vIdctFn idct) {
    const M4vRefusal refusal = decode_picture(data, length, picture, idct, false);
    const bool is_data = refusal == M4vRefusal::kDamagedData || refusal == M4vRefusal::kCutOff;
    if (!is_data || picture.total_mbs() < kVariantMacroblocks) return refusal;
    const M4vRefusal of_variant = decode_picture(data, length, picture, idct, true);
    return of_variant == M4vRefusal::kNone ? of_variant : refusal;
}
