// SPDX-License-Identifier: BSD-2-Clause
#include "host/message_log.h"

#include <errno.h>
#include <gtest/gtest.h>

#include "host/clock_text.h"
#include "runtime/accounted_memory.h"
#include "tests/support/failing_malloc.h"
#include "tests/support/temp_folder.h"

struct MessageLog : testing::Test {
    MessageLog() {
        g_log = LogState();
        EXPECT_EQ(upnp_log_start(path_.c_str()), 0);
    }
    ~MessageLog() override {
        upnp_log_stop();
        EXPECT_EQ(g_memUsed, 0);
        g_log = LogState();
    }
    // The log without the first line's time stamp: "2026-11-15 00:04:40:123 " and a blank.
    std::string logged() {
        fflush(g_log.file);
        const std::string text = read_file(path_);
        return text.size() > 25 ? text.substr(25) : text;
    }
    TempFolder folder_;
    std::string path_ = folder_.path("log.txt");
};

TEST_F(MessageLog, HasSectionsLevelsAndHidesCredentials) {
    upnp_log_message(kLogError, kLogScan, "mp4_parse_stsz", 0, "%d of %s", 7, "x");
    EXPECT_EQ(logged(), "[Startup] - LOG_SCAN: mp4_parse_stsz : 7 of x\n");
    g_log.service_running = 1;
    g_log.section_mask = 1u << 15;
    errno = ENOSPC;
    upnp_log_message(9, 1u << 15, nullptr, 1, "WWW-Authenticate: secret");
    EXPECT_NE(logged().find(" ? - ?: [HTTP Authentication details not logged]\n"),
              std::string::npos);
    EXPECT_NE(logged().find("No space"), std::string::npos);
}

TEST_F(MessageLog, FiltersByLevelAndSection) {
    // Whether the service runs, level, section mask, whether it passes.
    static const int32_t kCases[][4] = {{0, kLogDebug, 0, 1},        {1, kLogError, 0, 0},
                                        {1, kLogCritical, 0, 1},     {0, kLogWarning, kLogScan, 0},
                                        {1, kLogError, kLogScan, 1}, {1, kLogError, kLogSystem, 0}};
    for (const auto& [running, level, mask, passes] : kCases) {
        g_log.service_running = running;
        g_log.section_mask = static_cast<uint32_t>(mask);
        EXPECT_EQ(upnp_log_is_enabled(level, kLogScan), passes) << running << level << mask;
    }
}

TEST_F(MessageLog, CutsTheMessageWhenMemoryIsShort) {
    fail_allocation(1, true);
    upnp_log_message(kLogError, kLogSystem, "f", 0, "%s", std::string(3000, 'x').c_str());
    fail_allocation(0);
    EXPECT_EQ(logged(), "[Startup] - LOG_SYSTEM: " + std::string(1023, 'x') + "\n");
}

TEST_F(MessageLog, CriticalGoesToTheConsoleAndTheHook) {
    static std::string hooked;
    g_log.critical_hook = [](const char* message) { hooked = message; };
    testing::internal::CaptureStdout();
    upnp_log_message(kLogCritical, kLogScan, "f", 0, "broken %d", 3);
    EXPECT_EQ(testing::internal::GetCapturedStdout().substr(25),
              "[Startup] - LOG_SCAN: broken 3 (f)\r\n");
    EXPECT_EQ(hooked, "broken 3 (f)");
    g_log.critical_hook = nullptr;
    EXPECT_EXIT(upnp_log_message(kLogCritical, 0, "f", 0, "m"), testing::ExitedWithCode(0), "");
}

TEST(ClockText, GoesOnUntil2106) {
    char text[32] = "";
    upnp_time_to_local_iso(3'980'000'000, text, sizeof text);
    EXPECT_EQ(std::string(text).substr(0, 7), "2096-02") << text;
}
