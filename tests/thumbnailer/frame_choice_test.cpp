// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/frame_choice.h"

#include <gtest/gtest.h>

// The sizes in the order of the tries.
static std::vector<uint32_t> order(const std::vector<uint32_t>& sizes, int percentile) {
    std::vector<MovieKeyFrame> frames;
    for (const uint32_t size : sizes) frames.push_back({0, 0, size, 0});
    std::vector<uint32_t> result;
    for (const MovieKeyFrame& frame : frames_by_percentile(frames, percentile)) {
        result.push_back(frame.size);
    }
    return result;
}

TEST(FrameChoice, TakesThePercentileAndThenItsNeighbours) {
    using Sizes = std::vector<uint32_t>;
    EXPECT_EQ(order({50, 10, 40, 20, 30}, 70), (Sizes{40, 50, 30, 20, 10}));
    EXPECT_EQ(order({50, 10, 40, 20, 30}, 0), (Sizes{10, 20, 30, 40, 50}));
    EXPECT_EQ(order({50, 10, 40, 20, 30}, 100), (Sizes{50, 40, 30, 20, 10}));
    EXPECT_EQ(order({50, 10}, 50), (Sizes{50, 10}));
    EXPECT_EQ(order({7}, 70), (Sizes{7}));
    EXPECT_EQ(order({}, 70), Sizes{});
}
