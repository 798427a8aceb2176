// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/parameter_set_store.h"

#include <string.h>

#include "runtime/owned.h"

AvcRefused avc_store_sps(AvcParameterSets* sets, AvcBitReader* r) {
    AvcSps sps;
    if (const AvcRefused refused = avc_read_sps(r, &sps, sets->allows_more_formats)) return refused;
    // The last parsed set of a profile that codes the chroma format decides, active or not.
    if (sps.high_profile_syntax) sets->monochrome = sps.chroma_format_idc == 0;

    AvcSps** const slot = &sets->sps[sps.seq_parameter_set_id];
    if (!*slot) {
        *slot = static_cast<AvcSps*>(upnp_calloc(1, sizeof(AvcSps)));
        if (!*slot) return {AvcRefusal::kNoMemory};
    }
    const bool is_active = *slot == sets->active_sps;
    if (is_active && (sps.width != (*slot)->width || sps.height != (*slot)->height)) {
        return {AvcRefusal::kPictureSize};
    }
    // Its scaling lists may be new.
    if (is_active && sets->active_pps) sets->active_pps->changed = 1;
    **slot = sps;
    sets->last_sps = *slot;
    return {};
}

// What the tables of the quantiser are made of; an unused list is zeros.
static bool has_same_scaling(const AvcPps& a, const AvcPps& b) {
    return a.entropy_coding_mode_flag == b.entropy_coding_mode_flag &&
           a.transform_8x8_mode_flag == b.transform_8x8_mode_flag &&
           a.chroma_qp_index_offset == b.chroma_qp_index_offset &&
           a.second_chroma_qp_index_offset == b.second_chroma_qp_index_offset &&
           a.pic_scaling_matrix_present_flag == b.pic_scaling_matrix_present_flag &&
           memcmp(&a.scaling, &b.scaling, sizeof a.scaling) == 0;
}

AvcRefused avc_store_pps(AvcParameterSets* sets, AvcBitReader* r) {
    AvcPps pps;
    if (const AvcRefused refused = avc_read_pps(r, sets->sps, &pps)) return refused;
    AvcPps** const slot = &sets->pps[pps.pic_parameter_set_id];
    const bool is_new = !*slot;
    if (is_new) {
        *slot = static_cast<AvcPps*>(upnp_calloc(1, sizeof(AvcPps)));
        if (!*slot) return {AvcRefusal::kNoMemory};
    }
    pps.changed = is_new || (*slot)->changed || !has_same_scaling(**slot, pps);
    **slot = pps;
    return {};
}

AvcRefused avc_refusal_of_pps(const AvcParameterSets& sets, uint32_t pic_parameter_set_id) {
    const AvcPps* const pps = sets.pps[pic_parameter_set_id];
    const AvcSps* const sps = pps ? sets.sps[pps->seq_parameter_set_id] : nullptr;
    if (!sps) return {AvcRefusal::kNoPictureSet, pic_parameter_set_id};
    if (sps->chroma_format_idc == 3 && pps->has_chroma_8x8_lists) {
        return {AvcRefusal::kChromaFormat, sps->chroma_format_idc};
    }
    return avc_refusal_at_activation(*sps);
}

void avc_release_sets(AvcParameterSets* sets) {
    for (AvcSps* const sps : sets->sps) {
        if (sps) upnp_free(sps);
    }
    for (AvcPps* const pps : sets->pps) {
        if (pps) upnp_free(pps);
    }
}
