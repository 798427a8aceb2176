// SPDX-License-Identifier: BSD-2-Clause
// Starts background threads with a priority class and a configured stack size, falling back to
// the system's defaults when those are refused.
#pragma once

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

using ThreadRoutine = void* (*)(void* argument);

// Thread stack size in bytes as the host configured it; 0 leaves the system's default.
extern uint32_t g_threadStackSetting;
// Threads registered since the program started. Guarded by the lock that serialises the starts.
extern uint32_t g_threadsStarted;

// Is told what the start of a thread had to say, once the lock is free; null for nobody. The log,
// which starts threads itself, puts its own in.
using ThreadReporter = void (*)(bool is_error, const char* message);
extern ThreadReporter g_threadReporter;

// Scheduling priority of a class: 3, 4, 6 and 7 give 10, 30, 70 and 90, anything else 50.
int upnp_thread_priority(uint32_t priority_class);
// Stack size to ask the system for under a setting: at least 196608 bytes, 0 for the default.
size_t upnp_thread_stack_size(uint32_t setting);

// Kept on purpose: thread-runs-twice
// Returns the new thread's id, or 0 when no thread could be started. The routine can come to run
// twice: when the system was out of resources first, accepted the retry, and so takes the way
// through the default attributes as well. The id is the second thread's then.
pthread_t upnp_start_joinable_thread_impl(ThreadRoutine routine, void* argument,
                                          uint32_t priority_class);
// The same, detached.
pthread_t upnp_start_detached_thread(ThreadRoutine routine, void* argument,
                                     uint32_t priority_class);
// Starts a detached thread. Returns 0, or 14 when none could be started.
int upnp_start_thread(ThreadRoutine routine, void* argument, uint32_t priority_class);
