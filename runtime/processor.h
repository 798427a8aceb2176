// SPDX-License-Identifier: BSD-2-Clause
// What the processor can do that the build does not promise.
#pragma once

// Whether kernels written with runtime/simd_vectors.h run here.
bool processor_has_simd();

#if defined(__x86_64__)
bool processor_has_avx2();
bool processor_has_bmi2();  // and BMI1
#endif
