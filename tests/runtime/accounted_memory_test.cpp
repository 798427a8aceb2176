// SPDX-License-Identifier: BSD-2-Clause
#include "runtime/accounted_memory.h"

#include <gtest/gtest.h>

#include <thread>

#include "runtime/owned.h"
#include "tests/support/failing_malloc.h"

struct AccountedMemory : testing::Test {
    AccountedMemory() { upnp_memory_init(); }
    ~AccountedMemory() override { upnp_memory_exit(); }
};

TEST_F(AccountedMemory, CountsRequestedBytesAndKeepsThePeak) {
    void* const smaller = upnp_realloc(upnp_malloc(100), 40);
    EXPECT_EQ(g_memUsed, 40);
    upnp_free(smaller);
    void* const grown = upnp_realloc(upnp_realloc(nullptr, 80), 90);
    EXPECT_EQ(g_memPeak, 100);  // the old size leaves before the new one counts
    upnp_free(grown);
    const auto churn = [] {
        for (int i = 0; i < 20000; ++i) upnp_free(upnp_malloc(16));
    };
    std::thread other(churn);
    churn();
    other.join();
    EXPECT_EQ(g_memUsed, 0);
}

TEST_F(AccountedMemory, RefusesOneByteAboveTheLimit) {
    fail_allocation(1);  // a refusal at the limit never reaches the system
    EXPECT_EQ(upnp_malloc(kUpnpMaxBlock + 1), nullptr);
    EXPECT_EQ(upnp_calloc(kUpnpMaxBlock / 2 + 1, 2), nullptr);
    EXPECT_EQ(upnp_realloc(nullptr, kUpnpMaxBlock + 1), nullptr);
    EXPECT_EQ(owned_calloc<uint32_t>(0x40000001), nullptr);
    EXPECT_EQ(owned_malloc<uint32_t>(0x100000001), nullptr);
    EXPECT_FALSE(has_allocation_failed());
    EXPECT_EQ(upnp_malloc(kUpnpMaxBlock), nullptr);
    EXPECT_TRUE(has_allocation_failed());
    void* const wrapped = upnp_calloc(0x40000001, 4);
    EXPECT_EQ(g_memUsed, 4);
    upnp_free(wrapped);
}

TEST_F(AccountedMemory, ReportsMisuseOnStandardError) {
    char* text = upnp_strndup("abcdefgh", 6);
    fail_allocation(1);
    EXPECT_EQ(upnp_realloc(text, 4000), nullptr);
    EXPECT_EQ(g_memUsed, 0) << "a failed resize uncounts a block that stays valid";
    EXPECT_STREQ(text, "abcdef");
    testing::internal::CaptureStderr();
    upnp_free(nullptr);
    text = static_cast<char*>(upnp_realloc(text, 12));
    EXPECT_EQ(g_memUsed, 5);
    upnp_free(text);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "upnp_free: NULL pointer\nupnp_realloc: g_memUsed < 0 (-7)\n"
              "upnp_free: g_memUsed < 0 (-7)\n");
}

TEST(AccountedMemoryLifecycle, StartsOnceAndWorksUnstarted) {
    EXPECT_EQ(upnp_memory_exit(), 2);
    EXPECT_EQ(upnp_memory_init(), 0);
    EXPECT_EQ(upnp_memory_init(), 14);
    void* const block = upnp_malloc(7);
    EXPECT_EQ(upnp_memory_exit(), 0);
    upnp_free(block);
    EXPECT_EQ(g_memUsed, 0);
}
