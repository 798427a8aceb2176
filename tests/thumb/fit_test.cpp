// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/fit.h"

#include <gtest/gtest.h>

TEST(Fit, KeepsTheShapeInSinglePrecision) {
    static const PictureSize kCases[][3] = {
        // picture, requested, want
        {{640, 480}, {160, 160}, {160, 120}},
        {{480, 640}, {160, 160}, {120, 160}},
        {{640, 480}, {600, 600}, {600, 449}},  // 449.99997
        {{1920, 1080}, {0, 240}, {1920, 1080}},
        {{4096, 16}, {160, 160}, {160, 0}},
        {{16, 16}, {2000, 2000}, {1999, 2000}},  // both ratios not above 0.01
        {{32, 16}, {2000, 4000}, {7999, 4000}},  // so the width cannot bind
        {{16, 16}, {2, 2147483646}, {INT32_MAX, 2147483646}},
    };
    for (const auto& [picture, requested, want] : kCases) {
        const PictureSize fitted = fit_size(picture, requested);
        EXPECT_EQ(fitted.width, want.width) << requested.width;
        EXPECT_EQ(fitted.height, want.height) << requested.width;
    }
}
