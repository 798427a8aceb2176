// SPDX-License-Identifier: BSD-2-Clause
// Looks into a sample whether it is a key frame in truth: tables and flags are often wrong, or
// leave it open.
#pragma once

#include "movie/source_reader.h"
#include "movie/video_description.h"

enum class IntraGuess : uint8_t {
    kIntra,     // the first slice or the picture header says so
    kNotIntra,  // it says otherwise, or there is no picture in the sample
    kUnknown,   // damaged, or headers longer than is looked at
};

// The sample is the `size` bytes from `offset` on. prefix_size is that of H.264 in the source, 1
// to 4. Reads little more than the first header.
IntraGuess probe_sample(SourceReader* reader, VideoCodec codec, uint32_t prefix_size,
                        uint64_t offset, uint32_t size);
