// SPDX-License-Identifier: BSD-2-Clause
// A key frame as a movie hands it out.
#pragma once

#include <stdint.h>

// One coded picture that decodes by itself.
struct MovieKeyFrame {
    int64_t time_us;       // presentation time behind the edit list, 0 at the movie's start
    uint64_t offset;       // of its bytes in the source
    uint32_t size;         // bytes, at least 1, all of them there
    uint32_t description;  // index into Movie::descriptions, of one that is not refused
};
