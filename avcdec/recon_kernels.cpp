// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/recon_kernels.h"

#if defined(__arm__) && defined(__linux__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

ReconKernels recon_kernels_scalar() {
    ReconKernels k = {};
    intra_pred_use_scalar(&k);
    add_block_use_scalar(&k);
    deblock_use_scalar(&k);
    return k;
}

#if KEYSTILL_AVC_SIMD

static bool has_simd() {
#if defined(__arm__) && !defined(__ARM_NEON)
    return (getauxval(AT_HWCAP) & HWCAP_NEON) != 0;  // the build does not promise NEON
#else
    return true;
#endif
}

ReconKernels recon_kernels_best() {
    ReconKernels k = recon_kernels_scalar();
    if (!has_simd()) return k;
    intra_pred_use_simd(&k);
    add_block_use_simd(&k);
    deblock_use_simd(&k);
    return k;
}

#else

ReconKernels recon_kernels_best() { return recon_kernels_scalar(); }

#endif
