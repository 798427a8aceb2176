// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/jpeg_reader.h"

#include <jpeglib.h>
#include <stdio.h>
#include <stdlib.h>

static bool is_sampled(const jpeg_component_info& component, int factor) {
    return component.h_samp_factor == factor && component.v_samp_factor == factor;
}

static bool is_baseline_420_jfif(const jpeg_decompress_struct& info) {
    return info.saw_JFIF_marker && !info.progressive_mode && !info.arith_code &&
           info.data_precision == 8 && info.num_components == 3 &&
           is_sampled(info.comp_info[0], 2) && is_sampled(info.comp_info[1], 1) &&
           is_sampled(info.comp_info[2], 1);
}

JpegImage read_jpeg(const std::string& bytes) {
    jpeg_decompress_struct info;
    jpeg_error_mgr error;
    info.err = jpeg_std_error(&error);
    error.error_exit = [](j_common_ptr) { abort(); };
    jpeg_create_decompress(&info);
    std::string copy = bytes;
    jpeg_mem_src(&info, reinterpret_cast<unsigned char*>(copy.data()), copy.size());
    jpeg_read_header(&info, TRUE);
    info.out_color_space = JCS_YCbCr;
    info.do_fancy_upsampling = FALSE;
    jpeg_start_decompress(&info);
    JpegImage image = {static_cast<int>(info.output_width),
                       static_cast<int>(info.output_height),
                       is_baseline_420_jfif(info),
                       {}};
    image.ycc.resize(static_cast<size_t>(image.width) * image.height * 3);
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = &image.ycc[static_cast<size_t>(info.output_scanline) * image.width * 3];
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return image;
}
