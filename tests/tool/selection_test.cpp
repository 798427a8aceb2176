// SPDX-License-Identifier: BSD-2-Clause
#include "tool/selection.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <vector>

using Sizes = std::vector<int32_t>;

// The number of the frame that is picked among those of these sizes; equal neighbours in sizes are
// one run when is_run. -1 for none.
static int32_t picked(const Sizes& sizes, int32_t percentile, bool is_run = false) {
    KeyFrameList list = {};
    list.runs = owned_malloc<KeyFrameRun>(sizes.size());
    for (size_t i = 0; i < sizes.size(); ++i) {
        if (is_run && i > 0 && sizes[i] == sizes[i - 1]) {
            ++list.runs[list.run_count - 1].count;
        } else {
            list.runs[list.run_count++] = {0, sizes[i], 1, sizes[i]};
        }
    }
    return selection_pick(list, percentile);
}

TEST(Selection, KeepsTheExchangeSortsOrderOfEqualSizes) {
    std::mt19937 random(5);
    for (int round = 0; round < 3000; ++round) {
        Sizes sizes(random() % 24);
        std::vector<int32_t> order;
        for (int32_t& size : sizes) {
            size = static_cast<int32_t>(random() % (2 + round % 6));
            order.push_back(static_cast<int32_t>(order.size()));
        }
        for (size_t i = 0; i < order.size(); ++i) {
            for (size_t j = i + 1; j < order.size(); ++j) {
                if (sizes[order[j]] < sizes[order[i]]) std::swap(order[i], order[j]);
            }
        }
        const int percentile = static_cast<int>(random() % 101);
        const size_t index = std::min(order.size() * percentile / 100, order.size() - 1);
        const int32_t want = order.empty() ? -1 : order[index];
        ASSERT_EQ(picked(sizes, percentile), want) << round;
        ASSERT_EQ(picked(sizes, percentile, true), want) << round;
    }
}

// The exchanges themselves would take about an hour, and the frames of the runs much memory.
TEST(Selection, DoesNotSlowDownOnManyFrames) {
    Sizes sizes(1'000'000);
    for (size_t i = 0; i < sizes.size(); ++i) sizes[i] = static_cast<int32_t>(sizes.size() - i / 2);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_GE(picked(sizes, 50), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    KeyFrameList list = {owned_malloc<KeyFrameRun>(3), 3, 3};
    constexpr int32_t kMost = kMostKeyFrames / 3;
    list.runs[0] = list.runs[1] = {0, 5, kMost, 5};
    list.runs[2] = {0, INT32_MAX, kMost, INT32_MAX};
    EXPECT_EQ(selection_pick(list, 20), 3 * kMost / 5);
}
