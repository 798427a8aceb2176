// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/jpeg_writer.h"

#include <gtest/gtest.h>

#include "tests/support/program_run.h"

TEST(JpegWriter, RefusesWhatIsNotPaddedOrHasNoSize) {
    static const int32_t kCases[][4] = {// width, height, pitch, rows
                                        {160, 120, 160, 120}, {161, 120, 160, 128},
                                        {0, 120, 160, 128},   {160, 0, 160, 128},
                                        {-16, 16, 160, 128},  {65501, 16, 65520, 128}};
    for (const auto& c : kCases) {
        const int32_t width = c[0], height = c[1], pitch = c[2], rows = c[3];
        SCOPED_TRACE(testing::Message() << width << "x" << height);
        PlaneBlock block;
        ASSERT_EQ(plane_block_create({pitch, 128}, &block), 0);
        memset(block.bytes.get(), 0, block.length);
        const YuvPlanes planes = plane_block_planes(block);
        EXPECT_EQ(written_by([&](FILE* file) {
                      EXPECT_EQ(WriteJpegYuv420(&planes, file, height, width, pitch, rows, 80), 1);
                  }),
                  "");
    }
}
