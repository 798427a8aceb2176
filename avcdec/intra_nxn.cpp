// SPDX-License-Identifier: BSD-2-Clause
// Macroblocks of 4x4 and 8x8 blocks, block by block with the kernels for one of them.
#include "avcdec/macroblock.h"
#include "avcdec/recon_kernels.h"

static void intra_4x4(const ReconKernels& k, AvcMacroblock* mb, uint8_t* dst, ptrdiff_t pitch) {
    for (int b = 0; b < 16; ++b) {
        uint8_t* const block = dst + block_y(b) * 4 * pitch + block_x(b) * 4;
        k.pred4x4[mb->modes[b]](block, pitch);
        const uint32_t bit = block_bit(b);
        if (!(mb->coded_mask & bit)) continue;
        (mb->ac_mask & bit ? k.add_4x4 : k.add_4x4_dc)(block, pitch, mb->coefficients + b * 16);
    }
}

void intra_nxn_use_scalar(ReconKernels* k) { k->intra_4x4 = intra_4x4; }
