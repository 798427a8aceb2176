// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/avc_instance.h"

static int refuse(AvcDecoder* d, AvcRefused refused) {
    d->refused = refused;
    return refused ? 1 : 0;
}

int avc_parse_sps(AvcBitReader* r, AvcDecoder* d) { return refuse(d, avc_store_sps(&d->sets, r)); }

int avc_parse_pps(AvcBitReader* r, AvcDecoder* d) { return refuse(d, avc_store_pps(&d->sets, r)); }

void avc_release_work(AvcDecoder* d) {
    slice_reader_release(&d->slice);
    picture_release(&d->picture);
}

static int activate_sps(AvcDecoder* d, AvcSps* sps) {
    avc_release_work(d);
    d->sets.active_sps = nullptr;
    picture_begin(&d->picture);
    const auto width_mbs = static_cast<uint16_t>(sps->width_mbs);
    const auto height_mbs = static_cast<uint16_t>(sps->height_mbs);
    if (slice_reader_allocate(&d->slice, width_mbs, sps->chroma_format_idc == 3) != 0 ||
        picture_allocate(&d->picture, width_mbs, height_mbs) != 0) {
        avc_release_work(d);
        return refuse(d, {AvcRefusal::kNoMemory});
    }
    d->sets.active_sps = sps;
    return 0;
}

static void apply_pps(AvcDecoder* d) {
    const AvcPps* const pps = d->sets.active_pps;
    d->slice.is_cabac = pps->entropy_coding_mode_flag;
    d->slice.transform_8x8_mode = pps->transform_8x8_mode_flag;
    d->slice.monochrome = d->sets.monochrome || d->slice.chroma_444;
}

int avc_activate_pps(AvcDecoder* d, uint32_t pic_parameter_set_id) {
    const AvcRefused refused = avc_refusal_of_pps(d->sets, pic_parameter_set_id);
    if (refused) return refuse(d, refused);
    AvcPps* const pps = d->sets.pps[pic_parameter_set_id];
    AvcSps* const sps = d->sets.sps[pps->seq_parameter_set_id];
    if (pps != d->sets.active_pps || sps != d->sets.active_sps) pps->changed = 1;
    d->sets.active_pps = pps;
    if (sps != d->sets.active_sps && activate_sps(d, sps)) return 1;
    apply_pps(d);
    return 0;
}

int avc_parse_slice_header(AvcBitReader* r, AvcDecoder* d) {
    AvcSliceHeader h = {};
    h.all_slices_same_type = d->picture.next_mb != 0 && d->slice.header.all_slices_same_type;
    if (refuse(d, avc_read_slice_identity(r, d->nal, &h))) return 1;
    if (avc_activate_pps(d, h.pic_parameter_set_id)) return 1;
    AvcPps* const pps = d->sets.active_pps;
    if (refuse(d, avc_read_slice_fields(r, d->nal, *d->sets.active_sps, *pps, &h))) return 1;
    AvcQuantiser* const q = &d->slice.quantiser;
    if (pps->changed || q->is_field != h.field_pic_flag) {
        quantiser_apply_parameter_sets(q, d->sets.active_sps, pps, h.field_pic_flag);
    }
    d->slice.header = h;
    d->slice.slice_qp = pps->pic_init_qp + h.slice_qp_delta;
    quantiser_set_qp(q, d->slice.slice_qp);
    pps->changed = 0;
    return 0;
}

void cabac_init_slice(AvcDecoder* d) {
    AvcSliceReader* const s = &d->slice;
    cabac_init_contexts(kCabacInitI, s->contexts, s->slice_qp, kCabacContexts);
    if (s->header.field_pic_flag) {
        cabac_init_contexts(kCabacInitField, s->contexts + kCtxSignificant, s->slice_qp,
                            kCtxAbsLevel - kCtxSignificant);
        cabac_init_contexts(kCabacInitField8x8, s->contexts + kCtxSignificant8x8, s->slice_qp,
                            kCtxAbsLevel8x8 - kCtxSignificant8x8);
    }
    if (s->chroma_444) {
        s->chroma_444->has_old_flags = d->has_old_flags;
        chroma_444_start_contexts(s->chroma_444, s->contexts);
    }
    slice_reader_start_cabac(s);
}
