// SPDX-License-Identifier: BSD-2-Clause
// Inverse quantisation (H.264 8.5.9 to 8.5.13): from a level to a scaled coefficient with one
// multiply. Factors are kept per QP, already shifted and in scan order, and made when a QP is first
// met, so that a changing QP costs nothing.
#pragma once

#include <stdint.h>

#include "avcdec/residual_target.h"

struct AvcSps;
struct AvcPps;

enum AvcComponent { kCompY = 0, kCompCb = 1, kCompCr = 2 };

// The scales of a macroblock's blocks: AvcComponent for 4x4 blocks, and these. Levels of DC blocks
// are kept as they are coded until their own transform.
enum AvcBlockScale { kScale8x8 = 3, kScaleLumaDc, kScaleChromaDc, kBlockScales };

// How a value of a DC transform becomes a coefficient: (value * factor + add) >> shift.
struct AvcDcScale {
    int32_t factor;
    int32_t add;
    int32_t shift;
};

// The result is kept in 16 bits; products wrap.
inline int16_t scale_dc(int32_t value, const AvcDcScale& scale) {
    const uint32_t product = static_cast<uint32_t>(value) * static_cast<uint32_t>(scale.factor);
    return static_cast<int16_t>(static_cast<int32_t>(product + static_cast<uint32_t>(scale.add)) >>
                                scale.shift);
}

struct AvcQuantiser {
    uint8_t qp;  // luma, 0 to 51
    uint8_t chroma_qp[2];
    uint8_t is_flat;     // no scaling matrix is in force
    uint8_t is_rounded;  // 4x4 blocks take the rounded product
    uint8_t has_8x8;
    uint8_t is_interleaved;  // 8x8 factors in the order of four interleaved lists (CAVLC)
    uint8_t is_field;        // of the picture: factors are in the order of the field scan
    int8_t chroma_offset[2];
    const AvcScaleEntry* scales[kBlockScales];  // at the current QP
    AvcDcScale dc[3];                           // by component

    uint8_t weights4x4[3][16];  // weightScale by place in the block; 1 when flat
    uint8_t weights8x8[64];
    uint64_t built4x4[3];  // bit q: the factors of QP q are made
    uint64_t built8x8;
    AvcScaleEntry entries4x4[3][52][16];
    AvcScaleEntry entries8x8[52][64];
};

// Takes over the matrices and offsets of the active parameter sets, for frames or fields, and drops
// all factors; the next quantiser_set_qp makes new ones.
void quantiser_apply_parameter_sets(AvcQuantiser* q, const AvcSps* sps, const AvcPps* pps,
                                    bool is_field);

// Sets the luma QP. Outside 0 to 51 it wraps by 52 once, then saturates.
void quantiser_set_qp(AvcQuantiser* q, int32_t qp);

// mb_qp_delta: moves on from the current QP, with the same wrap.
void quantiser_update(AvcQuantiser* q, int32_t mb_qp_delta);

// Has blocks of luma scaled as those of Cb (1) and Cr (2) of 4:4:4 are, or as luma is (0) again, at
// the current QP.
void quantiser_use_plane(AvcQuantiser* q, int plane);

// QPc of a luma QP for Cb (0) or Cr (1).
uint8_t quantiser_chroma_qp(const AvcQuantiser* q, int qp, int cr);
