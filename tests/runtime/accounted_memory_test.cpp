// SPDX-License-Identifier: BSD-2-Clause
#include "runtime/accounted_memory.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <thread>

#include "runtime/critical_section.h"
#include "runtime/owned.h"
#include "tests/support/failing_malloc.h"

class AccountedMemory : public testing::Test {
 protected:
    AccountedMemory() { EXPECT_EQ(upnp_memory_init(), 0); }
    ~AccountedMemory() override {
        fail_allocation(0);
        EXPECT_EQ(upnp_memory_exit(), 0);
    }
};

TEST_F(AccountedMemory, CountsRequestedBytesAndKeepsThePeak) {
    void* const empty = upnp_malloc(0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(g_memUsed, 0);
    void* const block = upnp_malloc(100);
    void* const smaller = upnp_realloc(block, 40);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(smaller) % 8, 0u);
    EXPECT_EQ(g_memUsed, 40);
    upnp_free(smaller);
    upnp_free(empty);
    EXPECT_EQ(g_memUsed, 0);
    EXPECT_EQ(g_memPeak, 100);
    void* const grown = upnp_realloc(upnp_realloc(nullptr, 80), 90);
    EXPECT_EQ(g_memPeak, 100);  // the old size leaves before the new one counts
    upnp_free(grown);
}

TEST_F(AccountedMemory, RefusesOneByteAboveTheLimit) {
    fail_allocation(1);  // a refusal at the limit never reaches the system
    EXPECT_EQ(upnp_malloc(kUpnpMaxBlock + 1), nullptr);
    EXPECT_EQ(upnp_calloc(kUpnpMaxBlock / 2 + 1, 2), nullptr);
    void* block = nullptr;
    EXPECT_EQ(upnp_realloc(block, kUpnpMaxBlock + 1), nullptr);
    EXPECT_FALSE(has_allocation_failed());
    EXPECT_EQ(upnp_malloc(kUpnpMaxBlock), nullptr);
    EXPECT_TRUE(has_allocation_failed());
    EXPECT_EQ(g_memUsed, 0);
}

TEST_F(AccountedMemory, CallocClearsAndItsProductWraps) {
    uint8_t* block = static_cast<uint8_t*>(upnp_calloc(3, 8));
    for (int i = 0; i < 24; ++i) EXPECT_EQ(block[i], 0);
    upnp_free(block);
    block = static_cast<uint8_t*>(upnp_calloc(0x40000001, 4));
    EXPECT_EQ(g_memUsed, 4);
    upnp_free(block);
    EXPECT_EQ(owned_calloc<uint32_t>(0x40000001), nullptr);
    EXPECT_EQ(owned_malloc<uint32_t>(0x100000001), nullptr);
}

TEST_F(AccountedMemory, FailedResizeUncountsABlockThatStaysValid) {
    char* const text = upnp_strdup("abcdef");
    fail_allocation(1);
    EXPECT_EQ(upnp_realloc(text, 4000), nullptr);
    EXPECT_EQ(g_memUsed, 0);
    EXPECT_STREQ(text, "abcdef");
    testing::internal::CaptureStderr();
    upnp_free(text);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "upnp_free: g_memUsed < 0 (-7)\n");
    EXPECT_EQ(g_memUsed, -7);
}

TEST_F(AccountedMemory, ReportsMisuseOnStandardError) {
    void* block = upnp_malloc(10);
    g_memUsed = 4;
    testing::internal::CaptureStderr();
    upnp_free(nullptr);
    block = upnp_realloc(block, 12);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "upnp_free: NULL pointer\nupnp_realloc: g_memUsed < 0 (-6)\n");
    EXPECT_EQ(g_memUsed, 6);
    g_memUsed = 12;
    upnp_free(block);
}

TEST_F(AccountedMemory, CopiesStrings) {
    char* const cut = upnp_strndup("abcdef", 3);
    char* const whole = upnp_strndup("abc", UINT32_MAX);
    EXPECT_STREQ(cut, "abc");
    EXPECT_STREQ(whole, "abc");
    EXPECT_EQ(g_memUsed, 8);
    upnp_free(cut);
    upnp_free(whole);
    EXPECT_EQ(upnp_strdup(nullptr), nullptr);
    EXPECT_EQ(upnp_strndup(nullptr, 3), nullptr);
}

TEST_F(AccountedMemory, CountsExactlyWhenThreadsShareIt) {
    const auto churn = [] {
        for (int i = 0; i < 20000; ++i) upnp_free(upnp_malloc(16));
    };
    std::thread other(churn);
    churn();
    other.join();
    EXPECT_EQ(g_memUsed, 0);
}

TEST(AccountedMemoryLifecycle, StartsOnceAndWorksUnstarted) {
    EXPECT_EQ(upnp_memory_exit(), 2);
    const int32_t sections = g_CriticalSectionCount;
    EXPECT_EQ(upnp_memory_init(), 0);
    EXPECT_EQ(upnp_memory_init(), 14);
    EXPECT_EQ(g_CriticalSectionCount, sections + 1);
    void* const block = upnp_malloc(7);
    EXPECT_EQ(upnp_memory_exit(), 0);
    EXPECT_EQ(g_CriticalSectionCount, sections);
    EXPECT_EQ(g_memUsed, 7);
    upnp_free(block);
    EXPECT_EQ(g_memUsed, 0);
}

TEST(CriticalSections, RefuseEmptyAndDoubledHandles) {
    CriticalSectionHandle handle = nullptr;
    EXPECT_EQ(upnp_critical_section_create(nullptr), 2);
    EXPECT_EQ(upnp_critical_section_enter(&handle), 2);
    EXPECT_EQ(upnp_critical_section_leave(&handle), 2);
    EXPECT_EQ(upnp_critical_section_destroy(&handle), 2);
    fail_allocation(1);
    EXPECT_EQ(upnp_critical_section_create(&handle), 8);
    EXPECT_EQ(upnp_critical_section_create(&handle), 0);
    EXPECT_EQ(upnp_critical_section_create(&handle), 2);
    EXPECT_EQ(upnp_critical_section_enter(&handle), 0);
    EXPECT_EQ(handle->locked, 1u);
    EXPECT_TRUE(pthread_equal(handle->holder, pthread_self()));
    EXPECT_EQ(upnp_critical_section_leave(&handle), 0);
    EXPECT_EQ(handle->locked, 0u);
    EXPECT_EQ(upnp_critical_section_destroy(&handle), 0);
    EXPECT_EQ(handle, nullptr);
}
