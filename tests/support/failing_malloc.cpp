// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/failing_malloc.h"

#include <stddef.h>

static int g_calls_until_failure = 0;
static bool g_fails_for_good = false, g_has_failed = false;

void fail_allocation(int n, bool and_all_later) {
    g_calls_until_failure = n;
    g_fails_for_good = and_all_later;
    g_has_failed = false;
}

bool has_allocation_failed() { return g_has_failed; }

static bool fails_now() {
    if (g_calls_until_failure == 0 || --g_calls_until_failure > 0) return false;
    if (g_fails_for_good) g_calls_until_failure = 1;
    return g_has_failed = true;
}

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* ptr, size_t size);
void* __wrap_malloc(size_t size) { return fails_now() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(size_t count, size_t size) {
    return fails_now() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* ptr, size_t size) {
    return fails_now() ? nullptr : __real_realloc(ptr, size);
}
}
