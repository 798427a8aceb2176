// SPDX-License-Identifier: BSD-2-Clause
#include <setjmp.h>
#include <stdlib.h>
#include <string.h>

#include "picture/picture_file.h"

// The library's header wants stdio.h and stddef.h in front of it.
#include <jpeglib.h>

namespace {

struct ErrorContext {
    jpeg_error_mgr manager;  // first: the library's pointer to it is one to the context
    jmp_buf back;
};

}  // namespace

[[noreturn]] static void jump_back(j_common_ptr info) {
    longjmp(reinterpret_cast<ErrorContext*>(info->err)->back, 1);
}

static void write_rows(jpeg_compress_struct* info, const UprightPicture& picture, int quality,
                       FILE* file, uint8_t* row) {
    jpeg_create_compress(info);
    jpeg_stdio_dest(info, file);
    info->image_width = static_cast<JDIMENSION>(picture.width);
    info->image_height = static_cast<JDIMENSION>(picture.height);
    info->input_components = 3;
    info->in_color_space = JCS_RGB;
    jpeg_set_defaults(info);
    jpeg_set_quality(info, quality, TRUE);
    jpeg_start_compress(info, TRUE);
    JSAMPROW rows[1] = {row};
    for (int32_t y = 0; y < picture.height; ++y) {
        upright_row_rgb(picture, y, row);
        jpeg_write_scanlines(info, rows, 1);
    }
    jpeg_finish_compress(info);
}

// A library error comes back through setjmp: no object with a destructor lives in here.
static bool run(const UprightPicture& picture, int quality, FILE* file, uint8_t* row) {
    jpeg_compress_struct info;
    ErrorContext error;
    memset(&info, 0, sizeof info);
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = jump_back;
    if (setjmp(error.back) != 0) {
        jpeg_destroy_compress(&info);
        return false;
    }
    write_rows(&info, picture, quality, file, row);
    jpeg_destroy_compress(&info);
    return true;
}

bool write_jpeg(const UprightPicture& picture, int quality, FILE* file) {
    const ByteBlock row(static_cast<uint8_t*>(malloc(static_cast<size_t>(picture.width) * 3)));
    return row && run(picture, quality, file, row.get()) && fflush(file) == 0;
}
