// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/transform.h"

static void hadamard4(int32_t a, int32_t b, int32_t c, int32_t d, int32_t* out, int step) {
    out[0] = a + b + c + d;
    out[step] = a + b - c - d;
    out[2 * step] = a - b - c + d;
    out[3 * step] = a - b + c - d;
}

void transform_luma_dc(const int16_t* levels, int32_t* dc) {
    int32_t rows[16];
    for (int y = 0; y < 4; ++y) {
        const int16_t* const in = levels + 4 * y;
        hadamard4(in[0], in[1], in[2], in[3], rows + 4 * y, 1);
    }
    for (int x = 0; x < 4; ++x)
        hadamard4(rows[x], rows[x + 4], rows[x + 8], rows[x + 12], dc + x, 4);
}

void transform_chroma_dc(const int16_t* levels, int32_t* dc) {
    const int32_t a = levels[0] + levels[1];
    const int32_t b = levels[0] - levels[1];
    const int32_t c = levels[2] + levels[3];
    const int32_t d = levels[2] - levels[3];
    dc[0] = a + c;
    dc[1] = b + d;
    dc[2] = a - c;
    dc[3] = b - d;
}
