// SPDX-License-Identifier: BSD-2-Clause
// Reads a JPEG file back with the JPEG library.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

struct JpegImage {
    int width;
    int height;
    bool is_baseline_420_jfif;  // 8-bit sequential, Y 2x2, Cb and Cr 1x1
    std::vector<uint8_t> ycc;   // width * height triples, chroma repeated, not interpolated
    const uint8_t* at(int x, int y) const { return &ycc[(static_cast<size_t>(y) * width + x) * 3]; }
};

// Aborts the test program when the bytes are no JPEG.
JpegImage read_jpeg(std::string bytes);
