// SPDX-License-Identifier: BSD-2-Clause
#include "movie/presentation.h"

#include <gtest/gtest.h>

constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr int64_t kMax = std::numeric_limits<int64_t>::max();

TEST(Rescale, RoundsToThePastAndStaysIn64Bits) {
    // clang-format off
    static const struct { int64_t value; uint32_t from, to; int64_t want; } kCases[] = {
        {0, 1, 1, 0}, {7, 2, 1, 3}, {-7, 2, 1, -4}, {3003, 30000, 1000000, 100100},
        {kMax, 1, UINT32_MAX, kMax}, {kMin, 1, UINT32_MAX, kMin},
        {kMax, UINT32_MAX, UINT32_MAX, kMax}, {kMax, UINT32_MAX, 1, 2147483648},
        {int64_t{UINT32_MAX} * 3 - 1, UINT32_MAX, UINT32_MAX - 1, int64_t{UINT32_MAX} * 3 - 4},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::Message() << c.value << " * " << c.to << " / " << c.from);
        EXPECT_EQ(rescale(c.value, c.from, c.to), c.want);
    }
}

// Movie in 1/1000 s, media in 1/10 s.
TEST(Presentation, EditsMoveTimes) {
    const auto check = [](const char* name, const std::vector<Edit>& edits, int64_t media_time,
                          int64_t want_ms, int64_t duration_ms, bool is_cut_off_behind = false) {
        SCOPED_TRACE(name);
        const Presentation presentation(edits, 1000, 10);
        EXPECT_EQ(presentation.shown_at(media_time), want_ms * 1000);
        EXPECT_EQ(presentation.duration_us(), duration_ms * 1000);
        EXPECT_EQ(presentation.is_cut_off_behind(media_time), is_cut_off_behind);
        EXPECT_LE(presentation.earliest_media_time(want_ms * 1000), media_time);
    };
    check("none", {}, 25, 2500, 0);
    check("starts later", {{5000, 20}}, 25, 500, 5000);
    check("before the start", {{5000, 20}}, 15, -500, 5000);
    check("after the end", {{1000, 20}}, 50, 3000, 1000, true);
    check("between two", {{1000, 20}, {1000, 50}}, 40, 2000, 2000, true);
    check("nothing first", {{3000, -1}, {5000, 0}}, 25, 5500, 8000);
    check("open end", {{0, 10}}, 25, 1500, 0);
    check("second part", {{1000, 50}, {2000, 10}}, 25, 2500, 3000);
    check("shown twice: the first time", {{1000, 20}, {1000, 20}}, 25, 500, 2000);
    check("only nothing", {{3000, -1}}, 25, 2500, 3000);
}

TEST(Presentation, ExtremesStayDefined) {
    const Presentation presentation({{kMax, kMax}, {kMax, -1}, {kMax, 0}}, 1, 1, kMax);
    const Presentation simple({{kMax, kMax}}, UINT32_MAX, UINT32_MAX, kMax);
    for (const int64_t time : {kMin, int64_t{-1}, int64_t{0}, kMax}) {
        presentation.shown_at(time);
        simple.shown_at(time);
        EXPECT_LE(simple.earliest_media_time(time), kMax);
    }
    EXPECT_EQ(presentation.duration_us(), kMax);
}
