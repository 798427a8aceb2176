// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/jpeg_writer.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/jpeg_reader.h"
#include "tests/support/temp_folder.h"

struct WriteResult {
    int status;
    std::string bytes;
};

static WriteResult write(PictureSize size, int32_t pitch, int32_t rows, int32_t quality) {
    PlaneBlock block;
    EXPECT_EQ(plane_block_create({pitch, 128}, &block), 0);
    for (uint64_t i = 0; i < block.u_offset; ++i) block.bytes[i] = static_cast<uint8_t>(i % pitch);
    memset(&block.bytes[block.u_offset], 100, block.length - block.u_offset);
    const YuvPlanes planes = plane_block_planes(block);
    const TempFolder folder;
    FILE* const file = fopen(folder.path("o.jpg").c_str(), "wb");
    const int status =
        WriteJpegYuv420(&planes, file, size.height, size.width, pitch, rows, quality);
    fclose(file);
    return {status, read_file(folder.path("o.jpg"))};
}

TEST(JpegWriter, WritesABaselineFileOfTheVisibleSize) {
    for (const PictureSize size : {PictureSize{160, 120}, {160, 128}, {17, 1}, {1, 113}}) {
        const WriteResult result = write(size, 160, 128, 100);
        ASSERT_EQ(result.status, 0);
        const JpegImage image = read_jpeg(result.bytes);
        EXPECT_EQ(image.width, size.width);
        EXPECT_EQ(image.height, size.height);
        EXPECT_TRUE(image.is_baseline_420_jfif);
        for (int x = 0; x < size.width; x += 7) {
            const uint8_t* const sample = image.at(x, size.height - 1);
            EXPECT_NEAR(sample[0], x, 2);
            EXPECT_NEAR(sample[1], 100, 1);
            EXPECT_NEAR(sample[2], 100, 1);
        }
    }
}

TEST(JpegWriter, FollowsTheQuality) {
    size_t length = 0;
    for (int32_t quality : {0, 30, 60, 90, 100}) {
        const WriteResult result = write({160, 120}, 160, 128, quality);
        ASSERT_EQ(result.status, 0);
        EXPECT_GT(result.bytes.size(), length) << quality;
        length = result.bytes.size();
    }
}

TEST(JpegWriter, RefusesWhatIsNotPaddedOrHasNoSize) {
    static const struct {
        PictureSize size;
        int32_t pitch, rows;
    } kCases[] = {
        {{160, 120}, 160, 120},    {{161, 120}, 160, 128}, {{0, 120}, 160, 128},
        {{160, 0}, 160, 128},      {{-16, 16}, 160, 128},  {{160, -120}, 160, 128},
        {{65501, 16}, 65520, 128},
    };
    testing::internal::CaptureStderr();
    for (const auto& c : kCases) {
        const WriteResult result = write(c.size, c.pitch, c.rows, 80);
        EXPECT_EQ(result.status, 1) << c.size.width << "x" << c.size.height;
        EXPECT_EQ(result.bytes, "");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(JpegWriter, ReportsAFullDevice) {
    PlaneBlock block;
    ASSERT_EQ(plane_block_create({160, 128}, &block), 0);
    const YuvPlanes planes = plane_block_planes(block);
    FILE* const file = fopen("/dev/full", "wb");
    if (!file) GTEST_SKIP() << "no /dev/full here";
    testing::internal::CaptureStderr();
    EXPECT_EQ(WriteJpegYuv420(&planes, file, 128, 160, 160, 128, 80), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    fclose(file);
}
