// SPDX-License-Identifier: BSD-2-Clause
// A lock that exists only between its creation and its destruction: entering one that does not
// exist is harmless, which lets the runtime work before it was started and after it was ended.
#pragma once

#include <pthread.h>
#include <stdint.h>

struct CriticalSection {
    pthread_mutex_t mutex;
    uint32_t initialised;  // 1 once created
    uint32_t locked;       // 1 while held
    pthread_t holder;      // the last thread that entered
};
// Empty (null) before creation and after destruction.
using CriticalSectionHandle = CriticalSection*;

// Critical sections that exist now. Plain updates without a lock.
extern int32_t g_CriticalSectionCount;

// All return a UpnpStatus: kUpnpNotThere when the handle pointer is null or the handle is empty
// (create: not empty), kUpnpFailed when the system refuses the mutex. The record comes from the
// system allocator, since the accounted one needs a critical section itself.
int upnp_critical_section_create(CriticalSectionHandle* handle);
int upnp_critical_section_enter(CriticalSectionHandle* handle);
int upnp_critical_section_leave(CriticalSectionHandle* handle);
int upnp_critical_section_destroy(CriticalSectionHandle* handle);
