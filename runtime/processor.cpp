// SPDX-License-Identifier: BSD-2-Clause
#include "runtime/processor.h"

// That header uses a type of C, which Clang does not know in C++.
#if defined(__x86_64__) && !defined(__clang__) && __has_include(<sys/platform/x86.h>)
#include <sys/platform/x86.h>
#endif
#if defined(__arm__) && defined(__linux__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

#if defined(CPU_FEATURE_ACTIVE)
// The C library has asked the processor already. A virtual one takes a while for each answer, and
// the compiler's own function asks for all of them, at the start of every run.
bool processor_has_avx2() { return CPU_FEATURE_ACTIVE(AVX2); }
bool processor_has_bmi2() { return CPU_FEATURE_ACTIVE(BMI1) && CPU_FEATURE_ACTIVE(BMI2); }
#elif defined(__x86_64__)
bool processor_has_avx2() { return __builtin_cpu_supports("avx2"); }
bool processor_has_bmi2() {
    return __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
}
#endif

bool processor_has_simd() {
#if defined(__arm__) && !defined(__ARM_NEON)
    return (getauxval(AT_HWCAP) & HWCAP_NEON) != 0;
#else
    return true;
#endif
}
