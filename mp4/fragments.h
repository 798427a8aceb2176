// SPDX-License-Identifier: BSD-2-Clause
// Fragmented movies: the random access table of their key frames, and the fragments that it leads
// to, which are parsed on demand.
#pragma once

#include <stdint.h>

#include "mp4/buffered_file.h"
#include "mp4/parse_context.h"
#include "mp4/video_state.h"

// Movie fragment. What is read of it is remembered, for the look-up of a key frame there.
void mp4_parse_moof(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);

// Movie extends header: the duration of the whole fragmented movie.
void mp4_parse_mehd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);

// Track extends: the default sample size.
void mp4_parse_trex(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);

// Kept on purpose: content-stays-held
// Fragment random access table. It is read only while the content of an earlier box is held, as
// track runs leave it.
void mp4_parse_tfra(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);

// Track fragment header and track run: they place the key frame that is being located.
void mp4_parse_tfhd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);
void mp4_parse_trun(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);

// Locates the sample of a key frame by parsing its fragment. Returns 0, with size 0 when there is
// no sample, or 1 when the collection cannot go on: after releasing the video state, or without
// work left.
int mp4_locate_fragment_sample(BufferedFile* file, VideoState* state, uint32_t key_index,
                               SamplePlace* place);

// Whether the key frames from that one on, which has just been located, are one and the same
// sample: those whose entries are not in the file are.
bool mp4_has_same_sample_to_the_end(const VideoState* state, uint32_t key_index);
