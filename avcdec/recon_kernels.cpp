// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/recon_kernels.h"

ReconKernels recon_kernels_scalar() {
    ReconKernels k;
    intra_pred_use_scalar(&k);
    add_block_use_scalar(&k);
    deblock_use_scalar(&k);
    return k;
}

ReconKernels recon_kernels_best() { return recon_kernels_scalar(); }
