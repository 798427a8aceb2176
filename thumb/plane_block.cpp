// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/plane_block.h"

#include <assert.h>
#include <string.h>

#include <algorithm>
#include <utility>

uint64_t plane_block_length(PictureSize size) {
    assert(size.width >= 0 && size.height >= 0);
    return static_cast<uint64_t>(align16(size.width)) *
           static_cast<uint64_t>(align16(size.height)) * 3 / 2;
}

int plane_block_create(PictureSize size, PlaneBlock* block) {
    const uint64_t length = plane_block_length(size);
    Owned<uint8_t> bytes = owned_calloc<uint8_t>(length);
    if (!bytes) return 1;
    block->bytes = std::move(bytes);
    block->length = length;
    block->y_offset = 0;
    block->u_offset = length / 3 * 2;
    block->v_offset = length / 3 * 2 + length / 6;
    block->pitch = static_cast<int32_t>(align16(size.width));
    block->rows = static_cast<int32_t>(align16(size.height));
    return 0;
}

int plane_block_reserve(PlaneBlock* block, PlaneExtent extent) {
    const uint64_t length =
        std::max({block->y_offset + extent.luma, block->u_offset + extent.chroma,
                  block->v_offset + extent.chroma});
    if (length <= block->length) return 0;
    Owned<uint8_t> longer = owned_malloc<uint8_t>(length);
    if (!longer) return 1;
    memcpy(longer.get(), block->bytes.get(), block->length);
    const uint64_t row_length = static_cast<uint64_t>(block->pitch) / 2;
    for (uint64_t i = block->length; i < length; ++i) longer[i] = longer[i - row_length];
    block->bytes = std::move(longer);
    block->length = length;
    return 0;
}

YuvPlanes plane_block_planes(const PlaneBlock& block) {
    uint8_t* const bytes = block.bytes.get();
    return {bytes + block.y_offset, bytes + block.u_offset, bytes + block.v_offset};
}
