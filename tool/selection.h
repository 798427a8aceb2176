// SPDX-License-Identifier: BSD-2-Clause
// Chooses the representative key frame by its coded size.
#pragma once

#include <stdint.h>

#include "tool/key_frames.h"

// The number of the frame at the percentile (0 to 100) of the bytes read, counted from 0 in the
// order of the list; -1 when the list is empty.
//
// Frames of equal size stand in the order in which an exchange sort leaves them: for each i, every
// later j with a strictly smaller size swaps places with i. The cost grows with the list's length
// only, and takes no memory.
int32_t selection_pick(const KeyFrameList& list, int32_t percentile);
