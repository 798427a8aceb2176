// SPDX-License-Identifier: BSD-2-Clause
// What a walk has found. There is one such record in the process, which makes the container reader
// not re-entrant; the parse context hands it on.
#pragma once

#include <stdint.h>

#include "mp4/file_table.h"
#include "mp4/parse_context.h"
#include "mp4/random_access.h"
#include "runtime/owned.h"

struct ConfigBlock {
    Owned<uint8_t> bytes;  // null when nothing was found; a found block may be empty
    uint32_t length;
};

// Where the coded bytes of a sample lie in the file.
struct SamplePlace {
    uint32_t offset;
    uint32_t size;       // 0: there is no such sample
    uint32_t read_size;  // bytes to read there; another size only after a base data offset
};

// Where the look-up of the last sample ended. Samples are mostly asked for in rising order, so the
// next one goes on from there.
struct SampleCursor {
    uint32_t run;               // entry of the sample-to-chunk table
    uint32_t run_first_sample;  // all sample numbers in here are 0-based
    uint64_t chunk;             // that next_offset is for; 0 for none
    uint32_t next_sample;
    uint32_t next_offset;  // of next_sample within the chunk
};

// What looking into a fragment gave. Depends on nothing but where it started from.
struct FragmentLookUp {
    uint32_t generation;  // of the random access table; 0 before the first look-up
    uint32_t default_sample_size;
    uint64_t offset;
    SamplePlace place;
};

struct FragmentState {
    bool has_table;  // a fragment random access table was read
    bool is_collecting;
    RandomAccessTable table;
    uint32_t default_sample_size;  // of the track extends box
    uint32_t run_counter;
    uint32_t wanted_run;
    // Of the key frame that is being located:
    uint64_t fragment_offset;
    uint32_t current_offset;  // of its data in the fragment
    uint32_t current_size;    // in bytes
    FragmentLookUp last_look_up;
    ParseContext parse_context;  // as the random access table found it
};

struct VideoState {
    uint32_t media_time_scale;
    uint64_t media_duration;
    int64_t duration_s;
    uint32_t movie_time_scale;
    uint32_t sync_sample_count;  // of "stss", or entries of the fragment random access table
    FileTable time_to_sample;    // sample count, sample delta
    FileTable sync_samples;      // 1-based sample numbers
    FileTable sample_to_chunk;   // first chunk, samples per chunk, description
    FileTable sample_sizes;
    FileTable chunk_offsets;
    SampleCursor cursor;
    int32_t codec_kind;         // kCodec... of runtime/key_frame.h
    ConfigBlock sequence_sets;  // H.264, each preceded by its 16-bit length
    ConfigBlock picture_sets;
    ConfigBlock mpeg4_config;
    ConfigBlock h263_config;
    FragmentState fragments;
    // This outlives a reset.
    int32_t length_prefix_size;  // of the NAL units in an H.264 sample
};

// Sets up the context of a walk with the process-wide state, preset. The file's size is for the
// caller to fill in, and the state for the caller to release.
void mp4_begin_walk(ParseContext* context);

// Releases everything in the state and presets it for a walk.
void mp4_release_video_state(VideoState* state);
