// SPDX-License-Identifier: BSD-2-Clause
// How a stored picture is turned and mirrored to be shown: one of eight ways.
#pragma once

// Rows and columns change places first, then their order is reversed.
struct Turn {
    bool is_transposed = false;
    bool reverses_columns = false;  // left and right of the result
    bool reverses_rows = false;     // top and bottom of the result
};

// By the number that EXIF gives the orientation of a stored picture, 1 (upright) to 8. Others leave
// the picture as it is.
Turn turn_of_orientation(int exif_orientation);
