// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/scale.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "thumb/pad.h"

static PlaneBlock random_picture(PictureSize size, uint32_t seed) {
    PlaneBlock block;
    EXPECT_EQ(plane_block_create(size, &block), 0);
    std::mt19937 random(seed);
    std::generate_n(block.bytes.get(), block.length, random);
    return block;
}

static void scale(const PlaneBlock& from, PictureSize from_size, const PlaneBlock& to,
                  PictureSize to_size) {
    const YuvPlanes src = plane_block_planes(from);
    const YuvPlanes dst = plane_block_planes(to);
    ScaleYuv420Nearest(src.y, src.u, src.v, dst.y, dst.u, dst.v, from_size.width, from_size.height,
                       from.pitch, to_size.width, to_size.height, to.pitch);
}

static const PictureSize kSizes[][2] = {
    {{64, 48}, {32, 24}}, {{64, 48}, {62, 46}},   {{48, 64}, {2, 2}},     {{16, 16}, {128, 100}},
    {{34, 18}, {34, 40}}, {{4096, 16}, {320, 2}}, {{16, 4096}, {4, 640}}, {{640, 480}, {600, 448}},
};

// The rule for even sides, one sample at a time.
static int nearest(int at, int from, int to) {
    const int step = static_cast<int>((from - 1.0f) / (to - 1.0f) * 65536.0f + 0.5);
    return at * step + 0x8000;
}

TEST(Scale, TakesTheNearestSamplesAlsoInPlace) {
    for (const auto& [from, to] : kSizes) {
        SCOPED_TRACE(testing::Message() << to.width << "x" << to.height);
        const PlaneBlock source = random_picture(from, 3);
        const PlaneBlock in_place = random_picture(from, 3);
        PlaneBlock scaled;
        ASSERT_EQ(plane_block_create(to, &scaled), 0);
        scale(source, from, scaled, to);
        const bool shrinks = to.width < from.width && to.height < from.height;
        if (shrinks) scale(in_place, from, in_place, to);
        const PlaneBlock& second = shrinks ? in_place : scaled;
        const YuvPlanes src = plane_block_planes(source);
        const YuvPlanes dst = plane_block_planes(scaled);
        const YuvPlanes dst2 = plane_block_planes(second);
        for (int y = 0; y < to.height; ++y) {
            const int from_y = nearest(y, from.height, to.height);
            for (int x = 0; x < to.width; ++x) {
                const int from_x = nearest(x, from.width, to.width);
                const uint8_t want = src.y[(from_y >> 16) * source.pitch + (from_x >> 16)];
                ASSERT_EQ(dst.y[y * scaled.pitch + x], want) << x << "," << y;
                ASSERT_EQ(dst2.y[y * second.pitch + x], want) << x << "," << y;
                if ((x | y) & 1) continue;
                const int chroma =
                    ((from_y + 0x8000) >> 17) * (source.pitch / 2) + ((from_x + 0x8000) >> 17);
                ASSERT_EQ(dst.u[y / 2 * (scaled.pitch / 2) + x / 2], src.u[chroma]);
                ASSERT_EQ(dst.v[y / 2 * (scaled.pitch / 2) + x / 2], src.v[chroma]);
                ASSERT_EQ(dst2.v[y / 2 * (second.pitch / 2) + x / 2], src.v[chroma]);
            }
        }
    }
}

TEST(Scale, ShearsAnOddWidthByOneBytePerPairOfRows) {
    const PictureSize from = {64, 64};
    const PictureSize to = {15, 8};
    const PlaneBlock source = random_picture(from, 5);
    PlaneBlock scaled;
    ASSERT_EQ(plane_block_create({16, 16}, &scaled), 0);
    scale(source, from, scaled, to);
    const uint8_t* const y = plane_block_planes(scaled).y;
    for (int pair = 0; pair < 4; ++pair) {
        const int row = (2 * pair * 63 + 3) / 7;  // rounded
        EXPECT_EQ(y[pair * (2 * scaled.pitch + 1)], source.bytes[row * source.pitch]) << pair;
    }
}

// The extents are what AddressSanitizer would find: buffers of just that length hold every access.
TEST(Scale, StaysWithinItsExtents) {
    static const int32_t kSides[] = {1, 2, 3, 5, 15, 16, 17, 33, 64, 601, 4096, 65520};
    std::mt19937 random(6);
    for (int round = 0; round < 400; ++round) {
        const auto side = [&] { return kSides[random() % 12]; };
        const PictureSize from = {side(), side()};
        const PictureSize to = {side(), side()};
        const int64_t area = std::max(static_cast<int64_t>(from.width) * from.height,
                                      static_cast<int64_t>(to.width) * to.height);
        if (area > 4'000'000) continue;
        SCOPED_TRACE(testing::Message()
                     << from.width << "x" << from.height << " to " << to.width << "x" << to.height);
        const int32_t src_stride = static_cast<int32_t>(align16(from.width));
        const int32_t dst_stride = static_cast<int32_t>(align16(to.width));
        const PlaneExtent read = scale_source_extent(from, to, src_stride);
        const PlaneExtent written = scale_target_extent(to, dst_stride);
        const std::vector<uint8_t> y(read.luma, 1), u(read.chroma, 1), v(read.chroma, 1);
        std::vector<uint8_t> dst_y(written.luma), dst_u(written.chroma), dst_v(written.chroma);
        ScaleYuv420Nearest(y.data(), u.data(), v.data(), dst_y.data(), dst_u.data(), dst_v.data(),
                           from.width, from.height, src_stride, to.width, to.height, dst_stride);
        EXPECT_EQ(dst_y.back(), 1);  // and the writing one is tight
        EXPECT_EQ(dst_v.back(), 1);
    }
}

TEST(Pad, RepeatsTheLastColumnAndRow) {
    for (const PictureSize size : {PictureSize{18, 14}, {2, 2}, {31, 30}, {1, 1}, {16, 12}}) {
        SCOPED_TRACE(testing::Message() << size.width << "x" << size.height);
        const PlaneBlock block = random_picture(size, 7);
        const YuvPlanes planes = plane_block_planes(block);
        pad_to_blocks(planes, size, block.pitch);
        for (int y = 0; y < block.rows; ++y) {
            for (int x = 0; x < block.pitch; ++x) {
                const int from = std::min(y, size.height - 1) * block.pitch;
                ASSERT_EQ(planes.y[y * block.pitch + x],
                          planes.y[from + std::min(x, size.width - 1)]);
            }
        }
        const int chroma_pitch = block.pitch / 2;
        const int last_row = std::max(size.height / 2 - 1, 0);
        const int last_column = (size.width - 1) / 2;
        for (int y = 0; y < block.rows / 2; ++y) {
            const int from = std::min(y, last_row) * chroma_pitch;
            const int columns = size.height > 1 ? chroma_pitch : last_column + 1;
            for (int x = 0; x < columns; ++x) {
                const int column = std::min(x, last_column);
                ASSERT_EQ(planes.u[y * chroma_pitch + x], planes.u[from + column]);
                ASSERT_EQ(planes.v[y * chroma_pitch + x], planes.v[from + column]);
            }
        }
    }
}
