// SPDX-License-Identifier: BSD-2-Clause
// What the fuzz targets share.
#pragma once

#include <stdlib.h>

#include "fuzz/choices.h"
#include "runtime/accounted_memory.h"

// Runs one input.
void run_target(Choices* choices);

// Everything has to be released after each input.
extern "C" inline __attribute__((used)) int LLVMFuzzerTestOneInput(const uint8_t* data,
                                                                   size_t size) {
    Choices choices(data, size);
    run_target(&choices);
    if (g_memUsed != 0) abort();
    return 0;
}
