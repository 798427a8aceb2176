// SPDX-License-Identifier: BSD-2-Clause
#include "tool/selection.h"

#include <gtest/gtest.h>

#include <chrono>
#include <numeric>
#include <random>
#include <vector>

#include "runtime/accounted_memory.h"

static uint8_t g_block;

static std::vector<KeyFrame> frames_of_sizes(const std::vector<int32_t>& sizes) {
    std::vector<KeyFrame> records;
    for (const int32_t size : sizes) records.push_back({&g_block, 1, &g_block, size, 4, size});
    return records;
}

static int picked(const std::vector<KeyFrame>& records, int32_t percentile) {
    const KeyFrame* const chosen =
        selection_pick(records.data(), static_cast<int32_t>(records.size()), percentile);
    EXPECT_EQ(g_memUsed, 0);
    return chosen ? static_cast<int>(chosen - records.data()) : -1;
}

TEST(Selection, SkipsRecordsWithoutBlocks) {
    std::vector<KeyFrame> records = frames_of_sizes({1, 2, 3});
    records[0].sample = nullptr;
    records[2].config = nullptr;
    for (int percentile : {0, 50, 100}) EXPECT_EQ(picked(records, percentile), 1);
    records[1].config = nullptr;
    EXPECT_EQ(picked(records, 50), -1);
}

TEST(Selection, KeepsTheExchangeSortsOrderOfEqualSizes) {
    std::mt19937 random(5);
    for (int round = 0; round < 3000; ++round) {
        std::vector<int32_t> sizes(1 + random() % 24);
        for (int32_t& size : sizes) size = static_cast<int32_t>(random() % (1 + round % 6)) - 2;
        std::vector<int> order(sizes.size());
        std::iota(order.begin(), order.end(), 0);
        for (size_t i = 0; i < order.size(); ++i) {
            for (size_t j = i + 1; j < order.size(); ++j) {
                if (sizes[order[j]] < sizes[order[i]]) std::swap(order[i], order[j]);
            }
        }
        const int percentile = static_cast<int>(random() % 101);
        const size_t index = std::min(sizes.size() * percentile / 100, sizes.size() - 1);
        ASSERT_EQ(picked(frames_of_sizes(sizes), percentile), order[index]) << round;
    }
}

// The exchanges themselves would take about an hour.
TEST(Selection, DoesNotSlowDownOnManyFrames) {
    std::vector<int32_t> sizes(1'000'000);
    for (size_t i = 0; i < sizes.size(); ++i) sizes[i] = static_cast<int32_t>(sizes.size() - i / 2);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_GE(picked(frames_of_sizes(sizes), 50), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}
