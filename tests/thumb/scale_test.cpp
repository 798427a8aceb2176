// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/scale.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

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
    const YuvPlanes src = plane_block_planes(from), dst = plane_block_planes(to);
    ScaleYuv420Nearest(src.y, src.u, src.v, dst.y, dst.u, dst.v, from_size.width, from_size.height,
                       from.pitch, to_size.width, to_size.height, to.pitch);
}

static const PictureSize kSizes[][2] = {
    {{64, 48}, {62, 46}}, {{48, 64}, {2, 2}}, {{16, 16}, {128, 100}}, {{640, 480}, {600, 448}}};

// The rule for even sides, one sample at a time.
static int nearest(int at, int from, int to) {
    const int step = static_cast<int>((from - 1.0f) / (to - 1.0f) * 65536.0f + 0.5);
    return at * step + 0x8000;
}

TEST(Scale, TakesTheNearestSamplesAlsoInPlace) {
    for (const auto& [from, to] : kSizes) {
        SCOPED_TRACE(testing::Message() << to.width << "x" << to.height);
        const PlaneBlock source = random_picture(from, 3);
        const bool shrinks = to.width < from.width && to.height < from.height;
        const PlaneBlock scaled = random_picture(shrinks ? from : to, 3);
        scale(shrinks ? scaled : source, from, scaled, to);
        const YuvPlanes src = plane_block_planes(source), dst = plane_block_planes(scaled);
        for (int y = 0; y < to.height; ++y) {
            const int from_y = nearest(y, from.height, to.height);
            for (int x = 0; x < to.width; ++x) {
                const int from_x = nearest(x, from.width, to.width);
                ASSERT_EQ(dst.y[y * scaled.pitch + x],
                          src.y[(from_y >> 16) * source.pitch + (from_x >> 16)]);
                const int chroma =
                    ((from_y + 0x8000) >> 17) * (source.pitch / 2) + ((from_x + 0x8000) >> 17);
                if ((x | y) & 1) continue;
                ASSERT_EQ(dst.u[y / 2 * (scaled.pitch / 2) + x / 2], src.u[chroma]);
                ASSERT_EQ(dst.v[y / 2 * (scaled.pitch / 2) + x / 2], src.v[chroma]);
            }
        }
    }
}

TEST(Scale, ShearsAnOddWidthByOneBytePerPairOfRows) {
    const PlaneBlock source = random_picture({64, 64}, 5);
    const PlaneBlock scaled = random_picture({16, 16}, 5);
    scale(source, {64, 64}, scaled, {15, 8});
    for (int pair = 0; pair < 4; ++pair) {
        const int row = (2 * pair * 63 + 3) / 7;  // rounded
        EXPECT_EQ(scaled.bytes[pair * (2 * scaled.pitch + 1)], source.bytes[row * source.pitch]);
    }
}

// A plane repeats its last column and row, as far as columns and rows go.
static void expect_padded(const uint8_t* plane, int pitch, PictureSize visible,
                          PictureSize padded) {
    for (int y = 0; y < padded.height; ++y) {
        const uint8_t* const row = &plane[std::min(y, visible.height - 1) * pitch];
        for (int x = 0; x < padded.width; ++x) {
            ASSERT_EQ(plane[y * pitch + x], row[std::min(x, visible.width - 1)]) << x << "," << y;
        }
    }
}

TEST(Pad, RepeatsTheLastColumnAndRow) {
    for (const PictureSize size : {PictureSize{18, 14}, {2, 2}, {31, 30}, {16, 12}}) {
        const PlaneBlock block = random_picture(size, 7);
        const YuvPlanes planes = plane_block_planes(block);
        pad_to_blocks(planes, size, block.pitch);
        expect_padded(planes.y, block.pitch, size, {block.pitch, block.rows});
        for (const uint8_t* plane : {planes.u, planes.v}) {
            expect_padded(plane, block.pitch / 2, {(size.width + 1) / 2, size.height / 2},
                          {block.pitch / 2, block.rows / 2});
        }
    }
}
