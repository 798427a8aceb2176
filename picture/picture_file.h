// SPDX-License-Identifier: BSD-2-Clause
// Writes an upright picture as a PNG or a JPEG file, row by row.
#pragma once

#include <stdio.h>

#include <string>
#include <vector>

#include "picture/upright_picture.h"

enum class PictureFormat { kPng, kJpeg };

// A tEXt chunk of a PNG file. Printable ASCII, the keyword in 1 to 79 characters.
struct PngText {
    std::string keyword;
    std::string text;
};

// Loads what writes PNG files, and returns whether it is installed. To be called before files are
// out of reach; otherwise it happens when it is needed.
bool prepare_to_write_png();

// Both write from the file's position on, flush, and return whether all of it was written. The
// caller closes the file.
bool write_png(const UprightPicture& picture, const std::vector<PngText>& texts, FILE* file);
// quality is 0 to 100. Sides of more than 65500 are refused.
bool write_jpeg(const UprightPicture& picture, int quality, FILE* file);
