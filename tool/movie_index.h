// SPDX-License-Identifier: BSD-2-Clause
// What a walk over a movie says about its key frames.
#pragma once

#include <stdint.h>

#include "mp4/buffered_file.h"
#include "mp4/parse_context.h"
#include "mp4/video_state.h"

constexpr uint32_t kWalkBuffer = 4096;  // bytes, of the file that is walked

// Walks the boxes of the file from front to back, with a context of mp4_begin_walk, and grants the
// work of looking up its tables. Returns 0, or 1 when not even one box could be read, or the walk
// was given up.
int movie_index_walk(BufferedFile* file, const char* path, ParseContext* context);

// Whether there are tables enough to locate samples.
bool movie_index_has_tables(const VideoState* state);
// Whether the codec's decoder configuration was found; true for codec kind none.
bool movie_index_has_configuration(const VideoState* state);

// The key frames are numbered from 0. The first one to collect from that part of the clip onward;
// there has to be at least one key frame.
uint32_t movie_index_first(BufferedFile* file, VideoState* state, int32_t clip_offset_percent);
// Key frames from there on are not in the file.
uint32_t movie_index_end(const VideoState* state);

// Finds the sample of a key frame; size 0 when there is none. Returns 1 when the collection cannot
// go on.
int movie_index_locate(BufferedFile* file, VideoState* state, uint32_t key_index,
                       SamplePlace* place);
// How many key frames from that one on, which has just been found, are known to be its sample. At
// least 1.
uint32_t movie_index_same_from(const VideoState* state, uint32_t key_index);
