// SPDX-License-Identifier: BSD-2-Clause
// One dimension of the inverse transforms of residual blocks, which all variants share. Values have
// 16 bits and wrap, so that every variant gives the same samples even for coefficients that no
// encoder makes. A variant says what a vector of values is, with + and -, and gives half(x) and
// quarter(x), the arithmetic shifts by 1 and 2. Everything is static, since files include this that
// are built for other processors.
#pragma once

// H.264 8.5.12.2, lane by lane.
template <auto half, typename Values>
static inline void idct4(Values (&x)[4]) {
    const Values e0 = x[0] + x[2];
    const Values e1 = x[0] - x[2];
    const Values e2 = half(x[1]) - x[3];
    const Values e3 = x[1] + half(x[3]);
    x[0] = e0 + e3;
    x[1] = e1 + e2;
    x[2] = e1 - e2;
    x[3] = e0 - e3;
}

// H.264 8.5.13.2, lane by lane.
template <auto half, auto quarter, typename Values>
static inline void idct8(Values (&x)[8]) {
    const Values a0 = x[0] + x[4];
    const Values a4 = x[0] - x[4];
    const Values a2 = half(x[2]) - x[6];
    const Values a6 = x[2] + half(x[6]);
    const Values b0 = a0 + a6;
    const Values b2 = a4 + a2;
    const Values b4 = a4 - a2;
    const Values b6 = a0 - a6;
    const Values a1 = x[5] - x[3] - x[7] - half(x[7]);
    const Values a3 = x[1] + x[7] - x[3] - half(x[3]);
    const Values a5 = x[7] - x[1] + x[5] + half(x[5]);
    const Values a7 = x[3] + x[5] + x[1] + half(x[1]);
    const Values b1 = a1 + quarter(a7);
    const Values b7 = a7 - quarter(a1);
    const Values b3 = a3 + quarter(a5);
    const Values b5 = quarter(a3) - a5;
    x[0] = b0 + b7;
    x[1] = b2 + b5;
    x[2] = b4 + b3;
    x[3] = b6 + b1;
    x[4] = b6 - b1;
    x[5] = b4 - b3;
    x[6] = b2 - b5;
    x[7] = b0 - b7;
}
