// SPDX-License-Identifier: BSD-2-Clause
// The numbers that all variants of the inverse DCT share.
#pragma once

#include <stdint.h>

// round(sqrt(2) * cos(k * pi / 16) * 2^14): one pass is 2^15.5 times the orthonormal transform,
// both are 2^31 times, which the two shifts take back.
constexpr uint32_t kIdctC1 = 22725;
constexpr uint32_t kIdctC2 = 21407;
constexpr uint32_t kIdctC3 = 19266;
constexpr uint32_t kIdctC4 = 16384;
constexpr uint32_t kIdctC5 = 12873;
constexpr uint32_t kIdctC6 = 8867;
constexpr uint32_t kIdctC7 = 4520;

// The first pass keeps 4.5 fractional bits and saturates to 16 bits, the second rounds to samples.
constexpr unsigned kIdctShift1 = 11;
constexpr unsigned kIdctShift2 = 20;
constexpr uint32_t kIdctRound1 = 1u << (kIdctShift1 - 1);
constexpr uint32_t kIdctRound2 = 1u << (kIdctShift2 - 1);
