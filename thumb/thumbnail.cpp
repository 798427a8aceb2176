// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/thumbnail.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "thumb/decode_key_frame.h"
#include "thumb/fit.h"
#include "thumb/jpeg_writer.h"
#include "thumb/pad.h"
#include "thumb/plane_block.h"
#include "thumb/scale.h"

// Takes over the decoder's block, in which V is as long as U and comes last.
static void take_planes(const DecodedPicture& picture, PlaneBlock* block) {
    block->bytes.reset(picture.planes);
    block->length = 2 * static_cast<uint64_t>(picture.v_offset) - picture.u_offset;
    block->y_offset = 0;
    block->u_offset = picture.u_offset;
    block->v_offset = picture.v_offset;
    block->pitch = static_cast<int32_t>(picture.stride);
    block->rows = static_cast<int32_t>(picture.height);
}

// Moves the planes to the crop window and cuts *size to it. Returns 1 when nothing is left.
static int crop(const DecodedPicture& picture, PlaneBlock* block, PictureSize* size) {
    if (!picture.cropped) return 0;
    const int64_t width = static_cast<int64_t>(picture.width) - picture.crop_left -
                          static_cast<int64_t>(picture.crop_right);
    const int64_t height = static_cast<int64_t>(picture.height) - picture.crop_top -
                           static_cast<int64_t>(picture.crop_bottom);
    if (width < 1 || height < 1) return 1;
    *size = {static_cast<int32_t>(width), static_cast<int32_t>(height)};
    const uint64_t skipped =
        static_cast<uint64_t>(picture.crop_top) * picture.stride + picture.crop_left;
    block->y_offset += skipped;
    // Kept on purpose: quarter-for-left-crop
    // A quarter is right for the rows above; columns on the left would take half.
    block->u_offset += skipped >> 2;
    block->v_offset += skipped >> 2;
    block->rows -= static_cast<int32_t>(picture.crop_top);
    return 0;
}

static bool is_same(PictureSize a, PictureSize b) {
    return a.width == b.width && a.height == b.height;
}

// Whether the scaled picture replaces its source.
static bool is_scaled_in_place(const PlaneBlock& block, PictureSize from, PictureSize to) {
    return from.width > to.width && from.height > to.height && align16(to.width) <= block.pitch &&
           align16(to.height) <= block.rows;
}

static void scale_planes(const PlaneBlock& from, PictureSize from_size, const PlaneBlock& to,
                         PictureSize to_size) {
    const YuvPlanes src = plane_block_planes(from);
    const YuvPlanes dst = plane_block_planes(to);
    ScaleYuv420Nearest(src.y, src.u, src.v, dst.y, dst.u, dst.v, from_size.width, from_size.height,
                       from.pitch, to_size.width, to_size.height, to.pitch);
}

// Replaces the picture by the scaled one. Returns 1 without memory.
static int scale(PictureSize from, PictureSize to, PlaneBlock* block) {
    if (plane_block_reserve(block, scale_source_extent(from, to, block->pitch)) != 0) return 1;
    if (is_scaled_in_place(*block, from, to)) {
        if (plane_block_reserve(block, scale_target_extent(to, block->pitch)) != 0) return 1;
        scale_planes(*block, from, *block, to);
        return 0;
    }
    PlaneBlock scaled;
    if (plane_block_create(to, &scaled) != 0) return 1;
    scale_planes(*block, from, scaled, to);
    *block = std::move(scaled);
    return 0;
}

// Whether the planes have to be moved to a block of whole 16x16 blocks before they can be padded.
static bool needs_new_home(const PlaneBlock& block, PictureSize picture, PictureSize fitted) {
    return ((block.pitch | block.rows) & 15) != 0 &&
           (picture.width < align16(fitted.width) || picture.height < align16(fitted.height));
}

// Kept on purpose: flat-runs
// Copies the planes as flat runs of bytes; a pitch that differs from the new one is not mended.
static int move_home(PictureSize fitted, PlaneBlock* block) {
    const uint64_t luma_run =
        static_cast<uint64_t>(block->pitch) * static_cast<uint64_t>(fitted.height);
    const uint64_t chroma_run = luma_run / 4;
    if (plane_block_reserve(block, {luma_run, chroma_run}) != 0) return 1;
    PlaneBlock home;
    if (plane_block_create(fitted, &home) != 0) return 1;
    if (plane_block_reserve(&home, {0, chroma_run}) != 0) return 1;
    const YuvPlanes from = plane_block_planes(*block);
    const YuvPlanes to = plane_block_planes(home);
    memcpy(to.y, from.y, std::min(luma_run, home.u_offset));
    memcpy(to.u, from.u, std::min(chroma_run, home.u_offset / 4));
    memcpy(to.v, from.v, chroma_run);
    *block = std::move(home);
    return 0;
}

static int pad(PictureSize picture, PictureSize fitted, PlaneBlock* block) {
    const bool is_whole = ((fitted.width | fitted.height) & 15) == 0;
    if (!is_whole && needs_new_home(*block, picture, fitted) && move_home(fitted, block) != 0) {
        return 1;
    }
    if (plane_block_reserve(block, pad_extent(fitted, block->pitch)) != 0) return 1;
    pad_to_blocks(plane_block_planes(*block), fitted, block->pitch);
    return 0;
}

static void copy_rows(uint8_t* to, ptrdiff_t to_pitch, const uint8_t* from, ptrdiff_t from_pitch,
                      int32_t rows) {
    for (; rows > 0; --rows, to += to_pitch, from += from_pitch) {
        memcpy(to, from, static_cast<size_t>(to_pitch));
    }
}

// Gives back most of a large picture that was scaled in place, before the JPEG library takes
// memory. Without memory for the copy the block stays as it is.
static void shrink(PictureSize fitted, PlaneBlock* block) {
    PlaneBlock small;
    const bool is_padded = static_cast<int32_t>(align16(fitted.width)) <= block->pitch &&
                           static_cast<int32_t>(align16(fitted.height)) <= block->rows;
    if (!is_padded || plane_block_length(fitted) > block->length / 2) return;
    if (plane_block_create(fitted, &small) != 0) return;
    const YuvPlanes from = plane_block_planes(*block);
    const YuvPlanes to = plane_block_planes(small);
    copy_rows(to.y, small.pitch, from.y, block->pitch, small.rows);
    copy_rows(to.u, small.pitch / 2, from.u, block->pitch / 2, small.rows / 2);
    copy_rows(to.v, small.pitch / 2, from.v, block->pitch / 2, small.rows / 2);
    *block = std::move(small);
}

static bool is_encodable(PictureSize size) {
    return size.width >= 1 && size.height >= 1 && size.width <= kJpegMaxSide &&
           size.height <= kJpegMaxSide;
}

// Scales and pads the picture to the fitted size, in a block not much larger than that, unless the
// JPEG writer will refuse the size in any case. Returns 1 without memory.
static int prepare(PictureSize picture, PictureSize fitted, PlaneBlock* block) {
    if (!is_encodable(fitted)) return plane_block_length(fitted) > kUpnpMaxBlock ? 1 : 0;
    if (!is_same(picture, fitted) && scale(picture, fitted, block) != 0) return 1;
    if (pad(picture, fitted, block) != 0) return 1;
    shrink(fitted, block);
    return 0;
}

static ThumbnailFailure write_file(const PlaneBlock& block, PictureSize fitted,
                                   const ThumbnailParams& params) {
    FILE* const file = fopen(params.output_path, "wb");
    if (!file) return ThumbnailFailure::kNotCreated;
    const YuvPlanes planes = plane_block_planes(block);
    const int status = WriteJpegYuv420(&planes, file, params.height, params.width, block.pitch,
                                       block.rows, params.quality);
    const bool is_written = fclose(file) == 0 && status == 0;
    if (!is_encodable(fitted)) return ThumbnailFailure::kSide;
    return is_written ? ThumbnailFailure::kNone : ThumbnailFailure::kNotWritten;
}

static ThumbnailFailure write_thumbnail(const KeyFrame& record, int32_t codec_kind,
                                        ThumbnailParams* params) {
    DecodedPicture picture = {};
    if (decode_key_frame(record, codec_kind, &picture, &params->refusal) != 0) {
        return ThumbnailFailure::kNotDecoded;
    }
    PlaneBlock block;
    take_planes(picture, &block);
    if (!picture.planes) return ThumbnailFailure::kNone;

    PictureSize size = {static_cast<int32_t>(picture.width), static_cast<int32_t>(picture.height)};
    if (crop(picture, &block, &size) != 0) return ThumbnailFailure::kNothingVisible;
    const PictureSize fitted = fit_size(size, {params->width, params->height});
    params->width = fitted.width;
    params->height = fitted.height;
    if (prepare(size, fitted, &block) != 0) {
        return is_encodable(fitted) ? ThumbnailFailure::kNoMemory : ThumbnailFailure::kSide;
    }
    return write_file(block, fitted, *params);
}

int WriteThumbnail(const KeyFrame* record, ThumbnailParams* params, int32_t codec_kind) {
    if (!params || !record || !record->config || !record->sample || !params->output_path) return 1;
    params->failure = write_thumbnail(*record, codec_kind, params);
    return params->failure == ThumbnailFailure::kNone ? 0 : 1;
}
