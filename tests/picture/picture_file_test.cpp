// SPDX-License-Identifier: BSD-2-Clause
#include "picture/picture_file.h"

#include <gtest/gtest.h>
#include <png.h>

#include <cstring>
#include <string>

#include "tests/picture/test_picture.h"
#include "tests/support/jpeg_reader.h"
#include "tests/support/program_run.h"

static UprightPicture upright_of(const TestPicture& source) {
    return upright_of(source, hints_of(1));
}

TEST(PictureFile, PngGivesTheSameSamplesBack) {
    for (const int32_t width : {2, 34, 250}) {
        TestPicture source(static_cast<uint32_t>(width), 6);
        for (size_t i = 0; i < source.bytes.size(); ++i) {
            source.bytes[i] = static_cast<uint8_t>(i * i * 37 >> 3);
        }
        const UprightPicture upright = upright_of(source);
        const std::string file = written_by([&](FILE* f) {
            EXPECT_TRUE(write_png(upright, {{"Thumb::URI", "file:///a%20b.mp4"}}, f));
        });
        EXPECT_NE(file.find(std::string("tEXtThumb::URI\0file:///a%20b.mp4", 31)),
                  std::string::npos);
        png_image image = {};
        image.version = PNG_IMAGE_VERSION;
        ASSERT_TRUE(png_image_begin_read_from_memory(&image, file.data(), file.size()));
        ASSERT_EQ(image.width, static_cast<uint32_t>(width));
        ASSERT_EQ(image.height, 6u);
        image.format = PNG_FORMAT_RGB;
        std::vector<uint8_t> got(PNG_IMAGE_SIZE(image));
        ASSERT_TRUE(png_image_finish_read(&image, nullptr, got.data(), 0, nullptr));
        std::vector<uint8_t> row(static_cast<size_t>(width) * 3);
        for (int y = 0; y < 6; ++y) {
            upright_row_rgb(upright, y, row.data());
            EXPECT_EQ(memcmp(row.data(), &got[static_cast<size_t>(y) * row.size()], row.size()), 0);
        }
    }
}

TEST(PictureFile, JpegShowsThePicture) {
    const TestPicture slope(250, 37, [](uint32_t x, uint32_t) { return x * 255 / 250; });
    const UprightPicture upright = upright_of(slope, hints_of(1), {}, ChromaSize::kHalf);
    const JpegImage image =
        read_jpeg(written_by([&](FILE* f) { EXPECT_TRUE(write_jpeg(upright, 90, f)); }));
    ASSERT_EQ(image.width, 250);
    ASSERT_EQ(image.height, 37);
    EXPECT_TRUE(image.is_baseline_420_jfif);
    for (int x = 0; x < 250; x += 7) {
        EXPECT_NEAR(image.at(x, x % 37)[0], x * 255 / 250, 4);
        EXPECT_NEAR(image.at(x, x % 37)[1], 128, 1);
    }
}

TEST(PictureFile, AFailingWriteIsReported) {
    const TestPicture source(250, 200);
    const UprightPicture upright = upright_of(source);
    const auto fails = [&](const std::function<bool(FILE*)>& write) {
        FILE* const full = fopen("/dev/full", "wb");
        ASSERT_TRUE(full);
        EXPECT_FALSE(write(full));
        fclose(full);
    };
    fails([&](FILE* f) { return write_png(upright, {}, f); });
    fails([&](FILE* f) { return write_jpeg(upright, 85, f); });
}
