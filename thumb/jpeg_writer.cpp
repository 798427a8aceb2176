// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/jpeg_writer.h"

#include <assert.h>
#include <setjmp.h>
#include <string.h>

// The library's header wants stdio.h and stddef.h in front of it.
#include <jpeglib.h>

static_assert(kJpegMaxSide == JPEG_MAX_DIMENSION);
// The interface of release 6b, whose bytes are promised.
static_assert(JPEG_LIB_VERSION == 62);

constexpr int kBandRows = 16;  // one row of 16x16 blocks

struct JpegErrorContext {
    jpeg_error_mgr manager;  // first: the library's pointer to it is one to the context
    jmp_buf back;
};

[[noreturn]] static void jump_back(j_common_ptr info) {
    longjmp(reinterpret_cast<JpegErrorContext*>(info->err)->back, 1);
}

static void set_up(jpeg_compress_struct* info, FILE* file, int32_t height, int32_t width,
                   int32_t quality) {
    jpeg_create_compress(info);
    jpeg_stdio_dest(info, file);
    info->image_width = static_cast<JDIMENSION>(width);
    info->image_height = static_cast<JDIMENSION>(height);
    info->input_components = 3;
    info->in_color_space = JCS_YCbCr;
    jpeg_set_defaults(info);
    jpeg_set_quality(info, quality, TRUE);
    info->raw_data_in = TRUE;
}

static void write_band(jpeg_compress_struct* info, const YuvPlanes& band, int32_t pitch) {
    const int32_t chroma_pitch = pitch >> 1;
    JSAMPROW y_rows[kBandRows];
    JSAMPROW u_rows[kBandRows / 2];
    JSAMPROW v_rows[kBandRows / 2];
    for (int row = 0; row < kBandRows; ++row) y_rows[row] = band.y + row * pitch;
    for (int row = 0; row < kBandRows / 2; ++row) {
        u_rows[row] = band.u + row * chroma_pitch;
        v_rows[row] = band.v + row * chroma_pitch;
    }
    JSAMPARRAY rows[3] = {y_rows, u_rows, v_rows};
    jpeg_write_raw_data(info, rows, kBandRows);
}

static void write_bands(jpeg_compress_struct* info, YuvPlanes band, int32_t pitch) {
    const int64_t luma_step = static_cast<int64_t>(kBandRows) * pitch;
    const int64_t chroma_step = static_cast<int64_t>(kBandRows / 2) * (pitch >> 1);
    while (info->next_scanline < info->image_height) {
        write_band(info, band, pitch);
        band.y += luma_step;
        band.u += chroma_step;
        band.v += chroma_step;
    }
}

static bool are_planes_large_enough(int32_t height, int32_t width, int32_t pitch, int32_t rows) {
    return align16(static_cast<uint32_t>(width)) <= static_cast<uint32_t>(pitch) &&
           align16(static_cast<uint32_t>(height)) <= static_cast<uint32_t>(rows);
}

// A library error comes back through setjmp: no object with a destructor lives in here.
int WriteJpegYuv420(const YuvPlanes* planes, FILE* file, int32_t height, int32_t width,
                    int32_t pitch, int32_t rows, int32_t quality) {
    assert(file && quality >= 0 && quality <= 100);
    if (!are_planes_large_enough(height, width, pitch, rows)) return 1;
    jpeg_compress_struct info;
    JpegErrorContext error;
    memset(&info, 0, sizeof info);
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = jump_back;
    if (setjmp(error.back) != 0) {
        jpeg_destroy_compress(&info);
        return 1;
    }
    set_up(&info, file, height, width, quality);
    jpeg_start_compress(&info, TRUE);
    write_bands(&info, *planes, pitch);
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    return 0;
}
