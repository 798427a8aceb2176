// SPDX-License-Identifier: BSD-2-Clause
#include "picture/display_size.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

DecodedPicture picture_of(uint32_t width, uint32_t height) {
    DecodedPicture picture = {};
    picture.width = width;
    picture.height = height;
    picture.stride = width;
    return picture;
}

TEST(DisplaySize, ShowsWhatCroppingLeaves) {
    const struct {
        uint32_t left, right, top, bottom;
        int width, height;  // 0: nothing
    } kCases[] = {
        {0, 0, 0, 0, 64, 48}, {2, 3, 4, 5, 59, 39},   {63, 0, 47, 0, 1, 1},
        {64, 0, 0, 0, 0, 0},  {0, 65535, 0, 0, 0, 0}, {0, 0, 0xfffffffe, 0, 0, 0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::Message() << c.left << ' ' << c.right << ' ' << c.top);
        DecodedPicture picture = picture_of(64, 48);
        picture.cropped = 1;
        picture.crop_left = c.left;
        picture.crop_right = c.right;
        picture.crop_top = c.top;
        picture.crop_bottom = c.bottom;
        const auto area = visible_area(picture, {60, 40});
        ASSERT_EQ(area.has_value(), c.width > 0);
        if (!area) continue;
        EXPECT_EQ(area->left, static_cast<int>(c.left));
        EXPECT_EQ(area->top, static_cast<int>(c.top));
        EXPECT_EQ(area->width, c.width);
        EXPECT_EQ(area->height, c.height);
    }
}

TEST(DisplaySize, TheContainerCutsOnlyTheLastMacroblocks) {
    const struct {
        DisplaySize stated;
        int width, height;
    } kCases[] = {
        {{1920, 1080}, 1920, 1080}, {{0, 0}, 1920, 1088},       {{1920, 1072}, 1920, 1088},
        {{960, 540}, 1920, 1088},   {{1921, 1080}, 1920, 1088}, {{-1, 1080}, 1920, 1088},
        {{1905, 1073}, 1905, 1073},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.stated.height);
        const auto area = visible_area(picture_of(1920, 1088), c.stated);
        ASSERT_TRUE(area);
        EXPECT_EQ(area->width, c.width);
        EXPECT_EQ(area->height, c.height);
    }
}

TEST(DisplaySize, PixelShapesChangeTheWidth) {
    const struct {
        double aspect;
        int width;
    } kCases[] = {
        {1, 720}, {8 / 9., 640}, {40 / 33., 873}, {2, 1440},    {1 / 8., 90},        {1 / 9., 720},
        {9, 720}, {0, 720},      {-1, 720},       {1e300, 720}, {std::nan(""), 720},
    };
    for (const auto& c : kCases) {
        const DisplaySize size = square_pixel_size({720, 480}, c.aspect);
        EXPECT_EQ(size.width, c.width) << c.aspect;
        EXPECT_EQ(size.height, 480);
    }
    EXPECT_EQ(square_pixel_size({1, 1}, 1 / 8.).width, 1);
    EXPECT_EQ(square_pixel_size({65520, 16}, 8).width, 65500);
}

TEST(DisplaySize, FitsIntoTheLimitAndNeverGrowsUnasked) {
    const struct {
        DisplaySize picture;
        SizeLimit limit;
        int width, height;
    } kCases[] = {
        {{1920, 1080}, {}, 1920, 1080},
        {{1920, 1080}, {256, 256}, 256, 144},
        {{1080, 1920}, {256, 256}, 144, 256},
        {{1080, 1920}, {320, 240}, 135, 240},
        {{1920, 1080}, {320, 0}, 320, 180},
        {{1920, 1080}, {0, 540}, 960, 540},
        {{100, 60}, {256, 256}, 100, 60},
        {{100, 60}, {256, 256, false, true}, 256, 154},
        {{100, 60}, {0, 0, false, true}, 100, 60},
        {{1920, 1080}, {128, 128, true}, 128, 128},
        {{65500, 1}, {128, 128}, 128, 1},
        {{1, 65500}, {2147483647, 2}, 1, 2},
    };
    for (const auto& c : kCases) {
        const DisplaySize size = limited_size(c.picture, c.limit);
        EXPECT_EQ(size.width, c.width) << c.picture.width << ' ' << c.limit.width;
        EXPECT_EQ(size.height, c.height) << c.picture.width << ' ' << c.limit.width;
    }
}

}  // namespace
