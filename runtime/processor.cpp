// SPDX-License-Identifier: BSD-2-Clause
#include "runtime/processor.h"

#if defined(__arm__) && defined(__linux__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

bool processor_has_simd() {
#if defined(__arm__) && !defined(__ARM_NEON)
    return (getauxval(AT_HWCAP) & HWCAP_NEON) != 0;
#else
    return true;
#endif
}
