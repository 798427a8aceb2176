// SPDX-License-Identifier: BSD-2-Clause
#include "host/threads.h"

#include <errno.h>
#include <sched.h>

#include "host/clock_text.h"

uint32_t g_threadStackSetting = 0;
uint32_t g_threadsStarted = 0;
ThreadReporter g_threadReporter = nullptr;
static pthread_mutex_t g_registry_lock = PTHREAD_MUTEX_INITIALIZER;

constexpr uint32_t kSmallestSetStack = 0x30000;
constexpr int32_t kRetryWaitMs = 20;

int upnp_thread_priority(uint32_t priority_class) {
    switch (priority_class) {
        case 3:
            return 10;
        case 4:
            return 30;
        case 6:
            return 70;
        case 7:
            return 90;
        default:
            return 50;
    }
}

size_t upnp_thread_stack_size(uint32_t setting) {
    return setting != 0 && setting < kSmallestSetStack ? kSmallestSetStack : setting;
}

// The system may refuse a single attribute; the thread is then asked for without it.
static void fill_attributes(pthread_attr_t* attributes, uint32_t priority_class) {
    pthread_attr_init(attributes);
    pthread_attr_setschedpolicy(attributes, SCHED_OTHER);
    sched_param priority = {};
    priority.sched_priority = upnp_thread_priority(priority_class);
    pthread_attr_setschedparam(attributes, &priority);
    const size_t stack_size = upnp_thread_stack_size(g_threadStackSetting);
    if (stack_size != 0) pthread_attr_setstacksize(attributes, stack_size);
}

// What a start has to say. It is said once the registry is free: a line of the log can start a
// thread of its own.
struct StartReport {
    struct {
        bool is_error;
        const char* message;
    } lines[3];  // as many as the longest way has
    int count;
};

static void warn(StartReport* said, const char* message) {
    said->lines[said->count++] = {false, message};
}

static void fail(StartReport* said, const char* message) {
    said->lines[said->count++] = {true, message};
}

static void tell(const StartReport& said) {
    for (int i = 0; g_threadReporter && i < said.count; ++i) {
        g_threadReporter(said.lines[i].is_error, said.lines[i].message);
    }
}

// Creates a thread and stores its id; an id that is there already survives a failure.
static int create(pthread_t* id, const pthread_attr_t* attributes, ThreadRoutine routine,
                  void* argument) {
    pthread_t fresh = 0;
    const int error = pthread_create(&fresh, attributes, routine, argument);
    if (error == 0) *id = fresh;
    return error;
}

static pthread_t start_or_fall_back(const pthread_attr_t* attributes, ThreadRoutine routine,
                                    void* argument, StartReport* said) {
    pthread_t id = 0;
    const int error = create(&id, attributes, routine, argument);
    if (error == 0) return id;
    if (error == EAGAIN) {
        warn(said, "Not enough resources to start thread - retrying");
        upnp_sleep_ms(kRetryWaitMs);
        if (create(&id, attributes, routine, argument) == EAGAIN) {
            fail(said, "Second try to start thread failed - giving up");
            return id;
        }
    }
    warn(said, "Failed to start thread with requested priority and scheduler - trying default");
    if (create(&id, nullptr, routine, argument) != 0) {
        fail(said, "Failed to start thread with defaults - giving up");
    }
    return id;
}

pthread_t upnp_start_joinable_thread_impl(ThreadRoutine routine, void* argument,
                                          uint32_t priority_class) {
    StartReport said = {};
    pthread_mutex_lock(&g_registry_lock);
    pthread_attr_t attributes;
    fill_attributes(&attributes, priority_class);
    const pthread_t id = start_or_fall_back(&attributes, routine, argument, &said);
    pthread_attr_destroy(&attributes);
    if (id != 0) ++g_threadsStarted;
    pthread_mutex_unlock(&g_registry_lock);
    tell(said);
    return id;
}

pthread_t upnp_start_detached_thread(ThreadRoutine routine, void* argument,
                                     uint32_t priority_class) {
    const pthread_t id = upnp_start_joinable_thread_impl(routine, argument, priority_class);
    if (id != 0) pthread_detach(id);
    return id;
}

int upnp_start_thread(ThreadRoutine routine, void* argument, uint32_t priority_class) {
    return upnp_start_detached_thread(routine, argument, priority_class) != 0 ? 0 : 14;
}
