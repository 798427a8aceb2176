// SPDX-License-Identifier: BSD-2-Clause
// The transforms of DC levels (H.264 8.5.10, 8.5.11.1). The block transforms are kernels.
#pragma once

#include <stdint.h>

// 4x4 Hadamard transform of the Intra 16x16 luma DC levels; both in raster order.
void transform_luma_dc(const int16_t* levels, int32_t* dc);

// 2x2 transform of the chroma DC levels of one component; both in raster order.
void transform_chroma_dc(const int16_t* levels, int32_t* dc);
