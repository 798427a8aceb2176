// SPDX-License-Identifier: BSD-2-Clause
// The sample entries of a video track (ISO 14496-12 8.5.2, 14496-14, 14496-15, 3GPP TS 26.244).
#pragma once

#include <vector>

#include "movie/box_walk.h"
#include "movie/video_description.h"

struct SampleEntry {
    VideoDescription description;
    uint32_t stored_prefix_size = 0;  // of H.264 in the source, 1 to 4; 0 for the other codecs
    bool is_picture = false;          // a still image format: a cover rather than a video
};

// The entries of "stsd" in their order, at most kMaxSampleEntries.
constexpr size_t kMaxSampleEntries = 64;
std::vector<SampleEntry> read_sample_entries(SourceReader* reader, const Box& stsd);
