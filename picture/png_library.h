// SPDX-License-Identifier: BSD-2-Clause
// libpng, loaded when it is wanted: with zlib and the mathematical library that it brings, that
// takes a tenth of the time of a small JPEG picture, which needs none of the three.
#pragma once

#include <png.h>

struct PngLibrary {
    decltype(&png_create_write_struct) create_write_struct;
    decltype(&png_create_info_struct) create_info_struct;
    decltype(&png_destroy_write_struct) destroy_write_struct;
    decltype(&png_set_longjmp_fn) set_longjmp_fn;
    decltype(&png_longjmp) longjmp;
    decltype(&png_init_io) init_io;
    decltype(&png_set_compression_level) set_compression_level;
    decltype(&png_set_compression_strategy) set_compression_strategy;
    decltype(&png_set_filter) set_filter;
    decltype(&png_set_IHDR) set_IHDR;
    decltype(&png_set_text) set_text;
    decltype(&png_write_info) write_info;
    decltype(&png_write_row) write_row;
    decltype(&png_write_end) write_end;
};

// Null where it cannot be loaded. The first call opens files.
const PngLibrary* png_library();
