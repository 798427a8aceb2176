// SPDX-License-Identifier: BSD-2-Clause
// Constant tables of scaling and scanning (H.264 8.5.6 to 8.5.9, 7.4.2.1.1.1), laid out in the
// order in which the inner loops consume them.
#pragma once

#include <stdint.h>

#include <array>

#include "avcdec/residual_target.h"

using Table16 = std::array<uint8_t, 16>;
using Table64 = std::array<uint8_t, 64>;

// Where the coefficient at a scan position lands in its block. Blocks are stored column by column:
// element x * 4 + y (x * 8 + y) is the coefficient of horizontal frequency x and vertical y.
extern const Table16 kScan4x4;
extern const Table64 kScan8x8;
// The same for 8x8 blocks coded as four interleaved 4x4 lists: entry k * 16 + i is scan position
// 4 * i + k.
extern const Table64 kScan8x8Interleaved;

// The same of fields.
extern const Table16 kFieldScan4x4;
extern const Table64 kFieldScan8x8;
extern const Table64 kFieldScan8x8Interleaved;

// The scales of DC blocks: by list position, levels as they are in raster order.
extern const std::array<AvcScaleEntry, 16> kLumaDcScale;
extern const std::array<AvcScaleEntry, 16> kFieldLumaDcScale;
extern const std::array<AvcScaleEntry, 4> kChromaDcScale;

// normAdjust (H.264 8.5.9) per QP % 6, by place in the block.
extern const std::array<Table16, 6> kNormAdjust4x4;
extern const std::array<Table64, 6> kNormAdjust8x8;

// Default scaling lists of intra blocks (H.264 Tables 7-3, 7-4), in scan order.
extern const Table16 kDefaultIntra4x4;
extern const Table64 kDefaultIntra8x8;

// QPc by qPI + 12 (H.264 Table 8-15), where qPI = QPY + chroma_qp_index_offset is not clamped.
extern const uint8_t kChromaQp[12 + 52 + 12];
