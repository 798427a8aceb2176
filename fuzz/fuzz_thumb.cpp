// SPDX-License-Identifier: BSD-2-Clause
// Crops, fits, scales, pads and compresses a picture of any size to any size.
#include "fuzz/target.h"
#include "runtime/owned.h"
#include "tests/support/stub_decoders.h"
#include "thumb/plane_block.h"
#include "thumb/thumbnail.h"

constexpr uint64_t kMostSamples = 1 << 17;

static DecodedPicture g_picture;  // without planes

static int hand_out(DecodedPicture* picture) {
    *picture = g_picture;
    const uint32_t length = 2 * g_picture.v_offset - g_picture.u_offset;
    picture->planes = owned_malloc<uint8_t>(length).release();
    for (uint32_t i = 0; i < length; ++i) picture->planes[i] = static_cast<uint8_t>(i * 7);
    return 0;
}

// Mostly 1 to 64, by one byte.
static uint32_t side(Choices* c) {
    const uint32_t byte = c->byte();
    return 1 + (byte < 252 ? byte % 64 : c->word() % 65535);
}

static uint32_t up_to_16(uint32_t n) { return (n + 15) & ~15U; }

void run_target(Choices* c) {
    const bool is_avc = c->flag();
    DecodedPicture* const p = &g_picture;
    p->width = is_avc ? up_to_16(side(c)) : side(c);
    p->height = is_avc ? up_to_16(side(c)) : side(c);
    p->stride = up_to_16(p->width);
    if (uint64_t{p->stride} * up_to_16(p->height) > kMostSamples) return;
    p->u_offset = p->stride * up_to_16(p->height);
    p->v_offset = p->u_offset / 4 * 5;
    p->cropped = is_avc && c->flag();
    for (uint32_t* const crop : {&p->crop_left, &p->crop_right, &p->crop_top, &p->crop_bottom}) {
        *crop = c->once_in(8) ? c->value(65535) * 2 : c->byte() % 16 * 2;
    }
    ThumbnailParams params = {result_path(), static_cast<int32_t>(c->byte() % 101),
                              static_cast<int32_t>(side(c) & ~1U),
                              static_cast<int32_t>(side(c) & ~1U)};
    const PictureSize cropped = {
        static_cast<int32_t>(p->width - p->cropped * (p->crop_left + p->crop_right)),
        static_cast<int32_t>(p->height - p->cropped * (p->crop_top + p->crop_bottom))};
    if (cropped.width > 0 && cropped.height > 0 &&
        plane_block_length(fit_size(cropped, {params.width, params.height})) > kMostSamples) {
        return;
    }
    uint8_t bytes[8] = {};
    const KeyFrame record = {bytes, 8, bytes, 8, 4, 8};
    note_result(WriteThumbnail(&record, &params, is_avc ? kCodecAvc : kCodecMpeg4));
    note_result_file();
}
