// SPDX-License-Identifier: BSD-2-Clause
// Looks into a sample whether it is a key frame in truth: tables and flags are often wrong, or
// leave it open.
#pragma once

#include <span>

#include "movie/source_reader.h"
#include "movie/video_description.h"

enum class IntraGuess : uint8_t {
    kIntra,     // the first slice or the picture header says so
    kNotIntra,  // it says otherwise, or there is no picture in the sample
    kUnknown,   // damaged, or headers longer than is looked at
};

// Whether a sample begins with the headers of an MPEG-4 video (ISO 14496-2 6.2.2, 6.2.3), as no
// sample of another codec does. More than its first kMpeg4HeaderBytes are not looked at.
constexpr size_t kMpeg4HeaderBytes = 9;
bool begins_like_mpeg4(std::span<const uint8_t> sample);

// The sample is the `size` bytes from `offset` on. prefix_size is that of H.264 in the source, 1
// to 4. Reads little more than the first header.
IntraGuess probe_sample(SourceReader* reader, VideoCodec codec, uint32_t prefix_size,
                        uint64_t offset, uint32_t size);
