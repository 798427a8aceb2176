// SPDX-License-Identifier: BSD-2-Clause
#include "runtime/message_log.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <string>

#include "runtime/accounted_memory.h"
#include "runtime/clock_text.h"
#include "tests/support/failing_malloc.h"
#include "tests/support/temp_folder.h"

// Cuts the time stamp: "2026-11-15 00:04:40:123 " and the blank behind it.
static std::string without_stamp(const std::string& line) {
    return line.size() > 25 ? line.substr(25) : "short line: " + line;
}

class MessageLog : public testing::Test {
 protected:
    MessageLog() {
        g_log = LogState();
        EXPECT_EQ(upnp_log_start(path_.c_str()), 0);
    }
    ~MessageLog() override {
        upnp_log_stop();
        EXPECT_EQ(g_memUsed, 0);
        g_log = LogState();
    }
    std::string logged() {
        fflush(g_log.file);
        return read_file(path_);
    }
    TempFolder folder_;
    std::string path_ = folder_.path("log.txt");
};

TEST(MessageLogUnstarted, IsSilentAndAllocatesNothing) {
    g_log = LogState();
    fail_allocation(1);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    upnp_log_message(kLogError, kLogScan, "mp4_parse_stsz", 0, "No Memory to allocate ");
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(has_allocation_failed());
    fail_allocation(0);
    EXPECT_EQ(upnp_log_stop(), 2);
}

TEST_F(MessageLog, WritesPrefixFunctionAndMessage) {
    const char* const null_format = nullptr;
    upnp_log_message(kLogError, kLogScan, "mp4_parse_stsz", 0, "%d of %s", 7, "x");
    EXPECT_EQ(without_stamp(logged()), "[Startup] - LOG_SCAN: mp4_parse_stsz : 7 of x\n");
    g_log.service_running = 1;
    g_log.section_mask = 1u << 14 | 1u << 15;
    upnp_log_message(kLogError, 1u << 14, nullptr, 0, null_format);
    upnp_log_message(9, 1u << 15, nullptr, 0, "m");
    const std::string text = logged();
    EXPECT_NE(text.find(" [Error] - LOG_PROXY: strMessage = NULL!\n"), std::string::npos) << text;
    EXPECT_NE(text.find(" ? - ?: m\n"), std::string::npos) << text;
    EXPECT_EQ(upnp_log_start(nullptr), 14);
}

TEST_F(MessageLog, FiltersByLevelAndSection) {
    static const struct {
        int32_t running, level;
        uint32_t mask;
        bool passes;
    } kCases[] = {
        {0, kLogDebug, 0, true},           {1, kLogError, 0, false},
        {1, kLogCritical, 0, true},        {0, kLogWarning, kLogScan, false},
        {0, kLogError, kLogScan, true},    {1, kLogError, kLogScan, true},
        {1, kLogError, kLogSystem, false},
    };
    for (const auto& c : kCases) {
        g_log.service_running = c.running;
        g_log.section_mask = c.mask;
        SCOPED_TRACE(testing::Message() << c.running << " " << c.level << " " << c.mask);
        EXPECT_EQ(upnp_log_is_enabled(c.level, kLogScan) != 0, c.passes);
        if (c.level == kLogCritical) continue;
        const size_t length_before = logged().size();
        upnp_log_message(c.level, kLogScan, "f", 0, "m");
        EXPECT_EQ(logged().size() > length_before, c.passes);
    }
}

TEST_F(MessageLog, HidesCredentialsAndAddsTheSystemError) {
    upnp_log_message(kLogInfo, kLogSystem, nullptr, 1, "WWW-Authenticate: secret");
    errno = ENOSPC;
    upnp_log_message(kLogError, kLogSystem, nullptr, 1, "m");
    const std::string text = logged();
    EXPECT_EQ(text.find("secret"), std::string::npos);
    EXPECT_NE(text.find("[HTTP Authentication details not logged]\n"), std::string::npos);
    EXPECT_NE(text.find("No space left on device\n"), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
}

TEST_F(MessageLog, CutsTheMessageWhenMemoryIsShort) {
    fail_allocation(1, true);
    upnp_log_message(kLogError, kLogSystem, "f", 0, "%s", std::string(3000, 'x').c_str());
    fail_allocation(0);
    EXPECT_EQ(without_stamp(logged()), "[Startup] - LOG_SYSTEM: " + std::string(1023, 'x') + "\n");
}

static std::string g_hooked;
TEST_F(MessageLog, CriticalGoesToTheConsoleAndTheHook) {
    g_log.critical_hook = [](const char* message) { g_hooked = message; };
    g_log.enabled = 0;
    testing::internal::CaptureStdout();
    upnp_log_message(kLogCritical, kLogScan, "f", 0, "broken %d", 3);
    EXPECT_EQ(without_stamp(testing::internal::GetCapturedStdout()),
              "[Startup] - LOG_SCAN: broken 3 (f)\r\n");
    EXPECT_EQ(g_hooked, "broken 3 (f)");
    EXPECT_EQ(logged(), "");
}

TEST_F(MessageLog, CriticalWithoutAHookEndsTheProcessWithStatus0) {
    EXPECT_EXIT(upnp_log_message(kLogCritical, kLogScan, "f", 0, "m"), testing::ExitedWithCode(0),
                "");
    g_log.exit_hook = [](int status) { _Exit(status + 3); };
    EXPECT_EXIT(upnp_log_message(kLogCritical, kLogScan, "f", 0, "m"), testing::ExitedWithCode(3),
                "");
}

TEST(ClockText, FormatsLocalTimes) {
    setenv("TZ", "UTC+2", 1);
    tzset();
    char text[32] = "untouched";
    upnp_time_to_local_iso(0, text, sizeof text);
    EXPECT_STREQ(text, "1969-12-31T22:00:00");
    upnp_time_to_local_iso(UINT32_MAX, text, sizeof text);
    EXPECT_STREQ(text, sizeof(time_t) > 4 ? "2106-02-07T04:28:15" : "1969-12-31T21:59:59");
    upnp_log_time_stamp(text, sizeof text);
    int milliseconds = -1;
    tm parsed = {};
    const char* const rest = strptime(text, "%Y-%m-%d %H:%M:%S", &parsed);
    ASSERT_NE(rest, nullptr);
    EXPECT_EQ(sscanf(rest, ":%3d ", &milliseconds), 1);
    EXPECT_EQ(rest[4], ' ');
    EXPECT_STREQ(rest + 5, "");
}
