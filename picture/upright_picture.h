// SPDX-License-Identifier: BSD-2-Clause
// From a decoded picture to what a player shows: cropped, with square pixels, scaled, upright. It
// stays YCbCr until its rows are asked for as RGB.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <memory>

#include "avcdec/decoded_picture.h"
#include "picture/display_size.h"
#include "picture/turn.h"

// What the container says of how to show the picture. What it does not say is taken from the
// stream, and then from custom.
struct ShowingHints {
    DisplaySize stated_size = {0, 0};  // of the coded picture, before it is turned
    double pixel_aspect = 0;  // width of a pixel by its height before it is turned; 0: not said
    Turn turn;
    int matrix_coefficients = 0;  // ISO/IEC 23091-2 8.3; 0 and 2: not said
    int full_range = -1;          // 0 or 1; -1: not said
};

struct FreeBytes {
    void operator()(uint8_t* bytes) const;
};
using ByteBlock = std::unique_ptr<uint8_t[], FreeBytes>;

// One plane of samples. The first row may be the last one in memory: then the pitch is negative.
struct PlaneView {
    const uint8_t* samples = nullptr;
    ptrdiff_t pitch = 0;
};

struct ColourConversion;  // how samples become RGB

// How many samples the planes of chroma have.
enum class ChromaSize : uint8_t {
    kFull,  // those of luma
    kHalf,  // half of them in either direction, rounded up, as in a JPEG file
};

struct UprightPicture {
    int32_t width = 0;
    int32_t height = 0;
    ChromaSize chroma = ChromaSize::kFull;
    PlaneView y, u, v;
    ByteBlock blocks[3];  // what they lie in, unless it is the decoded picture

    // Whether the decoded picture has to stay as long as this one.
    // At half the size full chroma is as it was decoded, while luma is not.
    bool is_borrowing() const { return !blocks[0] || !blocks[1] || !blocks[2]; }
    const ColourConversion* conversion = nullptr;
};

enum class UprightStatus { kDone, kNothingVisible, kNoMemory };

// Looks once at what the processor can do, which on ARM is in a file. To be called before files are
// out of reach; otherwise it happens when it is needed.
void prepare_to_make_upright();

// Makes the picture of at most that size. The decoded planes are only read.
UprightStatus make_upright(const DecodedPicture& decoded, const ShowingHints& hints,
                           const SizeLimit& limit, ChromaSize chroma, UprightPicture* upright);

// The row y, 0 to height - 1, as width triples R, G, B.
void upright_row_rgb(const UprightPicture& picture, int32_t y, uint8_t* rgb);
