// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/child_process.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>
#include <thread>

constexpr size_t kMuch = 1 << 20;

TEST(ChildProcess, GathersOutputAndStatus) {
    const ChildResult child = run_child(
        [](int output) {
            const std::string text(300000, 'x');
            return dprintf(output, "%s", text.c_str()) == 300000 ? 7 : 9;
        },
        {20, kMuch});
    EXPECT_EQ(child.end, ChildEnd::kExited);
    EXPECT_EQ(child.exit_status, 7);
    EXPECT_EQ(child.output, std::vector<uint8_t>(300000, 'x'));
}

TEST(ChildProcess, EndsWhatDoesNotEndByItself) {
    const auto sleeps = [](int) {
        if (fork() == 0) pause();  // holds the pipe open, and is in the same group
        pause();
        return 0;
    };
    const auto goes_on_in_silence = [](int output) {
        close(output);
        pause();
        return 0;
    };
    const auto crashes = [](int) {
        signal(SIGSEGV, SIG_DFL);
        return raise(SIGSEGV);
    };
    const auto floods = [](int output) {
        const std::string text(1 << 16, 'x');
        while (write(output, text.data(), text.size()) > 0) {
        }
        return 0;
    };
    EXPECT_EQ(run_child(sleeps, {1, kMuch}).end, ChildEnd::kTookTooLong);
    EXPECT_EQ(run_child(goes_on_in_silence, {1, kMuch}).end, ChildEnd::kTookTooLong);
    EXPECT_EQ(run_child(crashes, {20, kMuch}).end, ChildEnd::kKilled);
    EXPECT_EQ(run_child(floods, {20, kMuch}).end, ChildEnd::kWroteTooMuch);
    // What this process was started to ignore, as by nohup, does not interrupt, nor does it lose
    // the status of a child.
    signal(SIGHUP, SIG_IGN);
    signal(SIGCHLD, SIG_IGN);
    const auto hangs_up = [](int) { return kill(getppid(), SIGHUP) == 0 ? 5 : 6; };
    EXPECT_EQ(run_child(hangs_up, {20, kMuch}).exit_status, 5);
    for (const auto& work : {std::function<int(int)>(sleeps), {goes_on_in_silence}}) {
        EXPECT_EXIT(
            {
                alarm(20);
                std::thread([] { usleep(200000), kill(getpid(), SIGTERM); }).detach();
                _exit(run_child(work, {60, kMuch}).end == ChildEnd::kInterrupted ? 0 : 1);
            },
            testing::ExitedWithCode(0), "");
    }
}
