// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/jpeg_writer.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/temp_folder.h"

// The written bytes, none when it failed.
static std::string write(PictureSize size, int32_t pitch, int32_t rows, int32_t quality) {
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
    const std::string bytes = read_file(folder.path("o.jpg"));
    EXPECT_EQ(status, bytes.empty() ? 1 : 0);
    return bytes;
}

TEST(JpegWriter, RefusesWhatIsNotPaddedOrHasNoSize) {
    static const int32_t kCases[][4] = {// width, height, pitch, rows
                                        {160, 120, 160, 120}, {161, 120, 160, 128},
                                        {0, 120, 160, 128},   {160, 0, 160, 128},
                                        {-16, 16, 160, 128},  {65501, 16, 65520, 128}};
    for (const auto& [width, height, pitch, rows] : kCases) {
        EXPECT_EQ(write({width, height}, pitch, rows, 80), "") << width << "x" << height;
    }
}
