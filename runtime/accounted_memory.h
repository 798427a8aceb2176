// SPDX-License-Identifier: BSD-2-Clause
// The one source of heap blocks for keystill's own code. It counts the bytes handed out, so that
// a leak or a double release shows as a count other than zero at the end of a run.
#pragma once

#include <stdint.h>

// Bytes handed out now (sum of the requested sizes), and the highest value since
// upnp_memory_init. Guarded by one critical section while the accounting is started.
extern int64_t g_memUsed;
extern int64_t g_memPeak;

// The largest block that can be asked for; one byte more is refused without a system call.
constexpr uint32_t kUpnpMaxBlock = 2147483630;

// Starts the accounting with both counters at 0. Returns 0, or kUpnpFailed when the critical
// section could not be created (also when the accounting is started already).
int upnp_memory_init();

// Ends the accounting; the counters keep their values. Returns 0, or kUpnpNotThere when it was not
// started.
int upnp_memory_exit();

// All blocks are 8-byte aligned and released with upnp_free. Null means that there is no memory.
void* upnp_malloc(uint32_t size);  // not cleared
// Zero-filled. count * size wraps at 32 bits without a test: counts that come from a file or the
// command line go through owned_calloc (runtime/owned.h) instead.
void* upnp_calloc(uint32_t count, uint32_t size);
// On failure the old block stays valid, but is no longer counted.
void* upnp_realloc(void* ptr, uint32_t size);
// A null pointer is reported on standard error.
void upnp_free(void* ptr);

// NUL-terminated copies; a null string gives null.
char* upnp_strdup(const char* text);
char* upnp_strndup(const char* text, uint32_t max_length);
