// SPDX-License-Identifier: BSD-2-Clause
#include "runtime/threads.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

// What the system answers to the next thread creations; real threads are made where it says 0.
static std::vector<int> g_answers;
static std::vector<bool> g_with_attributes;
static size_t g_stack_size;

extern "C" {
int __real_pthread_create(pthread_t* id, const pthread_attr_t* attributes, ThreadRoutine routine,
                          void* argument);
int __wrap_pthread_create(pthread_t* id, const pthread_attr_t* attributes, ThreadRoutine routine,
                          void* argument) {
    const size_t call = g_with_attributes.size();
    g_with_attributes.push_back(attributes != nullptr);
    if (attributes) pthread_attr_getstacksize(attributes, &g_stack_size);
    if (call < g_answers.size() && g_answers[call] != 0) return g_answers[call];
    return __real_pthread_create(id, attributes, routine, argument);
}
}

static void* count_run(void* counter) {
    ++*static_cast<std::atomic<int>*>(counter);
    return nullptr;
}

TEST(Threads, MapPriorityAndStackSize) {
    static const struct {
        uint32_t priority_class;
        int want;
    } kPriorities[] = {{0, 50}, {3, 10}, {4, 30}, {5, 50}, {6, 70}, {7, 90}, {8, 50}};
    for (const auto& c : kPriorities) EXPECT_EQ(upnp_thread_priority(c.priority_class), c.want);
    static const struct {
        uint32_t setting;
        size_t want;
    } kStacks[] = {{0, 0}, {1, 196608}, {100000, 196608}, {196607, 196608}, {300000, 300000}};
    for (const auto& c : kStacks) EXPECT_EQ(upnp_thread_stack_size(c.setting), c.want);
}

TEST(Threads, FallBackWhenTheSystemRefuses) {
    static const struct {
        const char* name;
        std::vector<int> answers;
        std::vector<bool> with_attributes;
        bool has_id;
        int runs;
    } kCases[] = {
        {"accepted", {0}, {true}, true, 1},
        {"no resources twice", {EAGAIN, EAGAIN}, {true, true}, false, 0},
        {"retry accepted", {EAGAIN, 0, 0}, {true, true, false}, true, 2},
        {"retry accepted, default refused", {EAGAIN, 0, EPERM}, {true, true, false}, true, 1},
        {"retry refused", {EAGAIN, EPERM, 0}, {true, true, false}, true, 1},
        {"attributes refused", {EINVAL, 0}, {true, false}, true, 1},
        {"all refused", {EPERM, EAGAIN}, {true, false}, false, 0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        static std::atomic<int> runs;  // outlives the thread whose id is lost
        runs = 0;
        g_answers = c.answers;
        g_with_attributes.clear();
        const uint32_t started = g_threadsStarted;
        const pthread_t id = upnp_start_joinable_thread_impl(count_run, &runs, 5);
        EXPECT_EQ(id != 0, c.has_id);
        if (id != 0) pthread_join(id, nullptr);
        while (runs < c.runs) sched_yield();
        EXPECT_EQ(runs, c.runs);
        EXPECT_EQ(g_with_attributes, c.with_attributes);
        EXPECT_EQ(g_threadsStarted, started + (c.has_id ? 1 : 0));
    }
}

TEST(Threads, StartDetachedWithTheConfiguredStack) {
    static std::atomic<int> runs;
    runs = 0;
    g_answers.clear();
    g_threadStackSetting = 100000;
    EXPECT_EQ(upnp_start_thread(count_run, &runs, 7), 0);
    g_threadStackSetting = 0;
    EXPECT_EQ(g_stack_size, 196608u);
    while (runs == 0) sched_yield();
    g_with_attributes.clear();
    g_answers = {EPERM, EPERM};
    EXPECT_EQ(upnp_start_thread(count_run, &runs, 7), 14);
}
