// SPDX-License-Identifier: BSD-2-Clause
// Which key frames to try, and in which order.
#pragma once

#include <vector>

#include "movie/movie.h"
#include "picture/upright_picture.h"
#include "thumbnailer/options.h"

// The frame at the percentile of the coded sizes comes first, then those that are next to it in the
// order of sizes, the larger of two equally near ones first.
std::vector<MovieKeyFrame> frames_by_percentile(std::vector<MovieKeyFrame> frames, int percentile);

// Whether it is black, or of one other shade: a fade, or a pause between scenes.
bool is_blank(const UprightPicture& picture);

// Where the movie's presentation reaches the start that was asked for.
int64_t start_time_us(Movie* movie, const StartTime& start);
