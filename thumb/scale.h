// SPDX-License-Identifier: BSD-2-Clause
// Nearest-neighbour scaling of 4:2:0 pictures in 16.16 fixed point, two rows and two columns at a
// time: an odd destination is scaled as if it were one sample larger. An odd width also moves every
// pair of rows one byte further to the right than the pair above.
#pragma once

#include <stdint.h>

#include "thumb/plane_block.h"

// Scales all planes; source and destination may be the same when both sides shrink. Strides are
// luma pitches in bytes, even. The planes must be good for the extents below.
void ScaleYuv420Nearest(const uint8_t* src_y, const uint8_t* src_u, const uint8_t* src_v,
                        uint8_t* dst_y, uint8_t* dst_u, uint8_t* dst_v, int32_t src_width,
                        int32_t src_height, int32_t src_stride, int32_t dst_width,
                        int32_t dst_height, int32_t dst_stride);

// How far the scaler reads and writes. All sides are at least 1.
PlaneExtent scale_source_extent(PictureSize from, PictureSize to, int32_t src_stride);
PlaneExtent scale_target_extent(PictureSize to, int32_t dst_stride);
