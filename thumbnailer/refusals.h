// SPDX-License-Identifier: BSD-2-Clause
// What people are told when a movie or its key frames are refused, and whether another program may
// know more.
#pragma once

#include <string>

#include "movie/video_description.h"
#include "thumb/decode_key_frame.h"
#include "thumbnailer/outcome.h"

// refused_format is the four-character code that goes with it, or empty.
Outcome outcome_of(MovieRefusal refusal, const std::string& refused_format);

Outcome outcome_of(VideoCodec codec, const KeyFrameRefusal& refusal);
