// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/cabac_packer.h"

#include <algorithm>

// H.264 Tables 9-44 and 9-45.
// clang-format off
static constexpr uint8_t kRangeLps[64][4] = {
    {128, 176, 208, 240}, {128, 167, 197, 227}, {128, 158, 187, 216}, {123, 150, 178, 205},
    {116, 142, 169, 195}, {111, 135, 160, 185}, {105, 128, 152, 175}, {100, 122, 144, 166},
    { 95, 116, 137, 158}, { 90, 110, 130, 150}, { 85, 104, 123, 142}, { 81,  99, 117, 135},
    { 77,  94, 111, 128}, { 73,  89, 105, 122}, { 69,  85, 100, 116}, { 66,  80,  95, 110},
    { 62,  76,  90, 104}, { 59,  72,  86,  99}, { 56,  69,  81,  94}, { 53,  65,  77,  89},
    { 51,  62,  73,  85}, { 48,  59,  69,  80}, { 46,  56,  66,  76}, { 43,  53,  63,  72},
    { 41,  50,  59,  69}, { 39,  48,  56,  65}, { 37,  45,  54,  62}, { 35,  43,  51,  59},
    { 33,  41,  48,  56}, { 32,  39,  46,  53}, { 30,  37,  43,  50}, { 29,  35,  41,  48},
    { 27,  33,  39,  45}, { 26,  31,  37,  43}, { 24,  30,  35,  41}, { 23,  28,  33,  39},
    { 22,  27,  32,  37}, { 21,  26,  30,  35}, { 20,  24,  29,  33}, { 19,  23,  27,  31},
    { 18,  22,  26,  30}, { 17,  21,  25,  28}, { 16,  20,  23,  27}, { 15,  19,  22,  25},
    { 14,  18,  21,  24}, { 14,  17,  20,  23}, { 13,  16,  19,  22}, { 12,  15,  18,  21},
    { 12,  14,  17,  20}, { 11,  14,  16,  19}, { 11,  13,  15,  18}, { 10,  12,  15,  17},
    { 10,  12,  14,  16}, {  9,  11,  13,  15}, {  9,  11,  12,  14}, {  8,  10,  12,  14},
    {  8,   9,  11,  13}, {  7,   9,  11,  12}, {  7,   9,  10,  12}, {  7,   8,  10,  11},
    {  6,   8,   9,  11}, {  6,   7,   9,  10}, {  6,   7,   8,   9}, {  2,   2,   2,   2},
};
static constexpr uint8_t kNextLps[64] = {
     0,  0,  1,  2,  2,  4,  4,  5,  6,  7,  8,  9,  9, 11, 11, 12,
    13, 13, 15, 15, 16, 16, 18, 18, 19, 19, 21, 21, 22, 22, 23, 24,
    24, 25, 26, 26, 27, 27, 28, 29, 29, 30, 30, 30, 31, 32, 32, 33,
    33, 33, 34, 34, 35, 35, 35, 36, 36, 36, 37, 37, 37, 38, 38, 63,
};
// clang-format on

void CabacPacker::start() {
    out_->align(1);  // cabac_alignment_one_bit
    low_ = 0;
    range_ = 510;
    outstanding_ = 0;
    is_first_ = true;
}

void CabacPacker::put(int bit) {
    if (!is_first_) out_->u(1, static_cast<uint64_t>(bit));
    is_first_ = false;
    for (; outstanding_ > 0; --outstanding_) out_->u(1, static_cast<uint64_t>(1 - bit));
}

void CabacPacker::renormalise() {
    for (; range_ < 256; range_ <<= 1, low_ <<= 1) {
        if (low_ < 256) {
            put(0);
        } else if (low_ >= 512) {
            low_ -= 512;
            put(1);
        } else {
            low_ -= 256;
            ++outstanding_;
        }
    }
}

void CabacPacker::decision(uint8_t* context, int bin) {
    const int state = *context >> 1;
    int mps = *context & 1;
    const uint32_t lps_range = kRangeLps[state][range_ >> 6 & 3];
    range_ -= lps_range;
    int next = std::min(state + 1, state == 63 ? 63 : 62);
    if (bin != mps) {
        low_ += range_;
        range_ = lps_range;
        next = kNextLps[state];
        if (state == 0) mps = 1 - mps;
    }
    *context = static_cast<uint8_t>(next * 2 + mps);
    renormalise();
}

void CabacPacker::bypass(int bin) {
    low_ <<= 1;
    if (bin) low_ += range_;
    if (low_ >= 1024) {
        put(1);
        low_ -= 1024;
    } else if (low_ < 512) {
        put(0);
    } else {
        low_ -= 512;
        ++outstanding_;
    }
}

void CabacPacker::terminate(int bin) {
    range_ -= 2;
    if (!bin) {
        renormalise();
        return;
    }
    low_ += range_;
    range_ = 2;
    renormalise();
    put(static_cast<int>(low_ >> 9 & 1));
    out_->u(2, (low_ >> 7 & 3) | 1);
}

uint8_t cabac_initial_context(int m, int n, int slice_qp) {
    const int state = std::clamp(((m * slice_qp) >> 4) + n, 1, 126);
    return static_cast<uint8_t>(state <= 63 ? (63 - state) * 2 : (state - 64) * 2 + 1);
}
