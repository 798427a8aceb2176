// SPDX-License-Identifier: BSD-2-Clause
// Variable-length codes of CAVLC residual blocks (H.264 Tables 9-5, 9-7 to 9-10) as tables that
// give a symbol for one look at the coming bits.
#pragma once

#include <stdint.h>

#include "avcdec/macroblock.h"

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

// Levels by the place of the row plus the next 8 bits, two of them where both codes fit. An entry
// of 0 stands for longer codes.
constexpr int kLevelBits = 8;
struct LevelEntry {
    int32_t packed;

    int length() const { return packed & 63; }                        // of all that it has, in bits
    int first_length() const { return packed >> 12 & 15; }            // of the first alone
    uint32_t next_row() const { return packed & 15U << kLevelBits; }  // behind all that it has
    uint32_t count() const { return static_cast<uint32_t>(packed) >> 6 & 3; }
    int second() const { return static_cast<int8_t>(packed >> 16); }
    int first() const { return packed >> 24; }
};
struct LevelTable {
    LevelEntry entry[kLevelRows << kLevelBits];
};
extern const LevelTable kLevels;

// coeff_token by the place of the row plus that of the code word in it. A code word is some zeros,
// a 1 and at most three further bits: those of most zeros come first, in the order of their further
// bits, behind a group for what has no 1. For nC of 8 and more the place is the code word, which
// always has kCoeffTokenFixedBits. An entry of 0 marks what is no code word.
struct CoeffToken {
    uint32_t packed;

    int length() const { return packed & 63; }  // bits
    int trailing_ones() const { return packed >> 6 & 3; }
    uint32_t level_row() const { return packed & 15U << kLevelBits; }  // of kLevels, to begin with
    uint32_t total_coeff() const { return packed >> 16; }
};
constexpr int kCoeffTokenMostZeros = 15;
constexpr int kCoeffTokenEntries = (kCoeffTokenMostZeros + 2) * 8;
enum CoeffTokenRow {
    kCoeffToken0 = 0,  // nC is 0 or 1
    kCoeffToken2 = kCoeffToken0 + kCoeffTokenEntries,
    kCoeffToken4 = kCoeffToken2 + kCoeffTokenEntries,
    kCoeffTokenChromaDc = kCoeffToken4 + kCoeffTokenEntries,  // of 4:2:0
    kCoeffToken8 = kCoeffTokenChromaDc + kCoeffTokenEntries,
};
constexpr int kCoeffTokenFixedBits = 6;
struct CoeffTokenTable {
    CoeffToken entry[kCoeffToken8 + (1 << kCoeffTokenFixedBits)];
};
extern const CoeffTokenTable kCoeffTokens;

// The row by the sum of two counts of coefficients (H.264 9.2.1), each up to 16 or kCountMissing,
// or by kCountsOfChromaDc.
constexpr int kCountsOfChromaDc = 2 * kCountMissing + 1;
struct CoeffTokenRows {
    uint16_t of[kCountsOfChromaDc + 1];
};
extern const CoeffTokenRows kCoeffTokenRows;

// run_before by zerosLeft and the next bits: the length of the code in the high and the run in the
// low four bits. With no zeros left nothing is coded: an entry of 0 reads no bits and is a run of
// 0, so that a loop need not ask. kLongRun stands for the codes of runs above 6, which are unary.
constexpr int kRunBeforeBits = 3;
constexpr uint8_t kLongRun = 0xff;
struct RunBeforeTable {
    uint8_t entry[16][1 << kRunBeforeBits];
};
extern const RunBeforeTable kRunBefore;

// What two codes say of the zeros in front of coefficients. Length and row stand where what waits
// for them takes them without a shift.
constexpr int kRunPairBits = 2 * kRunBeforeBits;
struct ZerosLeft {
    uint16_t packed;

    static constexpr ZerosLeft of(int length, int between, int zeros) {
        return {static_cast<uint16_t>(between << 10 | zeros << kRunPairBits | length)};
    }
    int length() const { return packed & 63; }  // of both codes, in bits
    // Of kRunPairs, for the zeros that are left behind both.
    uint32_t row() const { return packed & 15U << kRunPairBits; }
    uint32_t between() const { return uint32_t{packed} >> 10; }  // left behind the first
};

// Two run_before by the row for the zeros left in front of them plus the next bits. kLongRuns
// stands for what has a long one.
constexpr ZerosLeft kLongRuns = {0xffff};
struct RunPairTable {
    ZerosLeft entry[16 << kRunPairBits];
};
extern const RunPairTable kRunPairs;

// total_zeros by total_coeff and the next bits: the length of the code in the high and the zeros in
// the low four bits. Of one coefficient there are longer codes: an entry of 0 stands for them.
constexpr int kTotalZerosBits = 7;
struct TotalZerosTable {
    uint8_t entry[16][1 << kTotalZerosBits];
};
extern const TotalZerosTable kTotalZeros;
constexpr int kTotalZerosChromaBits = 3;
struct TotalZerosChromaTable {
    uint8_t entry[4][1 << kTotalZerosChromaBits];
};
extern const TotalZerosChromaTable kTotalZerosChroma;
