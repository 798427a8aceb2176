// SPDX-License-Identifier: BSD-2-Clause
// Headers of an H.263 I-picture: picture, GOB and slice (H.263 clause 5, Annex K). A picture with
// short video header of MPEG-4 is an H.263 baseline picture.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "m4vdec/m4v_presentation.h"
#include "m4vdec/m4v_refusal.h"
#include "runtime/bits.h"

struct H263Picture {
    uint16_t width;   // luma samples: 4 to 2048, a multiple of 4
    uint16_t height;  // 4 to 1152
    uint8_t quant;    // 1 to 31
    M4vPresentation presentation;
    bool is_multipoint;       // CPM: sub-bitstream indicators in the headers below
    bool has_advanced_intra;  // Annex I
    bool has_deblocking;      // Annex J
    bool has_slices;          // Annex K
    bool has_rectangular_slices;
    bool has_independent_segments;  // Annex R
    bool has_modified_quant;        // Annex T
    // Slice headers have an emulation prevention bit after addresses of more than 11 bits (SEPB2).
    // A common encoder leaves it out of a picture's first slice, and has it from 1584 macroblocks
    // on, where addresses still have 11 bits. Set by the caller.
    bool has_variant_slices;

    uint32_t width_mbs() const { return (width + 15u) / 16; }
    uint32_t height_mbs() const { return (height + 15u) / 16; }
    // Macroblock rows of a GOB (4.2.1).
    uint32_t gob_rows() const { return height <= 400 ? 1 : height <= 800 ? 2 : 4; }
};

constexpr uint32_t kVariantMacroblocks = 1584;

// A run of macroblocks that begins after a header.
struct H263Segment {
    uint32_t first_mb;    // raster address
    uint32_t width_mbs;   // of a rectangular slice
    bool is_rectangular;  // else it goes on along the rows of the picture
    uint8_t quant;        // 1 to 31
};

// Whether data begins with a picture start code.
bool h263_is_picture_start(const uint8_t* data, size_t length);

// Reads a picture header from its start code on. Refuses what is not an I-picture of a supported
// kind.
M4vRefusal h263_parse_picture(BitReader* bits, H263Picture* picture);

// What the picture header begins: in slice structured mode a slice header follows. Returns 1 when
// that is not valid.
int h263_parse_first_segment(BitReader* bits, const H263Picture& picture, H263Segment* segment);

// Whether stuffing and the start code of a GOB, slice or picture come next (or the data ends here).
bool h263_is_at_start_code(BitReader* bits);
// Reads stuffing, start code and header of a GOB or slice. Returns 1 when it is none of those or it
// begins outside the picture.
int h263_parse_segment(BitReader* bits, const H263Picture& picture, H263Segment* segment);
