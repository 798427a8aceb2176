// SPDX-License-Identifier: BSD-2-Clause
#include "picture/display_size.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

static std::string text_of(DisplaySize size) {
    return std::to_string(size.width) + 'x' + std::to_string(size.height);
}

// Size and place.
static std::string text_of(const std::optional<VisibleArea>& area) {
    if (!area) return "nothing";
    return text_of({area->width, area->height}) + '+' + std::to_string(area->left) + '+' +
           std::to_string(area->top);
}

// The container cuts only the last macroblocks, where the stream has no cropping window.
TEST(DisplaySize, ShowsWhatTheStreamOrTheContainerLeaves) {
    constexpr DisplaySize kSmall = {64, 48}, kLarge = {1920, 1088};
    // clang-format off
    const struct {
        DisplaySize coded, stated; uint8_t is_cropped; uint32_t left, right, top, bottom; const char* want;
    } kCases[] = {
        {kSmall, {60, 40}, 1, 0, 0, 0, 0, "64x48+0+0"}, {kSmall, {60, 40}, 1, 2, 3, 4, 5, "59x39+2+4"},
        {kSmall, {0, 0}, 1, 63, 0, 47, 0, "1x1+63+47"}, {kSmall, {0, 0}, 1, 64, 0, 0, 0, "nothing"},
        {kSmall, {0, 0}, 1, 0, 65535, 0, 0, "nothing"}, {kSmall, {0, 0}, 1, 0, 0, ~1u, 0, "nothing"},
        {kLarge, {1920, 1080}, 0, 0, 0, 0, 0, "1920x1080+0+0"},
        {kLarge, {0, 0}, 0, 0, 0, 0, 0, "1920x1088+0+0"},
        {kLarge, {1920, 1072}, 0, 0, 0, 0, 0, "1920x1088+0+0"},
        {kLarge, {960, 540}, 0, 0, 0, 0, 0, "1920x1088+0+0"},
        {kLarge, {1921, 1080}, 0, 0, 0, 0, 0, "1920x1088+0+0"},
        {kLarge, {-1, 1080}, 0, 0, 0, 0, 0, "1920x1088+0+0"},
        {kLarge, {1905, 1073}, 0, 0, 0, 0, 0, "1905x1073+0+0"},
    };
    // clang-format on
    for (const auto& c : kCases) {
        const auto width = static_cast<uint32_t>(c.coded.width);
        const auto height = static_cast<uint32_t>(c.coded.height);
        const DecodedPicture picture = {nullptr,      width,  height,  width, 0,       0,
                                        c.is_cropped, c.left, c.right, c.top, c.bottom};
        EXPECT_EQ(text_of(visible_area(picture, c.stated)), c.want) << &c - kCases;
    }
}

TEST(DisplaySize, PixelShapesChangeTheWidth) {
    // clang-format off
    const struct { DisplaySize size; double aspect; int width; } kCases[] = {
        {{720, 480}, 1, 720}, {{720, 480}, 8 / 9., 640}, {{720, 480}, 40 / 33., 873},
        {{720, 480}, 2, 1440}, {{720, 480}, 1 / 8., 90}, {{720, 480}, 1 / 9., 720},
        {{720, 480}, 9, 720}, {{720, 480}, 0, 720}, {{720, 480}, -1, 720},
        {{720, 480}, 1e300, 720}, {{720, 480}, std::nan(""), 720}, {{1, 1}, 1 / 8., 1},
        {{65520, 16}, 8, 65500},
    };
    // clang-format on
    for (const auto& c : kCases) {
        EXPECT_EQ(text_of(square_pixel_size(c.size, c.aspect)), text_of({c.width, c.size.height}))
            << c.aspect;
    }
}

TEST(DisplaySize, FitsIntoTheLimitAndNeverGrowsUnasked) {
    // clang-format off
    const struct { DisplaySize picture; SizeLimit limit; const char* want; } kCases[] = {
        {{1920, 1080}, {}, "1920x1080"}, {{1920, 1080}, {256, 256}, "256x144"},
        {{1080, 1920}, {256, 256}, "144x256"}, {{1080, 1920}, {320, 240}, "135x240"},
        {{1920, 1080}, {320, 0}, "320x180"}, {{1920, 1080}, {0, 540}, "960x540"},
        {{100, 60}, {256, 256}, "100x60"}, {{100, 60}, {256, 256, false, true}, "256x154"},
        {{100, 60}, {0, 0, false, true}, "100x60"}, {{1920, 1080}, {128, 128, true}, "128x128"},
        {{65500, 1}, {128, 128}, "128x1"}, {{1, 65500}, {2147483647, 2}, "1x2"},
    };
    // clang-format on
    for (const auto& c : kCases) {
        EXPECT_EQ(text_of(limited_size(c.picture, c.limit)), c.want) << text_of(c.picture);
    }
}
