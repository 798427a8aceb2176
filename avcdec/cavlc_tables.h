// SPDX-License-Identifier: BSD-2-Clause
// Variable-length codes of CAVLC residual blocks (H.264 Tables 9-5, 9-7 to 9-10) as tables that
// give a symbol for one look at the coming bits.
#pragma once

#include <stdint.h>

// coeff_token. A code word is some zeros, a 1 and at most three further bits: the entry is
// zeros * 8 + those three bits. Length 0 marks what is no code word.
struct CoeffToken {
    uint8_t length;  // bits
    uint8_t trailing_ones;
    uint8_t total_coeff;
};
constexpr int kCoeffTokenEntries = 16 * 8;
enum CoeffTokenRow {
    kCoeffToken0 = 0,
    kCoeffToken2 = 1,
    kCoeffToken4 = 2,
    kCoeffTokenChromaDc = 3
};
struct CoeffTokenTables {
    CoeffToken row[4][kCoeffTokenEntries];  // nC 0 and 1, 2 and 3, 4 to 7, chroma DC of 4:2:0
};
extern const CoeffTokenTables kCoeffTokens;

// Codes indexed by the next kWidth bits, the length in the high and the value in the low four bits
// of an entry.
template <int kRows, int kWidth>
struct CodeTable {
    uint8_t entry[kRows][1 << kWidth];
};

// total_zeros by total_coeff.
constexpr int kTotalZerosBits = 9;
extern const CodeTable<16, kTotalZerosBits> kTotalZeros;
constexpr int kTotalZerosChromaBits = 3;
extern const CodeTable<4, kTotalZerosChromaBits> kTotalZerosChroma;

// run_before by zerosLeft. With no zeros left nothing is coded: an entry of 0 reads no bits and is
// a run of 0, so that a loop need not ask. kLongRun stands for the codes of runs above 6, which are
// unary.
constexpr int kRunBeforeBits = 3;
constexpr uint8_t kLongRun = 0xff;
extern const CodeTable<16, kRunBeforeBits> kRunBefore;
