// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/cavlc_tables.h"

// The code words as the standard prints them; the tables are made from them at compile time.

// Rows by trailing ones, columns by total_coeff from the number of trailing ones on.
struct CoeffTokenCodes {
    const char* codes[4][17];
};

// clang-format off
static constexpr CoeffTokenCodes kCodes0 = {{
    {"1", "000101", "00000111", "000000111", "0000000111", "00000000111", "0000000001111",
     "0000000001011", "0000000001000", "00000000001111", "00000000001011", "000000000001111",
     "000000000001011", "0000000000001111", "0000000000001011", "0000000000000111",
     "0000000000000100"},
    {"", "01", "000100", "00000110", "000000110", "0000000110", "00000000110", "0000000001110",
     "0000000001010", "00000000001110", "00000000001010", "000000000001110", "000000000001010",
     "000000000000001", "0000000000001110", "0000000000001010", "0000000000000110"},
    {"", "", "001", "0000101", "00000101", "000000101", "0000000101", "00000000101",
     "0000000001101", "0000000001001", "00000000001101", "00000000001001", "000000000001101",
     "000000000001001", "0000000000001101", "0000000000001001", "0000000000000101"},
    {"", "", "", "00011", "000011", "0000100", "00000100", "000000100", "0000000100",
     "00000000100", "0000000001100", "00000000001100", "00000000001000", "000000000001100",
     "000000000001000", "0000000000001100", "0000000000001000"},
}};

static constexpr CoeffTokenCodes kCodes2 = {{
    {"11", "001011", "000111", "0000111", "00000111", "00000100", "000000111", "00000001111",
     "00000001011", "000000001111", "000000001011", "000000001000", "0000000001111",
     "0000000001011", "0000000000111", "00000000001001", "00000000000111"},
    {"", "10", "00111", "001010", "000110", "0000110", "00000110", "000000110", "00000001110",
     "00000001010", "000000001110", "000000001010", "0000000001110", "0000000001010",
     "00000000001011", "00000000001000", "00000000000110"},
    {"", "", "011", "001001", "000101", "0000101", "00000101", "000000101", "00000001101",
     "00000001001", "000000001101", "000000001001", "0000000001101", "0000000001001",
     "0000000000110", "00000000001010", "00000000000101"},
    {"", "", "", "0101", "0100", "00110", "001000", "000100", "0000100", "000000100",
     "00000001100", "00000001000", "000000001100", "0000000001100", "0000000001000",
     "0000000000001", "00000000000100"},
}};

static constexpr CoeffTokenCodes kCodes4 = {{
    {"1111", "001111", "001011", "001000", "0001111", "0001011", "0001001", "0001000", "00001111",
     "00001011", "000001111", "000001011", "000001000", "0000001101", "0000001001", "0000000101",
     "0000000001"},
    {"", "1110", "01111", "01100", "01010", "01000", "001110", "001010", "0001110", "00001110",
     "00001010", "000001110", "000001010", "000000111", "0000001100", "0000001000", "0000000100"},
    {"", "", "1101", "01110", "01011", "01001", "001101", "001001", "0001101", "0001010",
     "00001101", "00001001", "000001101", "000001001", "0000001011", "0000000111", "0000000011"},
    {"", "", "", "1100", "1011", "1010", "1001", "1000", "01101", "001100", "0001100", "00001100",
     "00001000", "000001100", "0000001010", "0000000110", "0000000010"},
}};

static constexpr CoeffTokenCodes kCodesChromaDc = {{
    {"01", "000111", "000100", "000011", "000010"},
    {"", "1", "000110", "0000011", "00000011"},
    {"", "", "001", "0000010", "00000010"},
    {"", "", "", "000101", "0000000"},
}};

// By total_coeff - 1 and total_zeros.
static constexpr const char* kTotalZerosCodes[15][16] = {
    {"1", "011", "010", "0011", "0010", "00011", "00010", "000011", "000010", "0000011",
     "0000010", "00000011", "00000010", "000000011", "000000010", "000000001"},
    {"111", "110", "101", "100", "011", "0101", "0100", "0011", "0010", "00011", "00010",
     "000011", "000010", "000001", "000000"},
    {"0101", "111", "110", "101", "0100", "0011", "100", "011", "0010", "00011", "00010",
     "000001", "00001", "000000"},
    {"00011", "111", "0101", "0100", "110", "101", "100", "0011", "011", "0010", "00010", "00001",
     "00000"},
    {"0101", "0100", "0011", "111", "110", "101", "100", "011", "0010", "00001", "0001", "00000"},
    {"000001", "00001", "111", "110", "101", "100", "011", "010", "0001", "001", "000000"},
    {"000001", "00001", "101", "100", "011", "11", "010", "0001", "001", "000000"},
    {"000001", "0001", "00001", "011", "11", "10", "010", "001", "000000"},
    {"000001", "000000", "0001", "11", "10", "001", "01", "00001"},
    {"00001", "00000", "001", "11", "10", "01", "0001"},
    {"0000", "0001", "001", "010", "1", "011"},
    {"0000", "0001", "01", "1", "001"},
    {"000", "001", "1", "01"},
    {"00", "01", "1"},
    {"0", "1"},
};

static constexpr const char* kTotalZerosChromaCodes[3][16] = {
    {"1", "01", "001", "000"},
    {"1", "01", "00"},
    {"1", "0"},
};

// By zerosLeft - 1 and run_before; more than 6 zeros left share the last row.
static constexpr const char* kRunBeforeCodes[7][16] = {
    {"1", "0"},
    {"1", "01", "00"},
    {"11", "10", "01", "00"},
    {"11", "10", "01", "001", "000"},
    {"11", "10", "011", "010", "001", "000"},
    {"11", "000", "001", "011", "010", "101", "100"},
    {"111", "110", "101", "100", "011", "010", "001"},
};
// clang-format on

static constexpr int code_length(const char* code) {
    int n = 0;
    while (code[n]) ++n;
    return n;
}

static constexpr uint32_t code_bits(const char* code) {
    uint32_t bits = 0;
    for (; *code; ++code) bits = bits << 1 | (*code == '1');
    return bits;
}

// Puts one code word into a table of entries that the next bits (width of them) index.
template <typename Entry>
static constexpr void put_code(Entry* table, int width, const char* code, Entry entry) {
    const int spare = width - code_length(code);
    const uint32_t first = code_bits(code) << spare;
    for (uint32_t i = 0; i < 1U << spare; ++i) table[first + i] = entry;
}

template <typename Table>
static constexpr Table total_zeros_table(const char* const (*codes)[16], int count, int width) {
    Table table{};
    for (int total = 1; total <= count; ++total) {
        for (int zeros = 0; zeros < 16 && codes[total - 1][zeros]; ++zeros) {
            const char* const code = codes[total - 1][zeros];
            const int length = code_length(code);
            if (length > width) continue;
            put_code(table.entry[total], width, code, static_cast<uint8_t>(length << 4 | zeros));
        }
    }
    return table;
}

static constexpr CoeffToken coeff_token(int length, int ones, int total) {
    const int row = ones == 3 ? kFirstBehindOnes : total > 10 ? kFirstOfMany : kFirstLevel;
    return {static_cast<uint32_t>(total << 16 | row << kLevelBits | ones << 6 | length)};
}

// A code word without a 1 (chroma DC has one) counts as if a 1 followed its zeros.
static constexpr void put_coeff_token(CoeffToken* row, const char* code, CoeffToken token) {
    int zeros = 0;
    while (code[zeros] == '0') ++zeros;
    CoeffToken* const group = row + (kCoeffTokenMostZeros + 1 - zeros) * 8;
    put_code(group, 3, code[zeros] ? code + zeros + 1 : "", token);
}

static constexpr CoeffTokenTable coeff_token_table() {
    CoeffTokenTable t{};
    const CoeffTokenCodes* const sources[4] = {&kCodes0, &kCodes2, &kCodes4, &kCodesChromaDc};
    for (int nc = 0; nc < 4; ++nc) {
        for (int ones = 0; ones < 4; ++ones) {
            for (int total = ones; total < 17 && sources[nc]->codes[ones][total]; ++total) {
                const char* const code = sources[nc]->codes[ones][total];
                put_coeff_token(t.entry + nc * kCoeffTokenEntries, code,
                                coeff_token(code_length(code), ones, total));
            }
        }
    }
    // "0000000" of chroma DC: whatever the number of zeros after it.
    constexpr int kSeven = kCoeffTokenChromaDc + (kCoeffTokenMostZeros + 1 - 7) * 8;
    for (int i = kCoeffTokenChromaDc; i < kSeven; ++i) t.entry[i] = t.entry[kSeven];
    // total_coeff - 1 and trailing ones; 000011 stands for none.
    for (int code = 0; code < 1 << kCoeffTokenFixedBits; ++code) {
        const int ones = code & 3, total = (code >> 2) + 1;
        if (ones > total) continue;
        t.entry[kCoeffToken8 + code] = coeff_token(kCoeffTokenFixedBits, ones, total);
    }
    t.entry[kCoeffToken8 + 3] = coeff_token(kCoeffTokenFixedBits, 0, 0);
    return t;
}

// With both counts there nC is their rounded mean; else the one that is there, or 0.
static constexpr CoeffTokenRows coeff_token_rows() {
    CoeffTokenRows rows{};
    for (int sum = 0; sum < kCountsOfChromaDc; ++sum) {
        const int nc = sum < kCountMissing ? (sum + 1) >> 1 : sum & (kCountMissing - 1);
        rows.of[sum] = nc < 2   ? kCoeffToken0
                       : nc < 4 ? kCoeffToken2
                       : nc < 8 ? kCoeffToken4
                                : kCoeffToken8;
    }
    rows.of[kCountsOfChromaDc] = kCoeffTokenChromaDc;
    return rows;
}
constexpr CoeffTokenRows kCoeffTokenRows = coeff_token_rows();

constexpr CoeffTokenTable kCoeffTokens = coeff_token_table();
constexpr TotalZerosTable kTotalZeros =
    total_zeros_table<TotalZerosTable>(kTotalZerosCodes, 15, kTotalZerosBits);
constexpr TotalZerosChromaTable kTotalZerosChroma =
    total_zeros_table<TotalZerosChromaTable>(kTotalZerosChromaCodes, 3, kTotalZerosChromaBits);

// The row of seven zeros serves all larger numbers, with the unary codes after 000.
static constexpr RunBeforeTable run_before_table() {
    RunBeforeTable table{};
    for (int row = 1; row < 16; ++row) {
        const char* const* const codes = kRunBeforeCodes[row < 7 ? row - 1 : 6];
        for (int run = 0; run < 16 && codes[run]; ++run) {
            put_code(table.entry[row], kRunBeforeBits, codes[run],
                     static_cast<uint8_t>(code_length(codes[run]) << 4 | run));
        }
        if (row >= 7) table.entry[row][0] = kLongRun;
    }
    return table;
}
constexpr RunBeforeTable kRunBefore = run_before_table();

static constexpr ZerosLeft run_pair(int zeros_left, uint32_t bits) {
    const uint32_t first = kRunBefore.entry[zeros_left][bits >> kRunBeforeBits];
    if (first == kLongRun) return kLongRuns;
    const int between = zeros_left - static_cast<int>(first & 15);
    const uint32_t rest = bits << (first >> 4) >> kRunBeforeBits & ((1U << kRunBeforeBits) - 1);
    const uint32_t second = kRunBefore.entry[between][rest];
    if (second == kLongRun) return kLongRuns;
    return ZerosLeft::of(static_cast<int>((first >> 4) + (second >> 4)), between,
                         between - static_cast<int>(second & 15));
}

static constexpr RunPairTable run_pair_table() {
    RunPairTable table{};
    for (int zeros_left = 0; zeros_left < 16; ++zeros_left) {
        for (uint32_t bits = 0; bits < 1U << kRunPairBits; ++bits) {
            table.entry[(zeros_left << kRunPairBits) + static_cast<int>(bits)] =
                run_pair(zeros_left, bits);
        }
    }
    return table;
}
constexpr RunPairTable kRunPairs = run_pair_table();

// The level whose code is the first of these bits (width of them), or a length of 0.
struct LevelCode {
    int length;
    int level;
    int next_row;
};

static constexpr LevelCode level_code(int row, uint32_t bits, int width) {
    if (bits == 0) return {};
    const LevelRow& r = kLevelRowTable[row];
    const int prefix = __builtin_clz(bits << (32 - width));
    const int length = prefix + 1 + r.suffix_length;
    if (length > width) return {};
    const int suffix = static_cast<int>(bits >> (width - length)) & ((1 << r.suffix_length) - 1);
    const int level = level_of_code((prefix << r.suffix_length) + suffix + r.code_offset);
    return {length, level, level_row_behind(row, prefix)};
}

static constexpr LevelEntry level_entry(int row, uint32_t bits) {
    const LevelCode first = level_code(row, bits, kLevelBits);
    if (first.length == 0) return {};
    const int width = kLevelBits - first.length;
    const LevelCode second = level_code(first.next_row, bits & ((1U << width) - 1), width);
    const bool has_two = second.length != 0;
    const int next_row = has_two ? second.next_row : first.next_row;
    return {first.level * (1 << 24) | (second.level & 0xff) << 16 | first.length << 12 |
            next_row << kLevelBits | (1 + has_two) << 6 | (first.length + second.length)};
}

static constexpr LevelTable level_table() {
    LevelTable table{};
    for (int row = 0; row < kLevelRows; ++row) {
        for (uint32_t bits = 0; bits < 1U << kLevelBits; ++bits) {
            table.entry[(row << kLevelBits) + static_cast<int>(bits)] = level_entry(row, bits);
        }
    }
    return table;
}
constexpr LevelTable kLevels = level_table();
