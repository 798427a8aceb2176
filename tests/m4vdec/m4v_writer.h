// SPDX-License-Identifier: BSD-2-Clause
// Writes I-pictures of MPEG-4 or H.263 with tools and coefficients of choice, together with the
// planes that a decoder has to make of them: by prediction and dequantisation of its own, and the
// scalar transform, which has a test of its own.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "tests/support/choices.h"

struct WrittenPicture {
    std::string config, sample;
    std::vector<uint8_t> planes;  // Y, Cb, Cr of whole macroblocks
};

// MPEG-4 pictures have up to 96x64 samples, some of H.263 many more.
WrittenPicture write_picture(bool is_h263, Choices* choices);

// A video object layer with values 0 to 15 for the time. middle: the fields from `interlaced` on.
std::string mpeg4_layer(unsigned width, unsigned height, const std::string& middle,
                        const std::string& shape = "00", unsigned type = 1);
