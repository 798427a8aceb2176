// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/recon_kernels.h"

#include "runtime/processor.h"

ReconKernels recon_kernels_scalar() {
    ReconKernels k = {};
    intra_pred_use_scalar(&k);
    add_block_use_scalar(&k);
    deblock_use_scalar(&k);
    intra_nxn_use_scalar(&k);
    intra_whole_use_scalar(&k);
    return k;
}

ReconKernels recon_kernels_best() {
    ReconKernels k = recon_kernels_scalar();
#if KEYSTILL_HAS_SIMD
    if (!processor_has_simd()) return k;
    intra_pred_use_simd(&k);
    add_block_use_simd(&k);
    deblock_use_simd(&k);
#endif
#if KEYSTILL_HAS_AVX2
    if (!processor_has_avx2()) return k;
    deblock_use_avx2(&k);
    intra_4x4_use_avx2(&k);
    intra_16x16_use_avx2(&k);
    intra_chroma_use_avx2(&k);
#endif
    return k;
}
