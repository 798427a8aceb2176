// SPDX-License-Identifier: BSD-2-Clause
#include "explain/verdict.h"

#include <stdarg.h>
#include <stdio.h>

void verdict_fail(Verdict* verdict, const char* advice, const char* format, ...) {
    if (verdict->is_failure) return;
    verdict->is_failure = true;
    va_list args;
    va_start(args, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started in the line above
    vsnprintf(verdict->reason, sizeof verdict->reason, format, args);
    va_end(args);
    snprintf(verdict->advice, sizeof verdict->advice, "%s", advice);
}
