// SPDX-License-Identifier: BSD-2-Clause
// The sample tables of the video track, and the samples that they lead to.
#pragma once

#include <stdint.h>

#include "mp4/buffered_file.h"
#include "mp4/parse_context.h"
#include "mp4/video_state.h"

// The handlers note where the tables lie. Tables of tracks that are not known as video are skipped.
void mp4_parse_stts(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);
void mp4_parse_stss(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);
void mp4_parse_stsc(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);
void mp4_parse_stsz(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);
void mp4_parse_stco(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context);

// Whether the current media box has named the video handler.
bool mp4_is_video_track(const ParseContext* context);

// Finds the first sample whose end time is at least target, in units of the media time scale.
// Returns false when none is.
bool mp4_find_sample_at(BufferedFile* file, VideoState* state, uint64_t target, uint64_t* sample);

// Finds the chunk (1-based) that holds a sample and the chunk's first sample (both 0-based).
// Returns false for a sample that no chunk holds.
bool mp4_find_chunk(BufferedFile* file, VideoState* state, uint32_t sample, uint64_t* chunk,
                    uint32_t* first_sample);

// Finds a sample by its 1-based number. Sums are cut to 32 bits.
SamplePlace mp4_locate_sample(BufferedFile* file, VideoState* state, uint32_t sample_number);
