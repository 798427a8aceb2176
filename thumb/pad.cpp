// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/pad.h"

#include <assert.h>
#include <string.h>

static void pad_columns(uint8_t* plane, int32_t rows, int32_t last_column, int32_t count,
                        int32_t pitch) {
    uint8_t* last = plane + last_column;
    for (int32_t row = 0; row < rows; ++row, last += pitch) {
        memset(last + 1, *last, static_cast<size_t>(count));
    }
}

static void pad_rows(uint8_t* plane, int32_t last_row, int32_t count, int32_t width,
                     int32_t pitch) {
    const uint8_t* const source = plane + static_cast<int64_t>(last_row) * pitch;
    uint8_t* target = plane + static_cast<int64_t>(last_row) * pitch;
    for (int32_t row = 0; row < count; ++row) {
        target += pitch;
        memcpy(target, source, static_cast<size_t>(width));
    }
}

static int32_t padded(int32_t side) { return static_cast<int32_t>(align16(side)); }

static void pad_all_columns(const YuvPlanes& planes, PictureSize size, int32_t pitch) {
    const int32_t count = padded(size.width) - size.width;
    const int32_t chroma_column = (size.width - 1) >> 1;
    pad_columns(planes.y, size.height, size.width - 1, count, pitch);
    pad_columns(planes.u, size.height >> 1, chroma_column, count >> 1, pitch >> 1);
    pad_columns(planes.v, size.height >> 1, chroma_column, count >> 1, pitch >> 1);
}

static void pad_all_rows(const YuvPlanes& planes, PictureSize size, int32_t pitch) {
    const int32_t width = padded(size.width);
    const int32_t count = padded(size.height) - size.height;
    // A single luma row has no whole chroma row: the one that was started is repeated.
    const int32_t chroma_row = size.height > 1 ? (size.height >> 1) - 1 : 0;
    pad_rows(planes.y, size.height - 1, count, width, pitch);
    pad_rows(planes.u, chroma_row, count >> 1, width >> 1, pitch >> 1);
    pad_rows(planes.v, chroma_row, count >> 1, width >> 1, pitch >> 1);
}

void pad_to_blocks(const YuvPlanes& planes, PictureSize size, int32_t pitch) {
    assert(size.width >= 1 && size.height >= 1 && size.width <= pitch);
    if (padded(size.width) > size.width) pad_all_columns(planes, size, pitch);
    if (padded(size.height) > size.height) pad_all_rows(planes, size, pitch);
}

PlaneExtent pad_extent(PictureSize size, int32_t pitch) {
    const uint64_t width = static_cast<uint64_t>(align16(size.width));
    const uint64_t height = static_cast<uint64_t>(align16(size.height));
    const uint64_t luma_pitch = static_cast<uint64_t>(pitch);
    return {(height - 1) * luma_pitch + width, (height / 2 - 1) * (luma_pitch / 2) + width / 2};
}
