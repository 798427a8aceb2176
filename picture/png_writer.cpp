// SPDX-License-Identifier: BSD-2-Clause
#include <setjmp.h>
#include <stdlib.h>
#include <zlib.h>

#include "picture/picture_file.h"
#include "picture/png_library.h"

// Pictures of cameras hardly repeat themselves: runs alone are found in a twentieth of the time
// that the library's usual search takes, and files have the same size within a few per cent.
constexpr int kCompressionStrategy = Z_RLE;
constexpr int kCompressionLevel = 1;

// What a longjmp must not skip lives outside of the function that it returns to.
struct PngJob {
    const PngLibrary& library;
    const UprightPicture& picture;
    const std::vector<png_text>& texts;
    FILE* file;
    uint8_t* row;
};

static void fail(png_structp png, png_const_charp) { png_library()->longjmp(png, 1); }
static void stay_silent(png_structp, png_const_charp) {}

static void write_rows(png_structp png, png_infop info, const PngJob& job) {
    const PngLibrary& library = job.library;
    const png_uint_32 width = static_cast<png_uint_32>(job.picture.width);
    const png_uint_32 height = static_cast<png_uint_32>(job.picture.height);
    library.init_io(png, job.file);
    library.set_compression_level(png, kCompressionLevel);
    library.set_compression_strategy(png, kCompressionStrategy);
    library.set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
    library.set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    library.set_text(png, info, job.texts.data(), static_cast<int>(job.texts.size()));
    library.write_info(png, info);
    for (int32_t y = 0; y < job.picture.height; ++y) {
        upright_row_rgb(job.picture, y, job.row);
        library.write_row(png, job.row);
    }
    library.write_end(png, nullptr);
}

static bool run(png_structp png, png_infop info, const PngJob& job) {
    if (setjmp(*job.library.set_longjmp_fn(png, longjmp, sizeof(jmp_buf))) != 0) return false;
    write_rows(png, info, job);
    return true;
}

bool write_png(const UprightPicture& picture, const std::vector<PngText>& texts, FILE* file) {
    const PngLibrary* const library = png_library();
    if (!library) return false;
    const ByteBlock row(static_cast<uint8_t*>(malloc(static_cast<size_t>(picture.width) * 3)));
    if (!row) return false;
    std::vector<png_text> chunks(texts.size());
    for (size_t i = 0; i < texts.size(); ++i) {
        chunks[i].compression = PNG_TEXT_COMPRESSION_NONE;
        chunks[i].key = const_cast<char*>(texts[i].keyword.c_str());
        chunks[i].text = const_cast<char*>(texts[i].text.c_str());
        chunks[i].text_length = texts[i].text.size();
    }
    png_structp png =
        library->create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, fail, stay_silent);
    if (!png) return false;
    png_infop info = library->create_info_struct(png);
    const bool is_written = info && run(png, info, {*library, picture, chunks, file, row.get()});
    library->destroy_write_struct(&png, &info);
    return is_written && fflush(file) == 0;
}

bool prepare_to_write_png() { return png_library() != nullptr; }
