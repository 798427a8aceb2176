// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/jpeg_reader.h"

#include <jpeglib.h>
#include <stdio.h>
#include <stdlib.h>

static bool is_baseline_420_jfif(const jpeg_decompress_struct& info) {
    std::string sampling;
    for (int i = 0; i < info.num_components; ++i) {
        sampling += static_cast<char>('0' + info.comp_info[i].h_samp_factor);
        sampling += static_cast<char>('0' + info.comp_info[i].v_samp_factor);
    }
    return info.saw_JFIF_marker && !info.progressive_mode && !info.arith_code &&
           info.data_precision == 8 && sampling == "221111";
}

JpegImage read_jpeg(std::string bytes) {
    jpeg_decompress_struct info;
    jpeg_error_mgr error;
    info.err = jpeg_std_error(&error);
    error.error_exit = [](j_common_ptr) { abort(); };
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, reinterpret_cast<unsigned char*>(bytes.data()), bytes.size());
    jpeg_read_header(&info, TRUE);
    info.out_color_space = JCS_YCbCr;
    info.do_fancy_upsampling = FALSE;
    jpeg_start_decompress(&info);
    const size_t width = info.output_width, height = info.output_height;
    JpegImage image = {static_cast<int>(width), static_cast<int>(height),
                       is_baseline_420_jfif(info), std::vector<uint8_t>(width * height * 3)};
    while (info.output_scanline < height) {
        JSAMPROW row = &image.ycc[info.output_scanline * width * 3];
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_destroy_decompress(&info);
    return image;
}
