// SPDX-License-Identifier: BSD-2-Clause
// Inverse transforms of residual blocks and their addition to the prediction, scalar.
#include <string.h>

#include "avcdec/recon_kernels.h"
#include "runtime/byte_order.h"

// All arithmetic is in 16 bits and wraps, so that every variant gives the same samples even for
// coefficients that no encoder makes.
static int16_t wrap(int v) { return static_cast<int16_t>(v); }

// H.264 8.5.12.2: one row of four values, step elements apart.
static void idct4(const int16_t* in, int step, int16_t* out) {
    const int16_t e0 = wrap(in[0] + in[2 * step]);
    const int16_t e1 = wrap(in[0] - in[2 * step]);
    const int16_t e2 = wrap((in[step] >> 1) - in[3 * step]);
    const int16_t e3 = wrap(in[step] + (in[3 * step] >> 1));
    out[0] = wrap(e0 + e3);
    out[1] = wrap(e1 + e2);
    out[2] = wrap(e1 - e2);
    out[3] = wrap(e0 - e3);
}

// H.264 8.5.13.2: one row of eight values, step elements apart.
static void idct8(const int16_t* in, int step, int16_t* out) {
    const auto x = [&](int i) -> int { return in[i * step]; };
    const int16_t a0 = wrap(x(0) + x(4));
    const int16_t a4 = wrap(x(0) - x(4));
    const int16_t a2 = wrap((x(2) >> 1) - x(6));
    const int16_t a6 = wrap(x(2) + (x(6) >> 1));
    const int16_t b0 = wrap(a0 + a6);
    const int16_t b2 = wrap(a4 + a2);
    const int16_t b4 = wrap(a4 - a2);
    const int16_t b6 = wrap(a0 - a6);
    const int16_t a1 = wrap(x(5) - x(3) - x(7) - (x(7) >> 1));
    const int16_t a3 = wrap(x(1) + x(7) - x(3) - (x(3) >> 1));
    const int16_t a5 = wrap(x(7) - x(1) + x(5) + (x(5) >> 1));
    const int16_t a7 = wrap(x(3) + x(5) + x(1) + (x(1) >> 1));
    const int16_t b1 = wrap(a1 + (a7 >> 2));
    const int16_t b7 = wrap(a7 - (a1 >> 2));
    const int16_t b3 = wrap(a3 + (a5 >> 2));
    const int16_t b5 = wrap((a3 >> 2) - a5);
    out[0] = wrap(b0 + b7);
    out[1] = wrap(b2 + b5);
    out[2] = wrap(b4 + b3);
    out[3] = wrap(b6 + b1);
    out[4] = wrap(b6 - b1);
    out[5] = wrap(b4 - b3);
    out[6] = wrap(b2 - b5);
    out[7] = wrap(b0 - b7);
}

static void transform_row(const int16_t* in, int step, int16_t (&out)[4]) { idct4(in, step, out); }

static void transform_row(const int16_t* in, int step, int16_t (&out)[8]) { idct8(in, step, out); }

template <int kSize>
static void add_block(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients) {
    int16_t rows[kSize][kSize];
    for (int y = 0; y < kSize; ++y) transform_row(coefficients + y, kSize, rows[y]);
    for (int x = 0; x < kSize; ++x) {
        int16_t column[kSize];
        transform_row(&rows[0][x], kSize, column);
        for (int y = 0; y < kSize; ++y) {
            uint8_t* const sample = dst + y * pitch + x;
            *sample = clip_u8(*sample + (wrap(column[y] + 32) >> 6));
        }
    }
    memset(coefficients, 0, kSize * kSize * sizeof *coefficients);
}

// A block with nothing but a DC coefficient has the same residual everywhere.
template <int kSize>
static void add_dc(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients) {
    const int residual = wrap(coefficients[0] + 32) >> 6;
    coefficients[0] = 0;
    for (int y = 0; y < kSize; ++y, dst += pitch) {
        for (int x = 0; x < kSize; ++x) dst[x] = clip_u8(dst[x] + residual);
    }
}

template <AddBlockFn kAdd>
static void add_four(uint8_t* dst, ptrdiff_t pitch, int16_t* coefficients) {
    for (int b = 0; b < 4; ++b) {
        kAdd(dst + (b >> 1) * 4 * pitch + (b & 1) * 4, pitch, coefficients + 16 * b);
    }
}

void add_block_use_scalar(ReconKernels* k) {
    k->add_4x4 = add_block<4>;
    k->add_4x4_dc = add_dc<4>;
    k->add_four_4x4 = add_four<add_block<4>>;
    k->add_four_4x4_dc = add_four<add_dc<4>>;
    k->add_8x8 = add_block<8>;
    k->add_8x8_dc = add_dc<8>;
}
