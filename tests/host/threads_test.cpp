// SPDX-License-Identifier: BSD-2-Clause
#include "host/threads.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <vector>

#include "host/message_log.h"

// What the system answers to the next thread creations; real threads are made where it says 0.
static std::vector<int> g_answers;
static std::vector<bool> g_with_attributes;

extern "C" {
int __real_pthread_create(pthread_t*, const pthread_attr_t*, ThreadRoutine, void*);
int __wrap_pthread_create(pthread_t* id, const pthread_attr_t* attributes, ThreadRoutine routine,
                          void* argument) {
    g_with_attributes.push_back(attributes != nullptr);
    const int answer = g_answers.at(g_with_attributes.size() - 1);
    return answer != 0 ? answer : __real_pthread_create(id, attributes, routine, argument);
}
}

TEST(Threads, FallBackWhenTheSystemRefuses) {
    const auto check = [&](const std::vector<int>& answers,
                           const std::vector<bool>& with_attributes, int want,
                           int line = __builtin_LINE()) {
        SCOPED_TRACE(line);
        static std::atomic<int> runs;  // outlives the thread whose id is lost
        runs = 0;
        g_answers = answers;
        g_with_attributes.clear();
        const auto count_run = [](void*) -> void* { return ++runs, nullptr; };
        const pthread_t id = upnp_start_joinable_thread_impl(count_run, nullptr, 5);
        ASSERT_EQ(id != 0, want != 0);
        if (id != 0) pthread_join(id, nullptr);
        for (int ms = 0; runs < want && ms < 5000; ++ms) usleep(1000);
        EXPECT_EQ(runs, want);
        EXPECT_EQ(g_with_attributes, with_attributes);
    };
    check({0}, {true}, 1);
    check({EAGAIN, EAGAIN}, {true, true}, 0);
    check({EAGAIN, 0, 0}, {true, true, false}, 2);
    check({EAGAIN, 0, EPERM}, {true, true, false}, 1);
    check({EAGAIN, EPERM, 0}, {true, true, false}, 1);
    check({EINVAL, 0}, {true, false}, 1);
    check({EPERM, EAGAIN}, {true, false}, 0);
}

TEST(Threads, FailedStartCanBeLoggedWhileOldLogPartsWait) {
    const auto fail_twice = [] {
        alarm(20);
        upnp_log_start("/dev/null");
        g_log.service_running = 1;
        g_log.section_mask = kLogSystem;
        g_log.old_parts_pending = 1;
        g_with_attributes.clear();
        g_answers = {EAGAIN, EAGAIN, EAGAIN, EAGAIN};  // the second start is the log's
        const auto nothing = [](void* argument) -> void* { return argument; };
        exit(upnp_start_thread(nothing, nullptr, 5) == 14 ? 0 : 1);
    };
    EXPECT_EXIT(fail_twice(), testing::ExitedWithCode(0), "");
}

TEST(Threads, HavePrioritiesByClassAndStacksAboveALimit) {
    static const int kWant[] = {50, 50, 50, 10, 30, 50, 70, 90, 50};
    for (uint32_t i = 0; i < 9; ++i) EXPECT_EQ(upnp_thread_priority(i), kWant[i]) << i;
    EXPECT_EQ(upnp_thread_stack_size(1), 196608u);
}
