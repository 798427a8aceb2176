// SPDX-License-Identifier: BSD-2-Clause
// Which kernels a run takes. A machine without SIMD, or what hides it (an emulator, the C library),
// has to be told apart by the running program. KEYSTILL_EXPECT_KERNELS, "scalar" or "simd", says
// what this run should find, KEYSTILL_EXPECT_LOOPS, "any" or "bmi2", the same of block loops.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "avcdec/block_loops.h"
#include "avcdec/recon_kernels.h"
#include "m4vdec/m4v_idct.h"

static bool is_scalar(const ReconKernels& k) {
    const ReconKernels scalar = recon_kernels_scalar();
    return k.add_4x4 == scalar.add_4x4 && k.pred16x16[0] == scalar.pred16x16[0] &&
           k.deblock.vertical.luma == scalar.deblock.vertical.luma;
}

TEST(KernelChoice, GoesByTheProcessor) {
    const char* const found = is_scalar(recon_kernels_best()) ? "scalar" : "simd";
    const char* const expected = getenv("KEYSTILL_EXPECT_KERNELS");
    printf("kernels: %s\n", found);
    if (!expected) GTEST_SKIP() << "KEYSTILL_EXPECT_KERNELS is not set";
    EXPECT_STREQ(found, expected);
    EXPECT_STREQ(m4v_idct_best() == m4v_idct_scalar ? "scalar" : "simd", expected);
}

TEST(KernelChoice, TakesBlockLoopsByTheProcessor) {
    BlockLoops any = {};
    cabac_use_any(&any);
    const char* const expected = getenv("KEYSTILL_EXPECT_LOOPS");
    if (!expected) GTEST_SKIP() << "KEYSTILL_EXPECT_LOOPS is not set";
    EXPECT_STREQ(block_loops_best().cabac == any.cabac ? "any" : "bmi2", expected);
}
