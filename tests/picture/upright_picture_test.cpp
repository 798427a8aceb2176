// SPDX-License-Identifier: BSD-2-Clause
// Where samples end up, and in which colour. Pictures are made of flat blocks, so that scaling and
// chroma positions do not blur what is asked.
#include "picture/upright_picture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include "tests/picture/test_picture.h"

static std::array<int, 3> rgb_at(const UprightPicture& picture, int x, int y) {
    std::vector<uint8_t> row(static_cast<size_t>(picture.width) * 3);
    upright_row_rgb(picture, y, row.data());
    const size_t at = static_cast<size_t>(x) * 3;
    return {row[at], row[at + 1], row[at + 2]};
}

// Corners from the upper left clockwise, as their luma's tens: '1' to '4' in the coded picture.
static std::string corners(const UprightPicture& p) {
    std::string text;
    const int right = p.width - 1;
    const int bottom = p.height - 1;
    for (const auto& [x, y] :
         {std::pair{0, 0}, std::pair{right, 0}, std::pair{right, bottom}, std::pair{0, bottom}}) {
        text += static_cast<char>('0' + (rgb_at(p, x, y)[0] + 25) / 50);
    }
    return text;
}

TEST(UprightPicture, CropsTurnsAndMirrorsAllEightWays) {
    // What is shown is grey, and all else green.
    const auto is_shown = [](uint32_t x, uint32_t y) {
        return x >= 6 && x < 59 && y >= 10 && y < 39;
    };
    TestPicture source(63, 47, [&](uint32_t x, uint32_t y) {
        return !is_shown(x, y) ? 0 : y < 25 ? x < 33 ? 50 : 100 : x < 33 ? 200 : 150;
    });
    for (uint32_t i = 0; i < 32 * 24; ++i) {
        if (is_shown(i % 32 * 2, i / 32 * 2)) continue;
        source.bytes[source.decoded.u_offset + i] = source.bytes[source.decoded.v_offset + i] = 0;
    }
    source.decoded.cropped = 1;
    source.decoded.crop_left = 6;
    source.decoded.crop_right = 4;
    source.decoded.crop_top = 10;
    source.decoded.crop_bottom = 8;
    static const char* const kCorners[] = {"1234", "1234", "2143", "3412", "4321",
                                           "1432", "4123", "3214", "2341", "1234"};
    for (int i = 0; i < 40; ++i) {
        const int orientation = i / 4, side = i % 2 * 24;
        const ChromaSize chroma = i % 4 / 2 == 0 ? ChromaSize::kFull : ChromaSize::kHalf;
        SCOPED_TRACE(testing::Message() << orientation << " within " << side);
        const UprightPicture upright =
            upright_of(source, hints_of(1, orientation), {side, side}, chroma);
        const bool is_turned = orientation >= 5 && orientation <= 8;
        EXPECT_EQ(is_turned ? upright.height : upright.width, side == 0 ? 53 : 24);
        EXPECT_EQ(is_turned ? upright.width : upright.height, side == 0 ? 29 : 13);
        EXPECT_EQ(corners(upright), kCorners[orientation]);
        for (int y = 0; y < upright.height; ++y) {
            for (int x = 0; x < upright.width; ++x) {
                const auto [red, green, blue] = rgb_at(upright, x, y);
                const auto [least, most] = std::minmax({red, green, blue});
                // Averages of areas are rounded down.
                ASSERT_TRUE(most - least <= 4 && red > 44) << x << ' ' << y;
            }
        }
    }
}

TEST(UprightPicture, LastOddColumnsAndRowsHaveAColourOfTheirOwn) {
    TestPicture source(3, 3);
    uint8_t* const v = &source.bytes[source.decoded.v_offset];
    v[1] = v[source.decoded.stride / 2] = 240;
    const UprightPicture upright = upright_of(source, {});
    EXPECT_GT(rgb_at(upright, 2, 0)[0], 250);
    EXPECT_GT(rgb_at(upright, 0, 2)[0], 250);
}

TEST(UprightPicture, ConvertsColoursByMatrixAndRange) {
    // Limited and full range codes of a red (191, 64, 64) by ITU-R BT.601, 709 and 2020.
    // clang-format off
    const struct { int matrix, full_range; uint8_t y, u, v; } kCases[] = {
        {5, 0, 104, 109, 184}, {6, 1, 102, 107, 192}, {1, 0, 94, 115, 184},  {1, 1, 91, 113, 192},
        {9, 0, 100, 112, 184}, {9, 1, 97, 110, 192},  {2, 0, 104, 109, 184}, {0, 1, 102, 107, 192},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::Message() << c.matrix << ' ' << c.full_range);
        // The same said by the container, by the stream, and by the container against the stream.
        for (int way = 0; way < 3; ++way) {
            TestPicture source(16, 16);
            source.fill(c.y, c.u, c.v);
            ShowingHints container;
            if (way != 1) container.matrix_coefficients = c.matrix;
            if (way != 1) container.full_range = c.full_range;
            StreamPresentation& stream = source.decoded.presentation;
            if (way == 1) stream.matrix_coefficients = static_cast<uint8_t>(c.matrix);
            if (way == 1) stream.full_range = static_cast<uint8_t>(c.full_range);
            if (way == 2) stream.full_range = !c.full_range;
            const auto [red, green, blue] = rgb_at(upright_of(source, container), 8, 8);
            EXPECT_NEAR(red, 191, 2);
            EXPECT_NEAR(green, 64, 2);
            EXPECT_NEAR(blue, 64, 2);
        }
    }
    TestPicture black(16, 16);
    black.fill(16, 128, 128);
    EXPECT_EQ(rgb_at(upright_of(black, {}), 0, 0), (std::array<int, 3>{0, 0, 0}));
}

TEST(UprightPicture, MakesPixelsSquare) {
    // clang-format off
    const struct {
        uint16_t stream[2]; double container; int orientation, width, height;
    } kCases[] = {
        {{0, 0}, 0, 1, 48, 32}, {{4, 3}, 0, 1, 64, 32}, {{4, 3}, 1, 1, 48, 32},
        {{4, 0}, 0, 1, 48, 32}, {{2, 1}, 0, 6, 16, 48}, {{0, 0}, 0.5, 8, 64, 48},
        {{0, 0}, 2, 1, 96, 32},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(&c - kCases);
        TestPicture source(48, 32);
        source.decoded.presentation.pixel_width = c.stream[0];
        source.decoded.presentation.pixel_height = c.stream[1];
        ShowingHints hints = hints_of(-1, c.orientation);
        hints.pixel_aspect = c.container;
        const UprightPicture upright = upright_of(source, hints);
        EXPECT_EQ(upright.width, c.width);
        EXPECT_EQ(upright.height, c.height);
    }
}

TEST(UprightPicture, AveragesWhatItShrinks) {
    // A fine chequer becomes the grey between; one column in ten a tenth of it.
    const TestPicture chequer(320, 320, [](uint32_t x, uint32_t y) { return (x + y) % 2 * 200; });
    const TestPicture lines(320, 320, [](uint32_t x, uint32_t) { return x % 10 == 0 ? 200 : 0; });
    const UprightPicture upright = upright_of(chequer, hints_of(1), {64, 64});
    EXPECT_FALSE(upright.is_borrowing());
    EXPECT_TRUE(upright_of(chequer, hints_of(1), {160, 160}).is_borrowing());  // decoded chroma
    for (int x = 0; x < 64; ++x) EXPECT_NEAR(rgb_at(upright, x, x)[0], 100, 6) << x;
    const UprightPicture few = upright_of(lines, hints_of(1), {32, 32});
    for (int x = 0; x < 32; ++x) EXPECT_NEAR(rgb_at(few, x, 31 - x)[1], 20, 2) << x;
}
