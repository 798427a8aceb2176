// SPDX-License-Identifier: BSD-2-Clause
// Why there is no thumbnail: one sentence, and what to do about it.
#pragma once

#include "wording/advice.h"

struct Verdict {
    bool is_failure;
    char reason[512];
    char advice[512];  // "" when there is nothing to do
};

// Fills the verdict unless it is a failure already: the first reason counts.
__attribute__((format(printf, 3, 4))) void verdict_fail(Verdict* verdict, const char* advice,
                                                        const char* format, ...);
