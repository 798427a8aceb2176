// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/picture_in_progress.h"

#include <assert.h>
#include <string.h>

#include "runtime/owned.h"

int picture_allocate(AvcPictureInProgress* p, uint16_t width_mbs, uint16_t height_mbs) {
    assert(width_mbs != 0 && height_mbs != 0);
    p->deblock = owned_calloc<DeblockRecord>(uint64_t{kDeblockRows} * width_mbs).release();
    p->planes.width_mbs = width_mbs;
    p->planes.height_mbs = height_mbs;
    return p->deblock ? 0 : 1;
}

void picture_release(AvcPictureInProgress* p) {
    if (p->deblock) upnp_free(p->deblock);
    p->deblock = nullptr;
}

MbSamples picture_samples(const AvcPictureInProgress& p) {
    assert(p.planes.plane[0] && p.x < p.planes.width_mbs && p.y < p.planes.height_mbs);
    const AvcPicture& planes = p.planes;
    const ptrdiff_t luma_pitch = planes.stride;
    const ptrdiff_t chroma_pitch = planes.is_444 ? luma_pitch : luma_pitch / 2;
    const ptrdiff_t chroma_size = planes.is_444 ? 16 : 8;
    const ptrdiff_t x = p.x;
    const ptrdiff_t y = p.y;
    const ptrdiff_t chroma = (y * chroma_pitch + x) * chroma_size;
    return {{planes.plane[0] + (y * luma_pitch + x) * 16, planes.plane[1] + chroma,
             planes.plane[2] + chroma},
            luma_pitch,
            chroma_pitch};
}

void fill_block(uint8_t* dst, ptrdiff_t pitch, int size, uint8_t value) {
    for (int y = 0; y < size; ++y) memset(dst + y * pitch, value, static_cast<size_t>(size));
}

static DeblockRecord* deblock_ring(const AvcPictureInProgress* p, uint32_t row) {
    return p->deblock + static_cast<size_t>(row % kDeblockRows) * p->planes.width_mbs;
}

// Deblocks the rows before end, or leaves one to be filtered together with the next.
static void deblock_up_to(AvcPictureInProgress* p, uint32_t end) {
    const bool has_pairs =
        p->kernels.deblock_two.vertical.luma && !p->planes.is_field && !p->planes.is_444;
    while (p->deblocked_rows < end) {
        const uint32_t row = p->deblocked_rows;
        const DeblockRecord* const above = row == 0 ? nullptr : deblock_ring(p, row - 1);
        if (has_pairs && above && row + 1 < end) {
            const DeblockRecord* const records[3] = {above, deblock_ring(p, row),
                                                     deblock_ring(p, row + 1)};
            deblock_two_rows(p->kernels, p->planes, row, records);
            p->deblocked_rows += 2;
        } else if (has_pairs && above && end < p->planes.height_mbs) {
            return;
        } else {
            deblock_row(p->kernels, p->planes, row, above, deblock_ring(p, row));
            ++p->deblocked_rows;
        }
    }
}

DeblockRecord* picture_record(const AvcPictureInProgress* p) {
    assert(p->deblock && p->x < p->planes.width_mbs && p->y < p->planes.height_mbs);
    return deblock_ring(p, p->y) + p->x;
}

void picture_macroblock_done(AvcPictureInProgress* p) {
    assert(p->next_mb < picture_size(*p));
    const uint32_t row = p->y;
    ++p->next_mb;
    if (++p->x < p->planes.width_mbs) return;
    p->x = 0;
    ++p->y;
    deblock_up_to(p, p->y == p->planes.height_mbs ? row + 1 : row);
}

void picture_begin(AvcPictureInProgress* p) {
    p->next_mb = 0;
    p->x = 0;
    p->y = 0;
    p->deblocked_rows = 0;
}

void picture_skip_to(AvcPictureInProgress* p, uint32_t address) {
    assert(address <= picture_size(*p));
    while (p->next_mb < address) {
        const MbSamples to = picture_samples(*p);
        fill_block(to.plane[0], to.luma_pitch, 16, kMissingSample);
        const int chroma_size = p->planes.is_444 ? 16 : 8;
        fill_block(to.plane[1], to.chroma_pitch, chroma_size, kMissingSample);
        fill_block(to.plane[2], to.chroma_pitch, chroma_size, kMissingSample);
        *picture_record(p) = {};
        picture_macroblock_done(p);
    }
}

// Makes count lines of width samples out of those above and below them, which are pitch away; the
// first or last one may have only one of them.
static void fill_between(uint8_t* line, ptrdiff_t pitch, int count, int width, bool has_above) {
    for (int y = 0; y < count; ++y, line += 2 * pitch) {
        const uint8_t* const above = has_above || y > 0 ? line - pitch : line + pitch;
        const uint8_t* const below = has_above && y == count - 1 ? above : line + pitch;
        for (int x = 0; x < width; ++x) {
            line[x] = static_cast<uint8_t>((above[x] + below[x] + 1) >> 1);
        }
    }
}

void picture_fill_other_field(AvcPictureInProgress* p, bool is_bottom) {
    const AvcPicture& field = p->planes;
    for (int c = 0; c < 3; ++c) {
        const int shift = c == 0 ? 0 : 1;
        const auto pitch = static_cast<ptrdiff_t>(field.stride / 2 >> shift);
        uint8_t* const first = field.plane[c] + (is_bottom ? -pitch : pitch);
        fill_between(first, pitch, field.height_mbs * 16 >> shift, field.width_mbs * 16 >> shift,
                     !is_bottom);
    }
}

void picture_finish(AvcPictureInProgress* p) { picture_skip_to(p, picture_size(*p)); }
