// SPDX-License-Identifier: BSD-2-Clause
#include "runtime/critical_section.h"

#include <stdlib.h>

#include "runtime/upnp_status.h"

int32_t g_CriticalSectionCount = 0;

static bool is_created(const CriticalSectionHandle* handle) {
    return handle && *handle && (*handle)->initialised;
}

int upnp_critical_section_create(CriticalSectionHandle* handle) {
    if (!handle || *handle) return kUpnpNotThere;
    CriticalSection* const section =
        static_cast<CriticalSection*>(calloc(1, sizeof(CriticalSection)));
    if (!section) return kUpnpNoMemory;
    if (pthread_mutex_init(&section->mutex, nullptr) != 0) {
        free(section);
        return kUpnpFailed;
    }
    section->initialised = 1;
    *handle = section;
    ++g_CriticalSectionCount;
    return 0;
}

int upnp_critical_section_enter(CriticalSectionHandle* handle) {
    if (!is_created(handle)) return kUpnpNotThere;
    CriticalSection* const section = *handle;
    pthread_mutex_lock(&section->mutex);
    section->holder = pthread_self();
    section->locked = 1;
    return 0;
}

int upnp_critical_section_leave(CriticalSectionHandle* handle) {
    if (!is_created(handle)) return kUpnpNotThere;
    CriticalSection* const section = *handle;
    section->locked = 0;
    pthread_mutex_unlock(&section->mutex);
    return 0;
}

int upnp_critical_section_destroy(CriticalSectionHandle* handle) {
    if (!is_created(handle)) return kUpnpNotThere;
    CriticalSection* const section = *handle;
    pthread_mutex_destroy(&section->mutex);
    section->initialised = 0;
    section->locked = 0;
    free(section);
    *handle = nullptr;
    --g_CriticalSectionCount;
    return 0;
}
