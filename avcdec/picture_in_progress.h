// SPDX-License-Identifier: BSD-2-Clause
// The picture that slices are decoded into: its samples, how far it has come, and what deblocking
// needs to know of the rows that it has not reached yet.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "avcdec/deblock.h"
#include "avcdec/recon_kernels.h"

// The value of samples that are missing: neighbours outside the slice, and macroblocks that never
// came.
constexpr uint8_t kMissingSample = 128;

// Zeros are a picture without its arrays.
struct AvcPictureInProgress {
    ReconKernels kernels;
    AvcPicture planes;       // not owned
    DeblockRecord* deblock;  // owned: kDeblockRows rows of one entry per column
    uint32_t next_mb;        // the macroblock address that is expected next
    uint16_t x;              // its column and row
    uint16_t y;
    uint32_t deblocked_rows;
};

// Macroblocks of the whole picture.
inline uint32_t picture_size(const AvcPictureInProgress& p) {
    return uint32_t{p.planes.width_mbs} * p.planes.height_mbs;
}

// Where the samples of one macroblock are, with those of its neighbours around them.
struct MbSamples {
    uint8_t* plane[3];
    ptrdiff_t luma_pitch;
    ptrdiff_t chroma_pitch;
};
// Those of the next macroblock.
MbSamples picture_samples(const AvcPictureInProgress& p);

// Sets a square of size samples.
void fill_block(uint8_t* dst, ptrdiff_t pitch, int size, uint8_t value);

// The arrays for pictures of that size. Returns 1 without memory.
int picture_allocate(AvcPictureInProgress* p, uint16_t width_mbs, uint16_t height_mbs);
void picture_release(AvcPictureInProgress* p);

// Expects the first macroblock of a picture next.
void picture_begin(AvcPictureInProgress* p);

// Fills the macroblocks from the next expected one up to address with grey: no slice has them.
void picture_skip_to(AvcPictureInProgress* p, uint32_t address);

// What deblocking will know of the next macroblock: all of it is written before it is done.
DeblockRecord* picture_record(const AvcPictureInProgress* p);

// Moves on to the macroblock behind. Rows are deblocked one or two behind the row that is decoded,
// as prediction needs the samples before deblocking.
void picture_macroblock_done(AvcPictureInProgress* p);

// Fills the lines of the frame that the field, which is complete, leaves out.
void picture_fill_other_field(AvcPictureInProgress* p, bool is_bottom);

// Completes a picture of which the remaining macroblocks never came.
void picture_finish(AvcPictureInProgress* p);
