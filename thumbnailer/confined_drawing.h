// SPDX-License-Identifier: BSD-2-Clause
// Draws a thumbnail in a process that can do nothing but read the video and write the picture,
// within limits of time and memory.
#pragma once

#include <stdint.h>

#include <vector>

#include "picture/picture_file.h"
#include "thumbnailer/options.h"
#include "thumbnailer/outcome.h"

// The descriptor is of a regular file and stays open. With kDone, *picture is a whole picture file.
Outcome draw_confined(int video, const Options& options, const std::vector<PngText>& texts,
                      std::vector<uint8_t>* picture);
