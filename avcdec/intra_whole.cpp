// SPDX-License-Identifier: BSD-2-Clause
// Macroblocks of Intra 16x16 luma and of chroma, by the kernels for one prediction and those for
// squares of four blocks.
#include <string.h>

#include "avcdec/macroblock.h"
#include "avcdec/quantiser.h"
#include "avcdec/recon_kernels.h"

// The DC levels on their way into the blocks (H.264 8.5.10, 8.5.11): transformed and scaled.
static void hadamard4(int32_t a, int32_t b, int32_t c, int32_t d, int32_t* out, int step) {
    out[0] = a + b + c + d;
    out[step] = a + b - c - d;
    out[2 * step] = a - b - c + d;
    out[3 * step] = a - b + c - d;
}

static void set_luma_dc(AvcMacroblock* mb) {
    if (!(mb->coded_mask & block_bit(kDcBlock))) return;
    int16_t* const levels = mb->coefficients + kDcBlock * 16;
    int32_t rows[16], dc[16];
    for (int y = 0; y < 4; ++y) {
        const int16_t* const in = levels + 4 * y;
        hadamard4(in[0], in[1], in[2], in[3], rows + 4 * y, 1);
    }
    for (int x = 0; x < 4; ++x)
        hadamard4(rows[x], rows[x + 4], rows[x + 8], rows[x + 12], dc + x, 4);
    const AvcDcScale scale = mb->dc_scales[kCompY];
    for (int b = 0; b < 16; ++b) {
        mb->coefficients[b * 16] = scale_dc(dc[block_y(b) * 4 + block_x(b)], scale);
    }
    mb->coded_mask |= kLumaMask;
    memset(levels, 0, 16 * sizeof *levels);
}

static void set_chroma_dc(AvcMacroblock* mb, int component) {
    if (!(mb->coded_mask & block_bit(kDcBlock + component))) return;
    int16_t* const levels = mb->coefficients + (kDcBlock + component) * 16;
    const int32_t a = levels[0] + levels[1];
    const int32_t b = levels[0] - levels[1];
    const int32_t c = levels[2] + levels[3];
    const int32_t d = levels[2] - levels[3];
    const int32_t dc[4] = {a + c, b + d, a - c, b - d};
    int16_t* const blocks = mb->coefficients + (12 + 4 * component) * 16;
    const AvcDcScale scale = mb->dc_scales[component];
    for (int i = 0; i < 4; ++i) blocks[i * 16] = scale_dc(dc[i], scale);
    mb->coded_mask |= kCbMask >> 4 * (component - 1);
    memset(levels, 0, 4 * sizeof *levels);
}

// Adds the four 4x4 blocks of an 8x8 square. The masks have the bits of the four at the top.
static inline void add_square(const ReconKernels& k, uint32_t coded, uint32_t ac, uint8_t* dst,
                              ptrdiff_t pitch, int16_t* coefficients) {
    if (coded >> 28 == 0) return;
    (ac >> 28 ? k.add_four_4x4 : k.add_four_4x4_dc)(dst, pitch, coefficients);
}

static void add_16x16(const ReconKernels& k, AvcMacroblock* mb, uint8_t* dst, ptrdiff_t pitch) {
    const uint32_t coded = mb->coded_mask, ac = mb->ac_mask;
    int16_t* const c = mb->coefficients;
    uint8_t* const below = dst + 8 * pitch;
    add_square(k, coded, ac, dst, pitch, c);
    add_square(k, coded << 4, ac << 4, dst + 8, pitch, c + 64);
    add_square(k, coded << 8, ac << 8, below, pitch, c + 128);
    add_square(k, coded << 12, ac << 12, below + 8, pitch, c + 192);
}

static void add_chroma(const ReconKernels& k, AvcMacroblock* mb, uint8_t* const plane[2],
                       ptrdiff_t pitch) {
    const uint32_t coded = mb->coded_mask << 16, ac = mb->ac_mask << 16;
    int16_t* const c = mb->coefficients + 256;
    add_square(k, coded, ac, plane[0], pitch, c);
    add_square(k, coded << 4, ac << 4, plane[1], pitch, c + 64);
}

static void intra_16x16(const ReconKernels& k, AvcMacroblock* mb, uint8_t* dst, ptrdiff_t pitch) {
    k.pred16x16[mb->intra16_mode](dst, pitch);
    set_luma_dc(mb);
    add_16x16(k, mb, dst, pitch);
}

static void intra_chroma(const ReconKernels& k, AvcMacroblock* mb, uint8_t* const plane[2],
                         ptrdiff_t pitch) {
    for (int c = 0; c < 2; ++c) k.pred_chroma[mb->chroma_mode](plane[c], pitch);
    if (!(mb->coded_mask & (kChromaMask | kChromaDcMask))) return;
    for (int c = 0; c < 2; ++c) set_chroma_dc(mb, 1 + c);
    add_chroma(k, mb, plane, pitch);
}

void intra_whole_use_scalar(ReconKernels* k) {
    k->intra_16x16 = intra_16x16;
    k->intra_chroma = intra_chroma;
}
