// SPDX-License-Identifier: BSD-2-Clause
// Looks over the boxes of a file for a person: a list of them, and what it takes to tell why there
// is no thumbnail. It decides nothing that the container reader decides.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <string>

#include "mp4/buffered_file.h"

// What the video tracks hold, taken together.
struct TrackFacts {
    bool is_video;
    uint32_t id;
    std::string format;  // of the first sample entry of the last video track, as in the file, or ""
    bool has_sync_samples;         // "stss"
    bool has_chunk_offsets;        // "stco"
    bool has_large_chunk_offsets;  // "co64"
    bool has_compact_sizes;        // "stz2"
    bool has_constant_size;        // "stsz" with one size for all samples
    bool is_rotated;               // the track header turns the picture
    uint8_t esds_object_type;      // which codec an MPEG-4 decoder configuration is for, or 0
    bool has_esds;                 // somewhere in the sample description
    bool has_esds_in_place;        // where it is looked for
    std::string skipped_type;  // the last box that is skipped for its 64-bit or open size, or ""
};

// Where a box stands.
struct BoxPlace {
    std::string type;  // printable; "" for none
    int64_t offset;
};

struct BoxFacts {
    bool has_known_box;  // anything that belongs into a file of this kind
    bool has_movie;
    bool has_fragments;
    bool has_base_data_offset;  // stated by a fragment of the last video track
    int64_t declared_end;  // where the first box that passes the end of the file would end, or 0
    BoxPlace passing;      // that box
    BoxPlace misfit;    // the first box in the movie that is too short, or passes its parent's end
    BoxPlace metadata;  // the last "udta" or "meta" in front of the first video handler
    uint32_t last_track_id;
    int video_tracks;
    int random_access_tables;        // "tfra"
    bool has_video_random_access;    // one of them is the last video track's
    uint32_t random_access_entries;  // of that one
    TrackFacts video;
};

// Lists the boxes of the file on out, and fills *facts.
void explain_boxes(BufferedFile* file, int64_t file_size, FILE* out, BoxFacts* facts);
