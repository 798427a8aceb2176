// SPDX-License-Identifier: BSD-2-Clause
// From the bytes of a movie to those of a picture file, without a look at anything else.
#pragma once

#include <stdio.h>

#include <vector>

#include "movie/movie.h"
#include "picture/picture_file.h"
#include "thumbnailer/options.h"
#include "thumbnailer/outcome.h"

// Writes the picture, with the texts if it is a PNG file, and flushes. Unless the verdict is kDone
// what was written is of no use.
Outcome draw_thumbnail(ByteSource* source, Inflater inflater, const Options& options,
                       const std::vector<PngText>& texts, FILE* file);
