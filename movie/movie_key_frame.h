// SPDX-License-Identifier: BSD-2-Clause
// A key frame as a movie hands it out.
#pragma once

#include <stdint.h>

// Who is asked whether a sample is a key frame: the index alone, where it tells such samples from
// others, or the samples as well, each of which is a read at another place.
enum class Trust : uint8_t { kIndex, kSamples };

// One coded picture that decodes by itself.
struct MovieKeyFrame {
    int64_t time_us;       // presentation time after the edit list, 0 at the movie's start
    uint64_t offset;       // of its bytes in the source
    uint32_t size;         // bytes, at least 1, all of them there
    uint32_t description;  // index into Movie::descriptions, of one that is not refused
};
