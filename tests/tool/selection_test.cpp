// SPDX-License-Identifier: BSD-2-Clause
#include "tool/selection.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <vector>

#include "runtime/accounted_memory.h"

// The number of the frame that is picked among those of these sizes; 0 is one without a sample and
// -9 one without configuration. -1 if none is.
static int picked(const std::vector<int32_t>& sizes, int32_t percentile) {
    static uint8_t block;
    std::vector<KeyFrame> records;
    for (const int32_t size : sizes) {
        records.push_back(
            {size == -9 ? nullptr : &block, 1, size == 0 ? nullptr : &block, size, 4, size});
    }
    const KeyFrame* const chosen =
        selection_pick(records.data(), static_cast<int32_t>(records.size()), percentile);
    EXPECT_EQ(g_memUsed, 0);
    return chosen ? static_cast<int>(chosen - records.data()) : -1;
}

TEST(Selection, KeepsTheExchangeSortsOrderOfEqualSizesAndSkipsEmptyRecords) {
    std::mt19937 random(5);
    for (int round = 0; round < 3000; ++round) {
        std::vector<int32_t> sizes(random() % 24);
        std::vector<int> order;
        for (int32_t& size : sizes) {
            size = static_cast<int32_t>(random() % (2 + round % 6)) - 2;
            if (size == -2) size = -9;
            if (size != 0 && size != -9) order.push_back(static_cast<int>(&size - sizes.data()));
        }
        for (size_t i = 0; i < order.size(); ++i) {
            for (size_t j = i + 1; j < order.size(); ++j) {
                if (sizes[order[j]] < sizes[order[i]]) std::swap(order[i], order[j]);
            }
        }
        const int percentile = static_cast<int>(random() % 101);
        const size_t index = std::min(order.size() * percentile / 100, order.size() - 1);
        ASSERT_EQ(picked(sizes, percentile), order.empty() ? -1 : order[index]) << round;
    }
}

// The exchanges themselves would take about an hour.
TEST(Selection, DoesNotSlowDownOnManyFrames) {
    std::vector<int32_t> sizes(1'000'000);
    for (size_t i = 0; i < sizes.size(); ++i) sizes[i] = static_cast<int32_t>(sizes.size() - i / 2);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_GE(picked(sizes, 50), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}
