// SPDX-License-Identifier: BSD-2-Clause
#include "picture/turn.h"

Turn turn_of_orientation(int exif_orientation) {
    static constexpr Turn kTurns[8] = {
        {false, false, false}, {false, true, false}, {false, true, true}, {false, false, true},
        {true, false, false},  {true, true, false},  {true, true, true},  {true, false, true},
    };
    return exif_orientation >= 1 && exif_orientation <= 8 ? kTurns[exif_orientation - 1] : Turn{};
}
