// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_idct.h"

#include <string.h>

#include "m4vdec/m4v_idct_constants.h"
#include "runtime/byte_order.h"

// Eight outputs of one dimension. Sums of wild blocks may wrap, as they do in a vector register:
// the arithmetic is unsigned.
static void idct_1d(const int16_t* in, size_t stride, uint32_t round, uint32_t out[8]) {
    uint32_t x[8];
    for (unsigned i = 0; i < 8; ++i) {
        x[i] = static_cast<uint32_t>(static_cast<int32_t>(in[i * stride]));
    }
    const uint32_t e0 = kIdctC4 * (x[0] + x[4]) + round;
    const uint32_t e1 = kIdctC4 * (x[0] - x[4]) + round;
    const uint32_t f0 = kIdctC2 * x[2] + kIdctC6 * x[6];
    const uint32_t f1 = kIdctC6 * x[2] - kIdctC2 * x[6];
    const uint32_t a[4] = {e0 + f0, e1 + f1, e1 - f1, e0 - f0};
    const uint32_t b[4] = {
        kIdctC1 * x[1] + kIdctC3 * x[3] + kIdctC5 * x[5] + kIdctC7 * x[7],
        kIdctC3 * x[1] - kIdctC7 * x[3] - kIdctC1 * x[5] - kIdctC5 * x[7],
        kIdctC5 * x[1] - kIdctC1 * x[3] + kIdctC7 * x[5] + kIdctC3 * x[7],
        kIdctC7 * x[1] - kIdctC5 * x[3] + kIdctC3 * x[5] - kIdctC1 * x[7],
    };
    for (unsigned i = 0; i < 4; ++i) {
        out[i] = a[i] + b[i];
        out[7 - i] = a[i] - b[i];
    }
}

static int16_t saturate(int32_t v) { return static_cast<int16_t>(clip3(INT16_MIN, INT16_MAX, v)); }

void m4v_idct_scalar(uint8_t* dst, size_t pitch, int16_t* block, unsigned width, unsigned height) {
    int16_t rows[64];  // [x][v] after the pass along u
    uint32_t out[8];
    for (unsigned v = 0; v < height; ++v) {
        if (width == 1) {  // what the pass makes of a lone DC term
            for (unsigned x = 0; x < 8; ++x) rows[x * 8 + v] = saturate(block[v] * 8);
            continue;
        }
        idct_1d(block + v, 8, kIdctRound1, out);
        for (unsigned x = 0; x < 8; ++x) {
            rows[x * 8 + v] = saturate(static_cast<int32_t>(out[x]) >> kIdctShift1);
        }
    }
    for (unsigned x = 0; x < 8; ++x) {
        memset(rows + x * 8 + height, 0, (8 - height) * sizeof(int16_t));
        idct_1d(rows + x * 8, 1, kIdctRound2, out);
        for (unsigned y = 0; y < 8; ++y) {
            dst[y * pitch + x] = clip_u8(static_cast<int32_t>(out[y]) >> kIdctShift2);
        }
    }
    memset(block, 0, 64 * sizeof(int16_t));
}

M4vIdctFn m4v_idct_best() {
#if KEYSTILL_M4V_X86
    return __builtin_cpu_supports("avx2") ? m4v_idct_avx2 : m4v_idct_sse2;
#else
    return m4v_idct_scalar;
#endif
}
