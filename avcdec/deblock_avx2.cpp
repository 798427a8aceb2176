// SPDX-License-Identifier: BSD-2-Clause
// The edge filters of deblocking with AVX2, two macroblocks at a time.
#include "avcdec/deblock_vectors.h"

void deblock_use_avx2(ReconKernels* k) { k->deblock_two = deblock_kernels<U8x32>(); }
