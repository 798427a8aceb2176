// SPDX-License-Identifier: BSD-2-Clause
// Who is shown the key frames of tables and fragments, in the order of decoding.
#pragma once

#include <stdint.h>

struct FoundKeyFrame {
    int64_t media_time;    // composition time in the track's time scale
    uint64_t offset;       // in the source, not checked
    uint32_t size;         // bytes, not 0
    uint32_t description;  // 1-based, not checked
    bool is_told_apart;    // the index names key frames, and other samples that are none
};

class KeyFrameVisitor {
 public:
    // Whether a key frame of that composition time is worth locating.
    virtual bool wants(int64_t media_time) = 0;
    // Returns false when no further ones are wanted.
    virtual bool take(const FoundKeyFrame& found) = 0;

 protected:
    ~KeyFrameVisitor() = default;
};
