// SPDX-License-Identifier: BSD-2-Clause
#include "thumb/fit.h"

#include <gtest/gtest.h>

TEST(Fit, KeepsTheShapeInSinglePrecision) {
    static const struct {
        PictureSize picture, requested, want;
    } kCases[] = {
        {{640, 480}, {160, 160}, {160, 120}},
        {{480, 640}, {160, 160}, {120, 160}},
        {{640, 480}, {320, 240}, {320, 240}},
        {{640, 480}, {600, 600}, {600, 449}},  // 449.99997
        {{1920, 1080}, {320, 240}, {320, 180}},
        {{1920, 1080}, {0, 240}, {1920, 1080}},
        {{1920, 1080}, {320, 0}, {1920, 1080}},
        {{175, 143}, {0, 0}, {175, 143}},
        {{64, 64}, {128, 256}, {128, 128}},
        {{4096, 16}, {160, 160}, {160, 0}},
        {{16, 4096}, {160, 160}, {0, 160}},
        {{16, 16}, {2000, 2000}, {1999, 2000}},  // both ratios not above 0.01
        {{32, 16}, {2000, 4000}, {7999, 4000}},  // so the width cannot bind
        {{16, 16}, {2, 2147483646}, {INT32_MAX, 2147483646}},
        {{65520, 16}, {2, 2147483646}, {INT32_MAX, 2147483646}},
        {{1, 1}, {2, 2}, {2, 2}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::Message() << c.picture.width << "x" << c.picture.height << " into "
                                        << c.requested.width << "x" << c.requested.height);
        const PictureSize fitted = fit_size(c.picture, c.requested);
        EXPECT_EQ(fitted.width, c.want.width);
        EXPECT_EQ(fitted.height, c.want.height);
    }
}
