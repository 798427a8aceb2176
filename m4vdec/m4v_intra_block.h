// SPDX-License-Identifier: BSD-2-Clause
// One intra block: coefficients from the stream, dequantised as they are read, prediction of DC and
// AC, transform into the picture.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "m4vdec/m4v_edges.h"
#include "m4vdec/m4v_idct.h"
#include "m4vdec/m4v_picture.h"
#include "m4vdec/m4v_refusal.h"
#include "m4vdec/m4v_scan.h"
#include "m4vdec/m4v_vlc.h"
#include "runtime/bits.h"

// Working state of a picture; lives on the stack for the alignment of the block.
struct M4vBlockDecoder {
    alignas(16) int16_t coef[64];  // all zero between blocks
    BitReader bits;
    M4vIdctFn idct;
    const TcoefTable* tcoef;
    const uint8_t* matrix;  // by position, for MPEG quantisation; else null
    int quant;              // 1 to 31, of the blocks that follow
};

enum class M4vDcCoding : uint8_t {
    kOwn,        // the DC has its own code in front of the block's events
    kEvents,     // it is the first of the block's events
    kPartition,  // its difference was in an earlier partition
};

// Why what the reader came upon is not valid. With fewer bits left than the longest code has, that
// was cut off.
inline M4vRefusal m4v_refusal_of_data(const BitReader& bits) {
    const ptrdiff_t in_cache = bits.available - static_cast<ptrdiff_t>(bits.padding_bits);
    const bool is_near_end = (bits.end - bits.next) * 8 + in_cache < kMostBitsRead;
    return is_near_end ? M4vRefusal::kCutOff : M4vRefusal::kDamagedData;
}

// What the blocks of an MPEG-4 macroblock have in common.
struct M4vIntraMb {
    M4vNeighbours near;
    const M4vScan* fixed_scan;  // null: the scan follows the prediction
    M4vDcCoding dc_coding;
    bool ac_pred_flag;
    const int16_t* dc_differences;  // six, with kPartition
};

// The six blocks of an MPEG-4 macroblock, four of Y, Cb, Cr. Returns 1 on a syntax error; overrun
// is the caller's to test. The same for single blocks below.
//   cbp      which are coded, the first at bit 5
//   targets  where they go
[[nodiscard]] int m4v_decode_intra_blocks(M4vBlockDecoder* d, const M4vIntraMb& mb, unsigned cbp,
                                          const M4vTarget targets[6]);

// A block of H.263 or with a short video header: DC with 8 bits, no prediction.
[[nodiscard]] int m4v_decode_h263_block(M4vBlockDecoder* d, bool is_coded, M4vTarget target);

// H.263 Annex I.
enum class M4vAicMode : uint8_t { kDcOnly, kVertical, kHorizontal };
[[nodiscard]] int m4v_decode_aic_block(M4vBlockDecoder* d, const M4vNeighbours& near,
                                       M4vAicMode mode, unsigned n, bool is_coded,
                                       M4vTarget target);
