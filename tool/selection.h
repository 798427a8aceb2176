// SPDX-License-Identifier: BSD-2-Clause
// Chooses the representative key frame by its coded size.
#pragma once

#include <stdint.h>

#include "runtime/key_frame.h"

// The frame at the percentile (0 to 100) of the bytes read, among the first count records that
// have both blocks. Null when none has, or without memory.
//
// Frames of equal size stand in the order in which an exchange sort leaves them: for each i, every
// later j with a strictly smaller size swaps places with i. The cost is that of an ordinary sort.
const KeyFrame* selection_pick(const KeyFrame* records, int32_t count, int32_t percentile);
