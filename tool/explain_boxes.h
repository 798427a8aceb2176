// SPDX-License-Identifier: BSD-2-Clause
// Looks over the boxes of a file for a person: a list of them, and what it takes to tell why there
// is no thumbnail. It decides nothing that the container reader decides.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include "mp4/buffered_file.h"

// What the video tracks hold, taken together.
struct TrackFacts {
    bool is_video;
    char format[5];  // of the first sample entry of the last video track; "" when there is none
    bool has_sync_samples;         // "stss"
    bool has_time_to_sample;       // "stts"
    bool has_sample_to_chunk;      // "stsc"
    bool has_chunk_offsets;        // "stco"
    bool has_large_chunk_offsets;  // "co64"
    bool has_compact_sizes;        // "stz2"
    bool has_constant_size;        // "stsz" with one size for all samples
    bool is_rotated;               // the track header turns the picture
};

struct BoxFacts {
    bool has_known_box;  // anything that belongs into a file of this kind
    bool has_movie;
    bool has_fragments;
    bool has_random_access;  // "tfra"
    int64_t declared_end;    // where the first box that passes the end of the file would end, or 0
    char passing_type[5];    // its type
    TrackFacts video;
};

// Lists the boxes of the file on out, and fills *facts.
void explain_boxes(BufferedFile* file, int64_t file_size, FILE* out, BoxFacts* facts);
