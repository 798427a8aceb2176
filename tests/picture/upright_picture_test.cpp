// SPDX-License-Identifier: BSD-2-Clause
// Where samples end up, and in which colour. Pictures are made of flat blocks, so that scaling and
// chroma positions do not blur what is asked.
#include "picture/upright_picture.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace {

struct TestPicture {
    DecodedPicture decoded = {};
    std::vector<uint8_t> bytes;

    TestPicture(uint32_t width, uint32_t height) {
        const uint32_t pitch = (width + 15) / 16 * 16;
        const uint32_t rows = (height + 15) / 16 * 16;
        bytes.assign(pitch * rows * 3 / 2, 128);  // its exact size: sanitizers see what lies behind
        decoded.planes = bytes.data();
        decoded.width = width;
        decoded.height = height;
        decoded.stride = pitch;
        decoded.u_offset = pitch * rows;
        decoded.v_offset = pitch * rows * 5 / 4;
    }
    uint8_t& luma(uint32_t x, uint32_t y) { return bytes[y * decoded.stride + x]; }
    void fill(uint8_t y, uint8_t u, uint8_t v) {
        std::fill_n(bytes.begin(), decoded.u_offset, y);
        std::fill_n(bytes.begin() + decoded.u_offset, decoded.u_offset / 4, u);
        std::fill_n(bytes.begin() + decoded.v_offset, decoded.u_offset / 4, v);
    }
};

std::array<int, 3> rgb_at(const UprightPicture& picture, int x, int y) {
    std::vector<uint8_t> row(static_cast<size_t>(picture.width) * 3);
    upright_row_rgb(picture, y, row.data());
    const size_t at = static_cast<size_t>(x) * 3;
    return {row[at], row[at + 1], row[at + 2]};
}

// Corners from the upper left clockwise, as their luma's tens: '1' to '4' in the coded picture.
std::string corners(const UprightPicture& p) {
    std::string text;
    const int right = p.width - 1;
    const int bottom = p.height - 1;
    for (const auto& [x, y] :
         {std::pair{0, 0}, std::pair{right, 0}, std::pair{right, bottom}, std::pair{0, bottom}}) {
        text += static_cast<char>('0' + (rgb_at(p, x, y)[0] + 25) / 50);
    }
    return text;
}

TEST(UprightPicture, TurnsAndMirrorsAllEightWays) {
    TestPicture source(48, 32);
    for (uint32_t y = 0; y < 32; ++y) {
        for (uint32_t x = 0; x < 48; ++x) {
            source.luma(x, y) = static_cast<uint8_t>(50 * (y < 16   ? x < 24 ? 1 : 2
                                                           : x < 24 ? 4
                                                                    : 3));
        }
    }
    static const char* const kCorners[] = {"1234", "1234", "2143", "3412", "4321",
                                           "1432", "4123", "3214", "2341", "1234"};
    for (int orientation = 0; orientation < 10; ++orientation) {
        SCOPED_TRACE(orientation);
        ShowingHints hints;
        hints.full_range = 1;
        hints.turn = turn_of_orientation(orientation);
        const bool is_turned = orientation >= 5 && orientation <= 8;
        for (const int side : {0, 24}) {
            UprightPicture upright;
            ASSERT_EQ(make_upright(source.decoded, hints, {side, side}, &upright),
                      UprightStatus::kDone);
            EXPECT_EQ(upright.width > upright.height, !is_turned);
            EXPECT_EQ(corners(upright), kCorners[orientation]) << side;
        }
    }
}

TEST(UprightPicture, ConvertsColoursByMatrixAndRange) {
    // Limited and full range codes of a red (191, 64, 64) by ITU-R BT.601, 709 and 2020.
    const struct {
        int matrix, full_range;
        uint8_t y, u, v;
    } kCases[] = {
        {5, 0, 104, 109, 184}, {6, 1, 102, 107, 192}, {1, 0, 94, 115, 184},  {1, 1, 91, 113, 192},
        {9, 0, 100, 112, 184}, {9, 1, 97, 110, 192},  {2, 0, 104, 109, 184}, {0, 1, 102, 107, 192},
    };
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
            UprightPicture upright;
            ASSERT_EQ(make_upright(source.decoded, container, {}, &upright), UprightStatus::kDone);
            const auto [red, green, blue] = rgb_at(upright, 8, 8);
            EXPECT_NEAR(red, 191, 2);
            EXPECT_NEAR(green, 64, 2);
            EXPECT_NEAR(blue, 64, 2);
        }
    }
    TestPicture black(16, 16);
    black.fill(16, 128, 128);
    UprightPicture upright;
    ASSERT_EQ(make_upright(black.decoded, {}, {}, &upright), UprightStatus::kDone);
    EXPECT_EQ(rgb_at(upright, 0, 0), (std::array<int, 3>{0, 0, 0}));
}

TEST(UprightPicture, MakesPixelsSquare) {
    const struct {
        uint16_t stream[2];
        uint32_t container[2];
        double stretch;
        int orientation;
        int width, height;
    } kCases[] = {
        {{0, 0}, {0, 0}, 1, 1, 48, 32}, {{4, 3}, {0, 0}, 1, 1, 64, 32},
        {{4, 3}, {1, 1}, 1, 1, 48, 32}, {{4, 3}, {0, 9}, 1, 1, 64, 32},
        {{2, 1}, {0, 0}, 1, 6, 16, 48}, {{0, 0}, {1, 2}, 1, 8, 64, 48},
        {{0, 0}, {0, 0}, 2, 1, 96, 32}, {{0, 0}, {2, 1}, 0.5, 1, 48, 32},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(&c - kCases);
        TestPicture source(48, 32);
        source.decoded.presentation.pixel_width = c.stream[0];
        source.decoded.presentation.pixel_height = c.stream[1];
        ShowingHints hints;
        hints.pixel_width = c.container[0];
        hints.pixel_height = c.container[1];
        hints.stretch = c.stretch;
        hints.turn = turn_of_orientation(c.orientation);
        UprightPicture upright;
        ASSERT_EQ(make_upright(source.decoded, hints, {}, &upright), UprightStatus::kDone);
        EXPECT_EQ(upright.width, c.width);
        EXPECT_EQ(upright.height, c.height);
    }
}

TEST(UprightPicture, CropsOnAllSides) {
    TestPicture source(64, 48);
    source.fill(0, 0, 0);
    // What is shown is grey, and 16 rows or columns lighter on its border.
    for (uint32_t y = 10; y < 40; ++y) {
        for (uint32_t x = 6; x < 60; ++x) {
            const bool is_border = x == 6 || x == 59 || y == 10 || y == 39;
            source.luma(x, y) = is_border ? 200 : 100;
            source.bytes[source.decoded.u_offset + y / 2 * 32 + x / 2] = 128;
            source.bytes[source.decoded.v_offset + y / 2 * 32 + x / 2] = 128;
        }
    }
    source.decoded.cropped = 1;
    source.decoded.crop_left = 6;
    source.decoded.crop_right = 4;
    source.decoded.crop_top = 10;
    source.decoded.crop_bottom = 8;
    ShowingHints full;
    full.full_range = 1;
    UprightPicture upright;
    ASSERT_EQ(make_upright(source.decoded, full, {}, &upright), UprightStatus::kDone);
    ASSERT_EQ(upright.width, 54);
    ASSERT_EQ(upright.height, 30);
    for (int y = 0; y < 30; ++y) {
        for (int x = 0; x < 54; ++x) {
            const bool is_border = x == 0 || x == 53 || y == 0 || y == 29;
            const int want = is_border ? 200 : 100;
            ASSERT_EQ(rgb_at(upright, x, y), (std::array<int, 3>{want, want, want}))
                << x << ' ' << y;
        }
    }
}

TEST(UprightPicture, OddSizesAreNotSheared) {
    // A vertical edge stays where it is, from the first row to the last, at any width.
    for (uint32_t width = 1; width < 70; width += 2) {
        TestPicture source(width, 33);
        for (uint32_t y = 0; y < 33; ++y) {
            for (uint32_t x = 0; x < width; ++x) source.luma(x, y) = x < width / 2 ? 20 : 220;
        }
        for (const int side : {0, 31, 13, 5}) {
            UprightPicture upright;
            ASSERT_EQ(make_upright(source.decoded, {}, {side, side}, &upright),
                      UprightStatus::kDone);
            std::vector<uint8_t> first(static_cast<size_t>(upright.width) * 3);
            std::vector<uint8_t> row(first.size());
            upright_row_rgb(upright, 0, first.data());
            for (int y = 1; y < upright.height; ++y) {
                upright_row_rgb(upright, y, row.data());
                for (size_t i = 0; i < row.size(); ++i) {
                    ASSERT_NEAR(row[i], first[i], 4) << width << " within " << side << ' ' << y;
                }
            }
        }
    }
}

TEST(UprightPicture, AveragesWhatItShrinks) {
    // A fine chequer becomes the grey between; one column in ten a tenth of it.
    TestPicture chequer(320, 320);
    TestPicture lines(320, 320);
    for (uint32_t y = 0; y < 320; ++y) {
        for (uint32_t x = 0; x < 320; ++x) {
            chequer.luma(x, y) = (x + y) % 2 ? 200 : 0;
            lines.luma(x, y) = x % 10 == 0 ? 200 : 0;
        }
    }
    ShowingHints full;
    full.full_range = 1;
    UprightPicture upright;
    ASSERT_EQ(make_upright(chequer.decoded, full, {64, 64}, &upright), UprightStatus::kDone);
    EXPECT_FALSE(upright.is_borrowing());
    UprightPicture half;
    ASSERT_EQ(make_upright(chequer.decoded, full, {160, 160}, &half), UprightStatus::kDone);
    EXPECT_TRUE(half.is_borrowing());  // its chroma is the decoded one
    for (int x = 0; x < 64; ++x) EXPECT_NEAR(rgb_at(upright, x, x)[0], 100, 6) << x;
    UprightPicture few;
    ASSERT_EQ(make_upright(lines.decoded, full, {32, 32}, &few), UprightStatus::kDone);
    for (int x = 0; x < 32; ++x) EXPECT_NEAR(rgb_at(few, x, 31 - x)[1], 20, 2) << x;
}

}  // namespace
