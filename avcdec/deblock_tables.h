// SPDX-License-Identifier: BSD-2-Clause
// Filter thresholds (H.264 Tables 8-16, 8-17), padded for indices -12 to 63: 12 zeros below, the
// value of index 51 above.
#pragma once

#include <stdint.h>

constexpr int kDeblockPad = 12;
extern const uint8_t kDeblockAlpha[kDeblockPad + 52 + kDeblockPad];
extern const uint8_t kDeblockBeta[kDeblockPad + 52 + kDeblockPad];
// For boundary strength 3, the only one inside intra macroblocks.
extern const uint8_t kDeblockTc0[kDeblockPad + 52 + kDeblockPad];
