// SPDX-License-Identifier: BSD-2-Clause
// The edge filters of deblocking with SSE2 or NEON.
#include "avcdec/deblock_vectors.h"

void deblock_use_simd(ReconKernels* k) { k->deblock = deblock_kernels<U8x16>(); }
