// SPDX-License-Identifier: BSD-2-Clause
// Variable-length codes of CAVLC residual blocks (H.264 Tables 9-5, 9-7 to 9-10) as tables that
// give a symbol for one look at the coming bits.
#pragma once

#include <stdint.h>

// coeff_token. A code word is some zeros, a 1 and at most three further bits: the entry is
// zeros * 8 + those three bits. For nC of 8 and more the entry is the code word, which always has
// kCoeffTokenFixedBits. Length 0 marks what is no code word.
struct CoeffToken {
    uint8_t length;  // bits
    uint8_t trailing_ones;
    uint8_t total_coeff;
};
constexpr int kCoeffTokenEntries = 16 * 8;
enum CoeffTokenRow {
    kCoeffToken0,  // nC is 0 or 1
    kCoeffToken2,
    kCoeffToken4,
    kCoeffTokenChromaDc,  // of 4:2:0
    kCoeffToken8,
    kCoeffTokenRows,
};
constexpr int kCoeffTokenFixedBits = 6;
struct CoeffTokenTables {
    CoeffToken row[kCoeffTokenRows][kCoeffTokenEntries];
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

// Two of them by the zeros left in front of the first and the next bits. kLongRuns stands for what
// has a long one.
constexpr int kRunPairBits = 2 * kRunBeforeBits;
constexpr uint16_t kLongRuns = 0xffff;
struct RunPair {
    uint16_t packed;

    int first() const { return packed & 15; }
    int second() const { return packed >> 4 & 15; }
    int length() const { return packed >> 8; }  // of both codes, in bits
};
struct RunPairTable {
    RunPair entry[16][1 << kRunPairBits];
};
extern const RunPairTable kRunPairs;

// Levels (H.264 9.2.2). What a code word means depends on suffix_length, and for the first level of
// a block also on what is known of it: each case is a row.
struct LevelRow {
    int suffix_length;
    int code_offset;   // 2 where a level of 1 would have been a trailing one
    int large_prefix;  // suffix_length grows behind this level_prefix and longer ones: a level
                       // above 3 << (suffix_length - 1) has such a prefix
};
enum LevelRowIndex {       // rows 1 to 6 are further levels by suffix_length
    kFirstBehindOnes = 0,  // three trailing ones in front
    kFirstLevel = 7,
    kFirstOfMany = 8,  // of more than ten coefficients
    kLevelRows = 9,
};
constexpr LevelRow kLevelRowTable[kLevelRows] = {
    {0, 0, 6}, {1, 0, 3},  {2, 0, 3}, {3, 0, 3}, {4, 0, 3},
    {5, 0, 3}, {6, 0, 99}, {0, 2, 4}, {1, 2, 2},
};

// The row of the level after one with the given prefix.
constexpr int level_row_behind(int row, int prefix) {
    const int length = row > 6 ? 0 : row;
    return (length == 0 ? 1 : length) + (prefix >= kLevelRowTable[row].large_prefix);
}

constexpr int32_t level_of_code(int32_t code) {
    const int32_t sign = -(code & 1);
    return (((code + 2) >> 1) ^ sign) - sign;
}

// Levels by row and the next 8 bits, two of them where both codes fit. An entry of 0 stands for
// longer codes.
constexpr int kLevelBits = 8;
struct LevelEntry {
    int32_t packed;

    int length() const { return packed & 15; }             // of all that it has, in bits
    int first_length() const { return packed >> 4 & 15; }  // of the first alone
    int next_row() const { return packed >> 8 & 15; }      // behind all that it has
    int count() const { return packed >> 12 & 3; }
    int second() const { return static_cast<int8_t>(packed >> 16); }
    int first() const { return packed >> 24; }
};
struct LevelTable {
    LevelEntry entry[kLevelRows][1 << kLevelBits];
};
extern const LevelTable kLevels;
