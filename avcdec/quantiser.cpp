// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/quantiser.h"

#include <assert.h>
#include <stddef.h>
#include <string.h>

#include "avcdec/parameter_sets.h"
#include "avcdec/quant_tables.h"

static ScalingListState list_state(const ScalingLists& lists, int i) {
    return static_cast<ScalingListState>(lists.state >> 2 * i & 3);
}

// One list by the fall-back rules of H.264 Table 7-2: what a set does not send comes from fallback.
static const uint8_t* pick_list(const ScalingLists& lists, int i, const uint8_t* sent,
                                const uint8_t* fallback, const uint8_t* standard) {
    switch (list_state(lists, i)) {
        case kListExplicit:
            return sent;
        case kListDefault:
            return standard;
        default:
            return fallback;
    }
}

// The weights of intra Y, Cb, Cr 4x4 and of intra Y 8x8 blocks, in scan order.
struct IntraWeights {
    const uint8_t* list4x4[3];
    const uint8_t* list8x8;
};

static IntraWeights pick_lists(const ScalingLists& lists, const uint8_t* fallback4x4,
                               const uint8_t* fallback8x8) {
    IntraWeights w;
    for (int i = 0; i < 3; ++i) {
        const uint8_t* const fallback = i == 0 ? fallback4x4 : w.list4x4[i - 1];
        w.list4x4[i] = pick_list(lists, i, lists.list4x4[i], fallback, kDefaultIntra4x4.data());
    }
    w.list8x8 = pick_list(lists, 6, lists.list8x8[0], fallback8x8, kDefaultIntra8x8.data());
    return w;
}

// Fall-back rule A (the defaults) for an SPS and for a PPS above an SPS without matrices, else
// rule B (the lists of the SPS).
static IntraWeights intra_weights(const AvcSps* sps, const AvcPps* pps) {
    IntraWeights w = {{}, kDefaultIntra8x8.data()};
    w.list4x4[0] = kDefaultIntra4x4.data();
    if (sps->seq_scaling_matrix_present_flag) {
        w = pick_lists(sps->scaling, kDefaultIntra4x4.data(), kDefaultIntra8x8.data());
    }
    if (pps->pic_scaling_matrix_present_flag) w = pick_lists(pps->scaling, w.list4x4[0], w.list8x8);
    return w;
}

// Lists come in the order of the frame's scan, whatever the picture is.
static void place_weights(AvcQuantiser* q, const IntraWeights& w) {
    for (size_t i = 0; i < kScan4x4.size(); ++i) {
        for (int c = 0; c < 3; ++c) q->weights4x4[c][kScan4x4[i]] = w.list4x4[c][i];
    }
    for (size_t i = 0; i < kScan8x8.size(); ++i) q->weights8x8[kScan8x8[i]] = w.list8x8[i];
}

static const Table64& scan8x8(bool is_field, bool is_interleaved) {
    if (is_field) return is_interleaved ? kFieldScan8x8Interleaved : kFieldScan8x8;
    return is_interleaved ? kScan8x8Interleaved : kScan8x8;
}

void quantiser_apply_parameter_sets(AvcQuantiser* q, const AvcSps* sps, const AvcPps* pps,
                                    bool is_field) {
    q->is_field = is_field;
    q->is_flat = !sps->seq_scaling_matrix_present_flag && !pps->pic_scaling_matrix_present_flag;
    q->chroma_offset[0] = pps->chroma_qp_index_offset;
    q->chroma_offset[1] = pps->second_chroma_qp_index_offset;
    // Kept on purpose: flat-sixteenths
    // Flat matrices with unequal offsets take the rounded product over factors without the weight
    // of 16, and come out at a sixteenth of the standard's value. This is meant so.
    q->is_rounded = !q->is_flat || q->chroma_offset[0] != q->chroma_offset[1];
    q->has_8x8 = pps->transform_8x8_mode_flag;
    q->is_interleaved = !pps->entropy_coding_mode_flag;
    if (q->is_flat) {
        memset(q->weights4x4, 1, sizeof q->weights4x4);
        memset(q->weights8x8, 1, sizeof q->weights8x8);
    } else {
        place_weights(q, intra_weights(sps, pps));
    }
    q->scales[kScaleLumaDc] = (is_field ? kFieldLumaDcScale : kLumaDcScale).data();
    q->scales[kScaleChromaDc] = kChromaDcScale.data();
    memset(q->built4x4, 0, sizeof q->built4x4);
    q->built8x8 = 0;
}

// LevelScale of each place, shifted, in the order of the scan.
template <size_t kCount>
static const AvcScaleEntry* fill_entries(AvcScaleEntry (*entries)[kCount],
                                         const std::array<uint8_t, kCount>& norm_adjust,
                                         const uint8_t (&weights)[kCount], int shift,
                                         const std::array<uint8_t, kCount>& scan) {
    for (size_t i = 0; i < kCount; ++i) {
        const uint32_t place = scan[i];
        (*entries)[i] = {static_cast<uint32_t>(norm_adjust[place] * weights[place]) << shift,
                         place};
    }
    return *entries;
}

static const AvcScaleEntry* make_scale4x4(AvcQuantiser* q, int component, int qp) {
    assert(qp >= 0 && qp <= 51 && component >= kCompY && component <= kCompCr);
    const uint64_t bit = uint64_t{1} << qp;
    if (q->built4x4[component] & bit) return q->entries4x4[component][qp];
    q->built4x4[component] |= bit;
    const int shift = qp / 6 + (q->is_rounded ? 2 : 6);
    return fill_entries(&q->entries4x4[component][qp], kNormAdjust4x4[qp % 6],
                        q->weights4x4[component], shift, q->is_field ? kFieldScan4x4 : kScan4x4);
}

static const AvcScaleEntry* make_scale8x8(AvcQuantiser* q, int qp) {
    assert(qp >= 0 && qp <= 51);
    const uint64_t bit = uint64_t{1} << qp;
    if (q->built8x8 & bit) return q->entries8x8[qp];
    q->built8x8 |= bit;
    const int shift = q->is_flat ? qp / 6 + 4 : qp / 6;  // the weight of 16 that flat tables omit
    return fill_entries(&q->entries8x8[qp], kNormAdjust8x8[qp % 6], q->weights8x8, shift,
                        scan8x8(q->is_field, q->is_interleaved));
}

static int dc_level_scale(const AvcQuantiser& q, int component, int qp) {
    return kNormAdjust4x4[qp % 6][0] * q.weights4x4[component][0];
}

// Of luma, or of a component that is coded like it.
static void set_luma_dc_scale(AvcQuantiser* q, int component, int qp) {
    const int luma_shift = q->is_flat ? qp / 6 + 4 : qp / 6;
    const bool is_rounded = luma_shift < 6;
    q->dc[kCompY] = {dc_level_scale(*q, component, qp)
                         << (is_rounded ? luma_shift : luma_shift - 6),
                     is_rounded ? 32 : 0, is_rounded ? 6 : 0};
}

static void set_dc_scales(AvcQuantiser* q) {
    set_luma_dc_scale(q, kCompY, q->qp);
    for (int c = 0; c < 2; ++c) {
        const int shift = q->chroma_qp[c] / 6 + (q->is_flat ? 4 : 0);
        q->dc[1 + c] = {dc_level_scale(*q, 1 + c, q->chroma_qp[c]) << shift, 0, 5};
    }
}

uint8_t quantiser_chroma_qp(const AvcQuantiser* q, int qp, int cr) {
    assert(qp >= 0 && qp <= 51 && (cr == 0 || cr == 1));
    assert(q->chroma_offset[cr] >= -12 && q->chroma_offset[cr] <= 12);
    return kChromaQp[12 + qp + q->chroma_offset[cr]];
}

void quantiser_set_qp(AvcQuantiser* q, int32_t qp) {
    if (qp < 0) qp += 52;
    if (qp > 51) qp -= 52;
    q->qp = static_cast<uint8_t>(qp < 0 ? 0 : qp > 51 ? 51 : qp);
    for (int c = 0; c < 2; ++c) q->chroma_qp[c] = quantiser_chroma_qp(q, q->qp, c);
    q->scales[kCompY] = make_scale4x4(q, kCompY, q->qp);
    q->scales[kCompCb] = make_scale4x4(q, kCompCb, q->chroma_qp[0]);
    q->scales[kCompCr] = make_scale4x4(q, kCompCr, q->chroma_qp[1]);
    if (q->has_8x8) q->scales[kScale8x8] = make_scale8x8(q, q->qp);
    set_dc_scales(q);
}

void quantiser_use_plane(AvcQuantiser* q, int plane) {
    const int qp = plane == 0 ? q->qp : q->chroma_qp[plane - 1];
    q->scales[kCompY] = make_scale4x4(q, plane, qp);
    if (q->has_8x8) q->scales[kScale8x8] = make_scale8x8(q, qp);
    set_luma_dc_scale(q, plane, qp);
}

void quantiser_update(AvcQuantiser* q, int32_t mb_qp_delta) {
    quantiser_set_qp(q, q->qp + mb_qp_delta);
}
