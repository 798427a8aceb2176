// SPDX-License-Identifier: BSD-2-Clause
// The movie box: what it says of the movie and of the track that is its video.
#pragma once

#include <array>
#include <vector>

#include "movie/box_walk.h"
#include "movie/presentation.h"
#include "movie/sample_entry.h"

// ISO 14496-12 8.2.2: {a, b, u, c, d, v, x, y, w}. Of use here are the turning and mirroring parts.
struct DisplayMatrix {
    int64_t a = 1, b = 0, c = 0, d = 1;
};

// Where a track's tables lie in the source. A table that is missing has no entries.
struct SampleTables {
    Table durations;            // "stts"
    Table compositions;         // "ctts"
    Table sync;                 // "stss"
    Table chunk_runs;           // "stsc"
    Table sizes;                // "stsz", "stz2": entries of size_bits
    Table chunks;               // "stco", "co64"
    uint32_t sample_size = 0;   // of all samples, 0 if the table has sizes
    uint32_t size_bits = 32;    // 4, 8, 16 or 32
    uint32_t sample_count = 0;  // as far as sizes are there
};

// ISO 14496-12 8.8.3: what a fragment leaves out.
struct FragmentDefaults {
    uint32_t track_id = 0;
    uint32_t description = 1;  // 1-based
    uint32_t duration = 0;
    uint32_t size = 0;
    uint32_t flags = 0;
};

struct VideoTrack {
    uint32_t id = 0;
    bool is_enabled = false;
    bool is_of_other_kind = false;  // not handled as video: auxiliary, or for still pictures
    uint32_t time_scale = 1;        // never 0
    uint64_t duration = 0;          // of the media, in its time scale; 0 if unknown
    uint32_t width = 0;             // of the display, 16.16
    uint32_t height = 0;
    DisplayMatrix matrix;
    std::vector<Edit> edits;
    std::vector<SampleEntry> entries;
    SampleTables tables;
};

struct MovieHeaders {
    uint32_t time_scale = 1;  // never 0
    DisplayMatrix matrix;
    bool has_fragments = false;              // "mvex"
    uint64_t fragment_duration = 0;          // "mehd", in the movie's time scale; 0 if unknown
    std::vector<FragmentDefaults> defaults;  // of all tracks
    VideoTrack video;
};

// Finds the video among the tracks. Returns kNone if it can be decoded.
MovieRefusal read_movie_headers(SourceReader* reader, const Box& moov, MovieHeaders* headers);
